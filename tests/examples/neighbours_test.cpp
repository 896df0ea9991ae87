/// The neighbours service without its process: what it refuses, and what comes behind its items.

#include "examples/neighbours/neighbours.h"

#include "examples/neighbours/line_reader.h"
#include "examples/neighbours/live_records.h"
#include "examples/neighbours/tables.h"
#include "examples/support/addresses.h"
#include "tests/examples/service_test.h"

namespace neighbours {
namespace {

constexpr const char* kArpHead =
    "IP address       HW type     Flags       HW address            Mask     Device\n";
constexpr const char* kTcpHead = "  sl  local_address rem_address   st tx_queue rx_queue tr ...\n";
constexpr const char* kMac = "02:00:5e:10:00:01";
constexpr unsigned kMany = 20000;
/// The first iteration of a service.
constexpr std::uint32_t kFirst = 0xfffff001;

/// A line of the kernel's, from a machine that stores the lowest byte first, as all do that this
/// runs on: 10.0.0.1 is connected to 192.0.2.9.
std::string tcpLine(unsigned port, const std::string& address = "0100000A") {
  char digits[5];
  std::snprintf(digits, sizeof digits, "%04X", port);
  return "   0: " + address + ":" + digits + " 090200C0:01BB 01 00000000:00000000 " +
         "00:00000000 00000000  1000        0 4711 1 0000\n";
}

std::string described(const message& record) {
  return record.get(kTable) + ' ' + examples::addressText(record.get(kAddress)) + ' ' +
         std::to_string(record.get(kPort)) + ' ' + examples::addressText(record.get(kPeer)) + ' ' +
         std::to_string(record.get(kPeerPort)) + ' ' + record.get(kState) + ' ' +
         std::to_string(record.get(kUser)) + ' ' + record.get(kDevice);
}

class NeighboursTest : public ServiceTest<Neighbours> {
 protected:
  NeighboursTest() { start(); }

  void start() {
    make(directory.path());
    kit->listen(110);
    service->open(110);
  }
  void write(const std::string& table, const std::string& text) const {
    std::ofstream(directory / table) << text;
  }
  void writeConnections(unsigned number) const {
    std::string text = kTcpHead;
    for (unsigned k = 0; k < number; ++k) text += tcpLine(k % 65536);
    write("tcp", text);
  }

