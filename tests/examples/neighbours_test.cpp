/// The neighbours service without its process: what it refuses, and what comes behind its items.

#include "examples/neighbours/neighbours.h"

#include <fstream>
#include <memory>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "cfgman/cfg_handler.h"
#include "examples/neighbours/line_reader.h"
#include "examples/neighbours/live_records.h"
#include "examples/neighbours/tables.h"
#include "examples/support/addresses.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "testing/kit.h"
#include "tests/support/temp_directory.h"

namespace neighbours {
namespace {

namespace key = nv::key;
using examples::addressText;
using nv::message;
using nv::testkit::Kit;

constexpr const char* kArpHead =
    "IP address       HW type     Flags       HW address            Mask     Device\n";
constexpr const char* kTcpHead = "  sl  local_address rem_address   st tx_queue rx_queue tr ...\n";

/// As the kernel writes the words of an address: in the order of the machine.
std::string words(const std::string& address) {
  const auto parsed = examples::addressFrom(address).value();
  const bool isIpv4 = address.find(':') == std::string::npos;
  std::string text;
  for (std::size_t at = isIpv4 ? 12 : 0; at < 16; at += 4) {
    std::uint32_t word = 0;
    std::memcpy(&word, parsed.bytes.data() + at, sizeof word);
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08X", word);
    text += digits;
  }
  return text;
}

std::string tcpLine(const std::string& address, unsigned port) {
  char digits[5];
  std::snprintf(digits, sizeof digits, "%04X", port);
  return "   0: " + words(address) + ":" + digits + " " + words("192.0.2.9") +
         ":01BB 01 00000000:00000000 00:00000000 00000000  1000        0 4711 1 0000\n";
}

class NeighboursTest : public ::testing::Test {
 protected:
  NeighboursTest() { start(); }
  ~NeighboursTest() override { service.reset(); }

  void start() {
    service.reset();
    if (kit) kit->settle();
    kit.reset();
    kit = std::make_unique<Kit>(stores);
    service = std::make_unique<Neighbours>(tables.path());
    service->open(110);
  }
  void write(const std::string& table, const std::string& text) const {
    std::ofstream(tables / table) << text;
  }
  void writeConnections(unsigned number) const {
    std::string text = kTcpHead;
    for (unsigned k = 0; k < number; ++k) text += tcpLine("10.0.0.1", k % 65536);
    write("tcp", text);
  }

  /// The reply to a request, which may take its time; empty when none has come.
  message ask(message request, std::uint32_t client = 0xcfff0001) {
    kit->seen().clear();
    kit->ask(*service->manager().handler, request, {{client}, 0x7fffffff});
    for (int wait = 0; wait < 40 && kit->seen().replies.empty(); ++wait) kit->advance(5);
    return kit->seen().replies.empty() ? message() : kit->seen().replies.front().reply;
  }
  message page(std::uint32_t start = nv::kNoId, std::uint32_t client = 0xcfff0001) {
    message request{{key::command, nv::cmd::getAll}};
    if (start != nv::kNoId) request.insert(key::startId, start);
    return ask(request, client);
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
    message request{{key::command, nv::cmd::addObj}, {kHardware, hardware}, {kDevice, device}};
    if (!address.empty()) request.insert(kAddress, examples::addressFrom(address).value());
    const auto reply = ask(request);
    return nv::isError(reply) ? nv::getError(reply) : "ok";
  }
  /// What the clean-up of finished iterations needs.
  void cleanUp() { kit->advance(100); }

