/// The hosts service without its process: what it refuses and with which words, and what its file
/// says.

#include "examples/hosts/host_map.h"

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "examples/support/host_names.h"
#include "platform/commands.h"
#include "testing/kit.h"

namespace hosts {
namespace {

namespace fs = std::filesystem;
using nv::testkit::Kit;
using nv::testkit::MemoryStores;

constexpr const char* kHead = "# Written by the hosts service. Changes made here are lost.\n";

nv::addr6 address(const std::string& text) {
  nv::addr6 parsed;
  const auto mapped = text.find(':') == text.npos ? "::ffff:" + text : text;
  EXPECT_EQ(inet_pton(AF_INET6, mapped.c_str(), parsed.bytes.data()), 1) << text;
  return parsed;
}

struct Fields {
  std::string name;
  std::vector<std::string> addresses{"192.0.2.1"};
  std::string comment{};
  bool disabled = false;

  nv::message command(unsigned code) const {
    std::vector<nv::addr6> parsed;
    for (const auto& text : addresses) parsed.push_back(address(text));
    nv::message msg{{nv::key::command, code}, {kName, name}, {kComment, comment}};
    msg.insert(kAddresses, parsed).insert(kDisabled, disabled);
    return msg;
  }
};

/// "ok", or the text of the refusal.
std::string outcome(const nv::message& reply) {
  return nv::isError(reply) ? nv::getError(reply) : "ok";
}

class Hosts : public ::testing::Test {
 protected:
  Hosts() { start(); }
  ~Hosts() override {
    map.reset();
    fs::remove_all(directory);
  }

  void start() {
    map.reset();
    kit.reset();
    kit = std::make_unique<Kit>(stores);
    map = std::make_unique<HostMap>(file);
    map->init();
    nv::getLooper()->addHandler(100, map.get());
  }

  nv::message ask(nv::message command, std::uint32_t id = nv::kNoId) {
    if (id != nv::kNoId) command.insert(nv::key::objectId, id);
    return kit->ask(*map, std::move(command), nv::testkit::user());
  }
  std::string add(const Fields& fields) { return outcome(ask(fields.command(nv::cmd::addObj))); }
  std::string set(std::uint32_t id, nv::message changes) {
    changes.insert(nv::key::command, nv::cmd::setObj);
    return outcome(ask(changes, id));
  }
  std::string remove(std::uint32_t id) {
    return outcome(ask({{nv::key::command, nv::cmd::removeObj}}, id));
  }

  /// What the file says below its head, when the loop is about to sleep.
  std::string fileText() {
    kit->settle();
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    EXPECT_EQ(text.str().substr(0, std::strlen(kHead)), kHead);
    return text.str().substr(std::strlen(kHead));
  }

  static fs::path freshDirectory() {
    auto name = (fs::temp_directory_path() / "hosts-test-XXXXXX").string();
    return mkdtemp(name.data());
  }