  /// Sends a request and does not wait.
  void send(const message& request, std::uint32_t client = 0xcfff0001) {
    kit->seen().clear();
    kit->ask(handler(), request, {{client}, 0x7fffffff});
  }
  /// The reply, which may take its time; empty when none has come.
  message page(std::uint32_t start = nv::kNoId, std::uint32_t client = 0xcfff0001) {
    message request{{key::command, cmd::getAll}};
    if (start != nv::kNoId) request.insert(key::startId, start);
    send(request, client);
    for (int wait = 0; wait < 40 && kit->seen().replies.empty(); ++wait) kit->advance(5);
    return kit->seen().replies.empty() ? message() : kit->seen().replies.front().reply;
  }
  std::vector<message> list() {
    std::vector<message> all;
    for (auto start = nv::kNoId;;) {
      const auto reply = page(start);
      EXPECT_FALSE(nv::isError(reply));
      EXPECT_LE(reply.max_length(), 0xffffU);
      for (const auto record : reply.view(key::objects)) all.emplace_back(record);
      if (!reply.has(key::startId) || nv::isError(reply)) return all;
      start = reply.get(key::startId);
    }
  }
  std::string add(const std::string& address, const std::string& hardware,
                  const std::string& device = "eth0") {
    message fields{{kHardware, hardware}, {kDevice, device}};
    if (!address.empty()) fields.insert(kAddress, examples::addressFrom(address).value());
    return ServiceTest::add(fields);
  }
};

TEST_F(NeighboursTest, FaultsAreRefusedWithWordsThatSayWhatIsWrong) {
  ASSERT_EQ(add("192.0.2.7", kMac), "ok");
  for (const std::string mac : {"", "02:00:5E:10:00:01", "02:00:5e:10:00-01", "02:00:5e:10:00:01:"})
    EXPECT_EQ(add("192.0.2.8", mac),
              '"' + mac + "\" is no hardware address like 02:00:5e:10:00:01");
  const struct {
    std::string address, device, outcome;
  } cases[] = {
      {"", "eth0", "a neighbour needs an address"},
      {"0.0.0.0", "eth0", "0.0.0.0 stands for no address"},
      {"ff02::1", "eth0", "ff02::1 is a multicast address"},
      {"192.0.2.8", "", "a neighbour needs a device"},
      {"192.0.2.8", "a/b", "\"a/b\" is no device"},
      {"192.0.2.8", "sixteen-letters-", "\"sixteen-letters-\" is no device"},
      {"192.0.2.7", "eth0", "192.0.2.7 on eth0 is object 1"},
      {"192.0.2.7", "eth1", "ok"},
  };
  for (const auto& [address, device, expected] : cases)
    EXPECT_EQ(add(address, kMac, device), expected);
}

TEST_F(NeighboursTest, AnAddressIsFreeAgainWhenItsNeighbourMovesOrGoes) {
  ASSERT_EQ(add("192.0.2.7", kMac), "ok");
  set(1, {{kDevice, "eth1"}});
  EXPECT_EQ(add("192.0.2.7", kMac), "ok");
  remove(1);
  EXPECT_EQ(add("192.0.2.7", kMac, "eth1"), "ok");
  start();
  EXPECT_EQ(add("192.0.2.7", kMac, "eth1"), "192.0.2.7 on eth1 is object 1") << "after a restart";
}

TEST_F(NeighboursTest, LiveRecordsFollowTheStaticOnes) {
  add("192.0.2.7", kMac);
  write("arp", std::string(kArpHead) + "192.0.2.1  0x1  0x2  02:fc:00:00:00:05  *  eth0\n" +
                   "192.0.2.2  0x1  0x0  00:00:00:00:00:00  *  eth1\n" + "nonsense\n");
  write("tcp", kTcpHead + tcpLine(80));
  write("udp6", kTcpHead + tcpLine(53, "B80D0120000000000000000001000000"));
  const auto all = list();
  ASSERT_EQ(all.size(), 5U);
  EXPECT_EQ(all[0].get(key::objectId), 1U);
  EXPECT_EQ(described(all[1]), "arp 192.0.2.1 0 :: 0 known 0 eth0");
  EXPECT_EQ(described(all[2]), "arp 192.0.2.2 0 :: 0 unknown 0 eth1");
  EXPECT_EQ(described(all[3]), "tcp 10.0.0.1 80 192.0.2.9 443 established 1000 ");
  EXPECT_EQ(described(all[4]), "udp6 2001:db8::1 53 192.0.2.9 443 established 1000 ");
}

TEST_F(NeighboursTest, LinesThatMakeNoSenseAreNoRecords) {
  const std::string good = tcpLine(80);
  ASSERT_TRUE(recordOf("tcp", good));
  for (std::size_t cut = 0; cut < good.find("1000"); ++cut)
    EXPECT_FALSE(recordOf("tcp", good.substr(0, cut))) << cut;
  for (const auto* line : {"0: 0100007F:XXXX 0100007F:0016 01 0:0 0:0 0 0", "0: : : 01 0:0 0:0 0 0",
                           "0: 010000:0016 0100007F:0016 01 0:0 0:0 0 0"})
    EXPECT_FALSE(recordOf("tcp", line)) << line;
  for (const auto* line :
       {kArpHead, "1.2.3.4 0x1 0x", "1.2.3 0x1 0x2 a * eth0", "1.2.3.4 1 2 a b c"})
    EXPECT_FALSE(recordOf("arp", line)) << line;
}

TEST_F(NeighboursTest, ManyRecordsComeCompleteAndInOrderAFewAPassAndLeaveNothing) {
  writeConnections(kMany);
  const auto all = list();
  ASSERT_EQ(all.size(), kMany);
  for (unsigned k = 0; k < kMany; ++k) ASSERT_EQ(all[k].get(kPort), k % 65536);
  kit->advance(100);
  EXPECT_EQ(service->iterations(), 0U);

  // Between two passes of the loop others have their turn.
  send({{key::command, cmd::getAll}}, 0xcfff0002);
  send({{key::command, cmd::getCount}});
  EXPECT_EQ(kit->seen().replies.size(), 1U) << "the count alone";
  service.reset();  // in the middle of a list
  kit->advance(200);
}

TEST_F(NeighboursTest, AClientThatStaysAwayLeavesNothing) {
  writeConnections(kMany);
  page();
  kit->advance(LiveRecords::kPatience - 200);
  EXPECT_EQ(service->iterations(), 1U);
  kit->advance(400);
  EXPECT_EQ(service->iterations(), 0U);
  EXPECT_TRUE(nv::isError(page(kFirst)));
}

TEST_F(NeighboursTest, TooManyListsOfOneClientAreRefusedAndOthersAreNotKeptFromListing) {
  for (std::size_t k = 0; k < 2 * Neighbours::kMostOfOneClient; ++k)
    EXPECT_EQ(list().size(), 0U) << "a complete one does not count";
  writeConnections(kMany);
  for (std::size_t k = 0; k < Neighbours::kMostOfOneClient; ++k) ASSERT_FALSE(nv::isError(page()));
  unsigned code = 0;
  EXPECT_TRUE(nv::isError(page(), &code));
  EXPECT_EQ(code, err::noIterationId);
  EXPECT_FALSE(nv::isError(page(nv::kNoId, 0xcffe0000)));
  EXPECT_EQ(service->iterations(), Neighbours::kMostOfOneClient + 1);
}

TEST(LineReader, GivesLinesWhateverTheirLength) {
  const TempDirectory place;
  const std::string longest(3 * LineReader::kLongestLine, 'x');
  std::ofstream(place / "file") << "a\n\n" << longest << "\nb\nlast";
  LineReader reader(place / "file");
  EXPECT_EQ(reader.next(), "a");
  EXPECT_EQ(reader.next(), "");
  std::string parts;
  while (parts.size() < longest.size()) parts += reader.next().value();
  EXPECT_EQ(parts, longest);
  EXPECT_EQ(reader.next(), "b");
  EXPECT_EQ(reader.next(), "last");
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_EQ(LineReader(place / "nowhere").next(), std::nullopt);
}

}  // namespace
}  // namespace neighbours