  TempDirectory tables;
  nv::testkit::MemoryStores stores;
  std::unique_ptr<Kit> kit;
  std::unique_ptr<Neighbours> service;
};

constexpr const char* kMac = "02:00:5e:10:00:01";

TEST_F(NeighboursTest, FaultsAreRefusedWithWordsThatSayWhatIsWrong) {
  ASSERT_EQ(add("192.0.2.7", kMac), "ok");
  const struct {
    std::string address, hardware, device, outcome;
  } cases[] = {
      {"", kMac, "eth0", "a neighbour needs an address"},
      {"0.0.0.0", kMac, "eth0", "0.0.0.0 stands for no address"},
      {"ff02::1", kMac, "eth0", "ff02::1 is a multicast address"},
      {"192.0.2.8", "", "eth0", "\"\" is no hardware address like 02:00:5e:10:00:01"},
      {"192.0.2.8", "02:00:5E:10:00:01", "eth0",
       "\"02:00:5E:10:00:01\" is no hardware address like 02:00:5e:10:00:01"},
      {"192.0.2.8", "02:00:5e:10:00-01", "eth0",
       "\"02:00:5e:10:00-01\" is no hardware address like 02:00:5e:10:00:01"},
      {"192.0.2.8", "02:00:5e:10:00:01:", "eth0",
       "\"02:00:5e:10:00:01:\" is no hardware address like 02:00:5e:10:00:01"},
      {"192.0.2.8", kMac, "", "a neighbour needs a device"},
      {"192.0.2.8", kMac, "a/b", "\"a/b\" is no device"},
      {"192.0.2.8", kMac, "sixteen-letters-", "\"sixteen-letters-\" is no device"},
      {"192.0.2.7", kMac, "eth0", "192.0.2.7 on eth0 is object 1"},
      {"192.0.2.7", kMac, "eth1", "ok"},
  };
  for (const auto& [address, hardware, device, outcome] : cases)
    EXPECT_EQ(add(address, hardware, device), outcome);
}

TEST_F(NeighboursTest, AnAddressIsFreeAgainWhenItsNeighbourMovesOrGoes) {
  ASSERT_EQ(add("192.0.2.7", kMac), "ok");
  ask({{key::command, nv::cmd::setObj}, {key::objectId, 1}, {kDevice, "eth1"}});
  EXPECT_EQ(add("192.0.2.7", kMac), "ok");
  ask({{key::command, nv::cmd::removeObj}, {key::objectId, 1}});
  EXPECT_EQ(add("192.0.2.7", kMac, "eth1"), "ok");
  start();
  EXPECT_EQ(add("192.0.2.7", kMac, "eth1"), "192.0.2.7 on eth1 is object 1") << "after a restart";
}

TEST_F(NeighboursTest, LiveRecordsFollowTheStaticOnes) {
  add("192.0.2.7", kMac);
  write("arp", std::string(kArpHead) + "192.0.2.1  0x1  0x2  02:fc:00:00:00:05  *  eth0\n" +
                   "192.0.2.2  0x1  0x0  00:00:00:00:00:00  *  eth1\n" + "nonsense\n");
  write("tcp", kTcpHead + tcpLine("10.0.0.1", 80));
  write("udp6", kTcpHead + tcpLine("2001:db8::1", 53));
  const auto all = list();
  ASSERT_EQ(all.size(), 5U);
  EXPECT_EQ(all[0].get(key::objectId), 1U);
  EXPECT_EQ(all[1].get(kTable) + addressText(all[1].get(kAddress)) + all[1].get(kState),
            "arp192.0.2.1known");
  EXPECT_EQ(all[2].get(kState) + all[2].get(kDevice), "unknowneth1");
  EXPECT_EQ(all[3].get(kTable) + addressText(all[3].get(kAddress)), "tcp10.0.0.1");
  EXPECT_EQ(all[3].get(kPort), 80U);
  EXPECT_EQ(addressText(all[3].get(kPeer)), "192.0.2.9");
  EXPECT_EQ(all[3].get(kPeerPort), 443U);
  EXPECT_EQ(all[3].get(kState), "established");
  EXPECT_EQ(all[3].get(kUser), 1000U);
  EXPECT_EQ(all[4].get(kTable) + addressText(all[4].get(kAddress)), "udp62001:db8::1");
}

TEST_F(NeighboursTest, LinesThatMakeNoSenseAreNoRecords) {
  const std::string good = tcpLine("10.0.0.1", 80);
  ASSERT_TRUE(recordOf("tcp", good));
  for (std::size_t cut = 0; cut < good.find("1000"); ++cut)
    EXPECT_FALSE(recordOf("tcp", good.substr(0, cut))) << cut;
  for (const auto* line : {"", "0: 0100007F:XXXX 0100007F:0016 01 0:0 0:0 0 0",
                           "0: : : 01 0:0 0:0 0 0", "0: 010000:0016 0100007F:0016 01 0:0 0:0 0 0"})
    EXPECT_FALSE(recordOf("tcp", line)) << line;
  for (const auto* line :
       {kArpHead, "1.2.3.4 0x1 0x", "1.2.3 0x1 0x2 a * eth0", "1.2.3.4 1 2 a b c"})
    EXPECT_FALSE(recordOf("arp", line)) << line;
}

TEST_F(NeighboursTest, ManyRecordsComeCompleteAndInOrderAFewAPass) {
  constexpr unsigned kMany = 20000;
  writeConnections(kMany);
  const auto all = list();
  ASSERT_EQ(all.size(), kMany);
  for (unsigned k = 0; k < kMany; ++k) ASSERT_EQ(all[k].get(kPort), k % 65536);

  // Between two passes of the loop others have their turn.
  kit->ask(*service->manager().handler, {{key::command, nv::cmd::getAll}},
           {{0xcfff0002}, 0x7fffffff});
  kit->seen().clear();
  kit->ask(*service->manager().handler, {{key::command, nv::cmd::getCount}},
           {{0xcfff0001}, 0x7fffffff});
  EXPECT_EQ(kit->seen().replies.size(), 1U) << "the count alone";
}

TEST_F(NeighboursTest, NoMoreIsReadThanAReplyHoldsUntilTheClientAsks) {
  writeConnections(20000);
  page();
  kit->settle();
  const auto pages = page(0xfffff001);
  EXPECT_LT(pages.view(key::objects).size(), 1000U);
  EXPECT_TRUE(pages.has(key::startId));
  kit->settle();
  EXPECT_EQ(service->iterations(), 1U);
}

TEST_F(NeighboursTest, AClientThatStopsGoesOrStaysAwayLeavesNothing) {
  writeConnections(20000);
  page();
  ASSERT_EQ(service->iterations(), 1U);
  kit->ask(*service->manager().handler,
           {{key::command, nv::cmd::stopGetAll}, {key::startId, 0xfffff001}},
           {{0xcfff0001}, 0x7fffffff});
  EXPECT_EQ(service->iterations(), 0U) << "stopped";

  page();
  page(nv::kNoId, 0xcfff0002);
  ASSERT_EQ(service->iterations(), 2U);
  kit->ask(*service->manager().handler, {{key::command, nv::cmd::routeGone}},
           {{0xcfff0001}, 0x7fffffff});
  EXPECT_EQ(service->iterations(), 1U) << "gone";
  EXPECT_TRUE(page(0xfffff001, 0xcfff0002).has(key::startId)) << "the other one goes on";

  kit->advance(LiveRecords::kPatience - 200);
  EXPECT_EQ(service->iterations(), 1U);
  kit->advance(400);
  EXPECT_EQ(service->iterations(), 0U) << "stayed away";
  EXPECT_TRUE(nv::isError(page(0xfffff001, 0xcfff0002)));
}

TEST_F(NeighboursTest, AListThatIsReadToItsEndLeavesNothing) {
  writeConnections(300);
  EXPECT_EQ(list().size(), 300U);
  cleanUp();
  EXPECT_EQ(service->iterations(), 0U);
}

TEST_F(NeighboursTest, TooManyListsOfOneClientAreRefusedAndOthersAreNotKeptFromListing) {
  writeConnections(20000);
  for (std::size_t k = 0; k < Neighbours::kMostOfOneClient; ++k) ASSERT_FALSE(nv::isError(page()));
  unsigned code = 0;
  EXPECT_TRUE(nv::isError(page(), &code));
  EXPECT_EQ(code, nv::err::noIterationId);
  EXPECT_FALSE(nv::isError(page(nv::kNoId, 0xcffe0000)));
  EXPECT_EQ(service->iterations(), Neighbours::kMostOfOneClient + 1);
}

TEST_F(NeighboursTest, ListsThatAreCompleteDoNotCount) {
  writeConnections(3);
  for (std::size_t k = 0; k < 2 * Neighbours::kMostOfOneClient; ++k) EXPECT_EQ(list().size(), 3U);
}

TEST_F(NeighboursTest, TheServiceMayEndInTheMiddleOfAList) {
  writeConnections(20000);
  page();
  kit->ask(*service->manager().handler, {{key::command, nv::cmd::getAll}},
           {{0xcfff0002}, 0x7fffffff});
  service.reset();
  kit->advance(200);
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