  const fs::path directory = freshDirectory();
  const fs::path file = directory / "hosts";
  MemoryStores stores;
  std::unique_ptr<Kit> kit;
  std::unique_ptr<HostMap> map;
};

TEST_F(Hosts, FaultsAreRefusedWithWordsThatSayWhatIsWrong) {
  ASSERT_EQ(add({"printer"}), "ok");
  const std::string label(63, 'a');
  const std::string longest = label + "." + label + "." + label + "." + std::string(61, 'a');
  const struct {
    Fields fields;
    std::string outcome;
  } cases[] = {
      // names
      {{""}, "a host needs a name"},
      {{"a b"}, "\"a b\" is no host name: it may hold letters, digits, '-' and '.' only"},
      {{"a_b"}, "\"a_b\" is no host name: it may hold letters, digits, '-' and '.' only"},
      {{"b\xc3\xa4r"}, "\"b??r\" is no host name: it may hold letters, digits, '-' and '.' only"},
      {{"a\n10.0.0.1 bank"},
       "\"a?10.0.0.1 bank\" is no host name: it may hold letters, digits, '-' and '.' only"},
      {{std::string("a\0b", 3)},
       "\"a?b\" is no host name: it may hold letters, digits, '-' and '.' only"},
      {{"-a"}, "\"-a\" is no host name: a label begins or ends with '-'"},
      {{"a-.b"}, "\"a-.b\" is no host name: a label begins or ends with '-'"},
      {{"a..b"}, "\"a..b\" is no host name: a label is empty"},
      {{"a."}, "\"a.\" is no host name: a label is empty"},
      {{".a"}, "\".a\" is no host name: a label is empty"},
      {{label + "a"}, "\"" + label + "a\" is no host name: a label is longer than 63 characters"},
      {{longest + "a"}, "a host name has at most 253 characters, this one has 254"},
      {{"10.0.0.1"}, "\"10.0.0.1\" is no host name: its last label is a number"},
      {{"printer"}, "the name \"printer\" is taken by object 1"},
      {{"PrinteR"}, "the name \"PrinteR\" is taken by object 1"},
      // addresses
      {{"a", {}}, "a host needs an address"},
      {{"a", {"::"}}, ":: stands for no address"},
      {{"a", {"0.0.0.0"}}, "0.0.0.0 stands for no address"},
      {{"a", {"10.0.0.1", "ff02::1"}}, "ff02::1 is a multicast address"},
      {{"a", {"224.0.0.1"}}, "224.0.0.1 is a multicast address"},
      {{"a", {"239.255.255.255"}}, "239.255.255.255 is a multicast address"},
      {{"a", {"255.255.255.255"}}, "255.255.255.255 is the broadcast address"},
      {{"a", {"::1", "10.0.0.1", "::1"}}, "::1 stands twice"},
      {{"a", std::vector<std::string>(17, "::1")},
       "a host has at most 16 addresses, this one has 17"},
      // comments
      {{"a", {"::1"}, "x\n10.0.0.1 bank"}, "a comment is one line without control characters"},
      {{"a", {"::1"}, "x\r"}, "a comment is one line without control characters"},
      {{"a", {"::1"}, "\x7f"}, "a comment is one line without control characters"},
      {{"a", {"::1"}, std::string(201, 'x')}, "a comment has at most 200 bytes, this one has 201"},
  };
  for (const auto& [fields, expected] : cases) EXPECT_EQ(add(fields), expected);
  EXPECT_EQ(map->objectCount(), 1U);
  EXPECT_EQ(fileText(), "192.0.2.1\tprinter\n");

  const Fields fine[] = {
      {longest},   {label},
      {"1.2.3.a"}, {"x--y"},
      {"3com"},    {"z", {"240.0.0.1", "fe80::1", "223.255.255.255"}, std::string(200, '#')}};
  for (const auto& fields : fine) EXPECT_EQ(add(fields), "ok") << fields.name;
}

TEST_F(Hosts, AHostIsALineAnAddressAndADisabledOneIsNone) {
  add({"nas", {"192.0.2.7", "2001:db8::7"}, "second floor # left"});
  add({"old", {"192.0.2.8"}, "", true});
  add({"pc", {"::1"}});
  EXPECT_EQ(fileText(),
            "192.0.2.7\tnas\t# second floor # left\n2001:db8::7\tnas\t# second floor # left\n"
            "::1\tpc\n");
  EXPECT_EQ(set(2, {{kDisabled, false}}), "ok");
  EXPECT_EQ(remove(1), "ok");
  EXPECT_EQ(fileText(), "192.0.2.8\told\n::1\tpc\n");
}

TEST_F(Hosts, ASetTakesTheFieldsThatItHoldsAndEmptiesThoseThatItRemoves) {
  add({"nas", {"192.0.2.7"}, "old"});
  EXPECT_EQ(set(1, {{kName, "tape"}}), "ok");
  EXPECT_EQ(fileText(), "192.0.2.7\ttape\t# old\n");

  nv::message removal;
  removal.insert_vector(nv::key::removals, kComment.uid());
  EXPECT_EQ(set(1, removal), "ok");
  EXPECT_EQ(fileText(), "192.0.2.7\ttape\n");

  removal.insert_vector(nv::key::removals, kAddresses.uid());
  EXPECT_EQ(set(1, removal), "a host needs an address");
  EXPECT_EQ(fileText(), "192.0.2.7\ttape\n");
}

TEST_F(Hosts, ANameIsFreeAgainWhenItsHostIsRenamedOrRemoved) {
  add({"nas"});
  add({"pc"});
  EXPECT_EQ(set(2, {{kName, "NAS"}}), "the name \"NAS\" is taken by object 1");
  EXPECT_EQ(set(1, {{kName, "Nas"}}), "ok") << "another spelling of its own name";
  EXPECT_EQ(set(1, {{kName, "tape"}}), "ok");
  EXPECT_EQ(set(2, {{kName, "nas"}}), "ok");
  EXPECT_EQ(remove(2), "ok");
  EXPECT_EQ(add({"nas"}), "ok");
  EXPECT_EQ(map->idOf("NAS"), 2U);
  EXPECT_EQ(map->idOf("pc"), nv::kNoId);
}

TEST_F(Hosts, AnUndoneChangeLeavesTheFileAsItWas) {
  add({"nas", {"192.0.2.7"}, "left", true});
  const auto before = ask({{nv::key::command, nv::cmd::getObj}}, 1);
  auto change = Fields{"pc", {"::1", "::2"}, "", false}.command(nv::cmd::setObj);
  change.insert(nv::key::objectId, 1);
  ASSERT_EQ(outcome(ask(change)), "ok");
  ASSERT_EQ(fileText(), "::1\tpc\n::2\tpc\n");
  EXPECT_EQ(kit->seen().undos.back().description, "pc changed");
  EXPECT_EQ(outcome(ask(kit->seen().undos.back().undo)), "ok");
  EXPECT_EQ(ask({{nv::key::command, nv::cmd::getObj}}, 1), before);
  EXPECT_EQ(fileText(), "");
}

TEST_F(Hosts, ChangesOfOnePassAreOneFile) {
  ASSERT_EQ(fileText(), "");
  add({"a"});
  add({"b"});
  EXPECT_EQ(fs::file_size(file), std::strlen(kHead)) << "not before the loop sleeps";
  kit->pass();
  fs::remove(file);
  kit->settle();
  EXPECT_FALSE(fs::exists(file)) << "nothing has changed since";
}

TEST_F(Hosts, AFileThatCannotBeWrittenIsTriedAgain) {
  fs::rename(directory, directory.string() + ".away");
  add({"nas"});
  kit->settle();
  fs::rename(directory.string() + ".away", directory);
  EXPECT_EQ(fileText(), "") << "not at once: the disk may need its time";
  kit->advance(examples::KeptFile::kRetryInterval);
  EXPECT_EQ(fileText(), "192.0.2.1\tnas\n");
}

TEST_F(Hosts, AStoredHostThatIsFaultyIsLeftOutAndTheOthersComeBack) {
  add({"nas"});
  add({"pc"});
  add({"tape"});
  kit->settle();
  auto record = stores.get("hosts", 2);
  stores.set("hosts", 2, record.insert(kComment, "x\n10.0.0.1 bank"));
  record = stores.get("hosts", 3);
  stores.set("hosts", 3, record.insert(kName, "nas"));
  fs::remove(file);
  start();
  EXPECT_EQ(map->objectCount(), 1U);
  EXPECT_EQ(fileText(), "192.0.2.1\tnas\n");
}

TEST_F(Hosts, TheDictionaryNamesEveryFieldOfAHost) {
  add({"nas"});
  const auto reply = ask({{nv::key::command, nv::cmd::getObj}}, 1);
  for (const auto field : reply) {
    const auto& keys = map->description().keys;
    const bool named = std::any_of(keys.begin(), keys.end(),
                                   [&](const auto& key) { return key.uid == field.uid(); });
    EXPECT_TRUE(named || field.id() > 0xfe0000) << std::hex << field.uid();
  }
}

/// What the service should be after the same changes.
struct Model {
  std::map<std::uint32_t, Fields> hosts;

  bool takes(std::uint32_t id, const std::string& name) const {
    return std::none_of(hosts.begin(), hosts.end(), [&](const auto& host) {
      return host.first != id && examples::nameKey(host.second.name) == examples::nameKey(name);
    });
  }
  std::string fileText() const {
    std::string text;
    for (const auto& [id, host] : hosts)
      if (!host.disabled)
        for (const auto& address : host.addresses) text += address + '\t' + host.name + '\n';
    return text;
  }
};

TEST_F(Hosts, RandomChangesAndRestartsGiveTheFileOfTheModel) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::string names[] = {"a", "B", "b", "c", "C", "d.e", "no name", "-"};
  const auto below = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
  Model model;
  for (int step = 0; step < 1000; ++step) {
    const auto id = 1 + below(6);
    Fields fields{names[below(8)], {"10.0.0." + std::to_string(1 + below(9))}, "", below(3) == 0};
    const bool isName = examples::hostNameFault(fields.name).empty();
    const bool isThere = model.hosts.contains(id);
    if (const auto choice = below(100); choice < 40) {
      const auto reply = ask(fields.command(nv::cmd::addObj), id);
      ASSERT_EQ(!nv::isError(reply), isName && !isThere && model.takes(id, fields.name));
      if (!nv::isError(reply)) model.hosts[id] = fields;
    } else if (choice < 70) {
      const auto reply = ask(fields.command(nv::cmd::setObj), id);
      ASSERT_EQ(!nv::isError(reply), isName && isThere && model.takes(id, fields.name));
      if (!nv::isError(reply)) model.hosts[id] = fields;
    } else if (choice < 90) {
      ASSERT_EQ(remove(id) == "ok", model.hosts.erase(id) == 1);
    } else if (choice < 92) {
      kit->settle();
      start();
    } else if (choice < 95) {
      ASSERT_EQ(fileText(), model.fileText());
    }
  }
}

}  // namespace
}  // namespace hosts
