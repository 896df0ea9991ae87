/// The firewall service without its process: what it refuses and with which words, where rules
/// stand after a restart, and what its file says.

#include "examples/firewall/firewall.h"

#include <algorithm>
#include <bitset>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>

#include <gtest/gtest.h>

#include "examples/firewall/program_rules.h"
#include "platform/commands.h"
#include "testing/kit.h"
#include "tests/support/captured_output.h"
#include "tests/support/random.h"
#include "tests/support/temp_directory.h"

namespace firewall {
namespace {

namespace key = nv::key;
using nv::message;
using nv::testkit::Kit;
using nv::testkit::MemoryStores;

/// "ok", or the text of the refusal.
std::string outcome(const message& reply) {
  if (!nv::isError(reply)) return "ok";
  unsigned code = 0;
  std::string text;
  nv::isError(reply, &code, &text);
  return text.empty() ? "code " + std::to_string(code & 0xff) : text;
}

message fields(const std::string& action, const std::string& source = "",
               const std::string& protocol = "", const std::string& ports = "",
               const std::string& interface = "") {
  return {{kAction, action},
          {kSource, source},
          {kProtocol, protocol},
          {kPorts, ports},
          {kInterface, interface}};
}

class Rules : public ::testing::Test {
 protected:
  Rules() { start(); }
  ~Rules() override { rules.reset(); }

  void start() {
    rules.reset();
    kit.reset();
    kit = std::make_unique<Kit>(stores);
    rules = std::make_unique<Firewall>(Box{.rulesetFile = file});
    rules->init();
    nv::getLooper()->addHandler(103, rules.get());
  }

  message ask(unsigned code, std::uint32_t id, message request = {}) {
    request.insert(key::command, code);
    if (id != nv::kNoId) request.insert(key::objectId, id);
    return kit->ask(*rules, std::move(request), nv::testkit::user());
  }
  std::string add(message rule, std::uint32_t next = nv::kNoId) {
    return outcome(ask(nv::cmd::addObj, nv::kNoId, rule.insert(key::nextId, next)));
  }
  std::string set(std::uint32_t id, const message& changes) {
    return outcome(ask(nv::cmd::setObj, id, changes));
  }
  std::string move(std::uint32_t id, std::uint32_t next) {
    return outcome(ask(nv::cmd::moveObj, id, {{key::nextId, next}}));
  }
  std::string remove(std::uint32_t id) { return outcome(ask(nv::cmd::removeObj, id)); }
  std::string undo() { return outcome(kit->ask(*rules, kit->seen().undos.back().undo)); }

  std::vector<std::uint32_t> order() {
    std::vector<std::uint32_t> ids;
    for (const auto& flat : ask(nv::cmd::getAll, nv::kNoId).get(key::objects))
      ids.push_back(message(flat).get(key::objectId));
    return ids;
  }
  std::string orderText() {
    std::string text;
    for (const auto id : order()) text += (text.empty() ? "" : " ") + std::to_string(id);
    return text;
  }
  /// What the file says when the loop is about to sleep.
  std::string fileText() {
    kit->settle();
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }

  TempDirectory directory{TempDirectory::inMemory()};
  const std::filesystem::path file = directory / "firewall.nft";
  MemoryStores stores;
  std::unique_ptr<Kit> kit;
  std::unique_ptr<Firewall> rules;
};

TEST_F(Rules, FaultsAreRefusedWithWordsThatSayWhatIsWrong) {
  const auto interface = [](const std::string& name) { return fields("drop", "", "", "", name); };
  const auto comment = [](const std::string& text) {
    return std::move(fields("drop").insert(kComment, text));
  };
  const std::string sourceHelp = " is no source: one is 192.0.2.7, 10.0.0.0/8 or 2001:db8::/32";
  const std::string portsHelp = " are no ports: 22 and 8000-8080 are, up to 65535";
  const struct {
    message rule;
    std::string outcome;
  } cases[] = {
      {fields(""), "a rule needs an action: accept, drop or reject"},
      {fields("Drop"), "\"Drop\" is no action: accept, drop and reject are"},
      {fields("drop\n accept"), "\"drop? accept\" is no action: accept, drop and reject are"},
      {fields("drop", "10.0.0.0/33"), "\"10.0.0.0/33\"" + sourceHelp},
      {fields("drop", "10.0.0.0/"), "\"10.0.0.0/\"" + sourceHelp},
      {fields("drop", "10.0.0.0/8 "), "\"10.0.0.0/8 \"" + sourceHelp},
      {fields("drop", "10.0.0"), "\"10.0.0\"" + sourceHelp},
      {fields("drop", "2001:db8::/129"), "\"2001:db8::/129\"" + sourceHelp},
      {fields("drop", "10.0.0.1/8"),
       "\"10.0.0.1/8\" is no source: beyond its first 8 bits it is not 0"},
      {fields("drop", "2001:db8::8000/112"),
       "\"2001:db8::8000/112\" is no source: beyond its first 112 bits it is not 0"},
      {fields("drop", std::string("1.1.1.1\0x", 9)), "\"1.1.1.1?x\"" + sourceHelp},
      {fields("drop", "", "sctp"), "\"sctp\" is no protocol: tcp, udp and icmp are"},
      {fields("drop", "", "tcp", "0"), "\"0\"" + portsHelp},
      {fields("drop", "", "tcp", "65536"), "\"65536\"" + portsHelp},
      {fields("drop", "", "tcp", "9-8"), "\"9-8\"" + portsHelp},
      {fields("drop", "", "tcp", "1-"), "\"1-\"" + portsHelp},
      {fields("drop", "", "tcp", "-5"), "\"-5\"" + portsHelp},
      {fields("drop", "", "tcp", "5 }"), "\"5 }\"" + portsHelp},
      {fields("drop", "", "icmp", "5"), "only tcp and udp have ports"},
      {fields("drop", "", "", "5"), "only tcp and udp have ports"},
      {interface("eth\"0"),
       "\"eth\"0\" is no interface name: it may hold letters, digits, '-', '_' and '.' only"},
      {interface("sixteen-letters-"),
       "\"sixteen-letters-\" is no interface name: it has more than "
       "15 characters"},
      {comment("x\n accept"), "a comment is one line without control characters"},
  };
  for (const auto& [rule, expected] : cases) EXPECT_EQ(add(rule), expected);
  EXPECT_EQ(orderText(), "1 2 3 4");
  EXPECT_EQ(add(fields("drop", "::/0")), "ok") << "zero bits";
  EXPECT_EQ(add(fields("drop", "192.0.2.7", "udp", "1-65535", "eth0.7")), "ok");
}

TEST_F(Rules, TheFileHoldsTheRulesInTheirOrderWithoutDisabledOnes) {
  add(fields("accept", "192.0.2.0/24", "tcp", "443").insert(kComment, "office \\"));
  add(fields("drop", "2001:db8::", "udp", "1-9", "eth0"));
  add(fields("reject", "", "icmp").insert(kDisabled, true));
  add(fields("drop", "", "icmp"), 3);
  EXPECT_EQ(fileText(),
            "# Written by the firewall service. Changes made here are lost.\n"
            "table inet confkit\n"
            "delete table inet confkit\n"
            "table inet confkit {\n"
            "  chain input {\n"
            "    type filter hook input priority filter; policy drop;\n"
            "    # answers to this device (rule 1)\n"
            "    ct state established,related accept\n"
            "    # neighbours, without which IPv6 does not work (rule 2)\n"
            "    icmpv6 type { nd-neighbor-solicit, nd-neighbor-advert, nd-router-advert } accept\n"
            "    # (rule 8)\n"
            "    meta l4proto { icmp, ipv6-icmp } drop\n"
            "    # programs of this device (rule 3)\n"
            "    iifname \"lo\" accept\n"
            "    # its administration (rule 4)\n"
            "    tcp dport 22 accept\n"
            "    # office \\ (rule 5)\n"
            "    ip saddr 192.0.2.0/24 tcp dport 443 accept\n"
            "    # (rule 6)\n"
            "    iifname \"eth0\" ip6 saddr 2001:db8:: udp dport 1-9 drop\n"
            "  }\n"
            "}\n");
}

TEST_F(Rules, NoChangeMayLeaveARuleThatNeverMatches) {
  ASSERT_EQ(add(fields("accept", "10.1.0.0/16")), "ok");
  ASSERT_EQ(add(fields("drop", "10.0.0.0/8")), "ok");
  ASSERT_EQ(add(fields("drop", "10.1.2.0/24").insert(kDisabled, true)), "ok");
  const auto before = ask(nv::cmd::getAll, nv::kNoId);
  const auto stored = stores.get("firewall", 6);

  EXPECT_EQ(add(fields("reject", "10.7.0.0/16")),
            "it would never match: rule 6 (drop all from 10.0.0.0/8) stands before it");
  EXPECT_EQ(add(fields("drop", "", "tcp"), 4),
            "rule 4 (accept tcp 22) would never match: it would stand behind this one");
  EXPECT_EQ(add(fields("drop"), 1),
            "rule 1 (accept ct state established,related) would never match: it would stand behind "
            "this one");
  EXPECT_EQ(
      move(6, 5),
      "rule 5 (accept all from 10.1.0.0/16) would never match: it would stand behind this one");
  EXPECT_EQ(move(5, nv::kNoId),
            "it would never match: rule 6 (drop all from 10.0.0.0/8) stands before it");
  EXPECT_EQ(set(7, {{kDisabled, false}}),
            "it would never match: rule 5 (accept all from 10.1.0.0/16) stands before it");
  EXPECT_EQ(set(5, {{kSource, "10.0.0.0/7"}}),
            "rule 6 (drop all from 10.0.0.0/8) would never match: it would stand behind this one");
  EXPECT_EQ(set(6, {{kSource, ""}, {kInterface, "lo"}}),
            "it would never match: rule 3 (accept all on lo) stands before it");
  EXPECT_EQ(ask(nv::cmd::getAll, nv::kNoId), before);
  EXPECT_EQ(stores.get("firewall", 6), stored);

  EXPECT_EQ(set(5, {{kDisabled, true}}), "ok");
  EXPECT_EQ(set(7, {{kDisabled, false}}),
            "it would never match: rule 6 (drop all from 10.0.0.0/8) stands before it");
  EXPECT_EQ(move(7, 6), "ok") << "what is disabled may stand anywhere";
  EXPECT_EQ(set(7, {{kDisabled, false}}), "ok");
}

TEST_F(Rules, RulesOfTheProgramStayAsAndWhereTheyAre) {
  for (std::uint32_t id = 1; id <= kProgramRules; ++id) {
    const auto begin = "rule " + std::to_string(id) + " comes from the program: it cannot be ";
    EXPECT_EQ(set(id, {{kComment, "mine"}}), begin + "changed");
    EXPECT_EQ(set(id, {{kDisabled, true}}), begin + "changed");
    EXPECT_EQ(move(id, nv::kNoId), begin + "moved");
    EXPECT_EQ(remove(id), begin + "removed");
    EXPECT_TRUE(stores.get("firewall", id).empty());
  }
  EXPECT_EQ(ask(nv::cmd::getObj, 1).get(kComment), "answers to this device");
  EXPECT_TRUE(kit->seen().undos.empty());
}

TEST_F(Rules, UndoingBringsBackRuleAndPlace) {
  add(fields("drop", "10.0.0.1"), 3);
  add(fields("drop", "10.0.0.2"), 3);
  add(fields("drop", "10.0.0.3"));
  const auto before = ask(nv::cmd::getAll, nv::kNoId);
  ASSERT_EQ(orderText(), "1 2 5 6 3 4 7");
  ASSERT_EQ(remove(6), "ok");
  EXPECT_EQ(undo(), "ok");
  EXPECT_EQ(ask(nv::cmd::getAll, nv::kNoId), before);
  ASSERT_EQ(move(5, nv::kNoId), "ok");
  EXPECT_EQ(kit->seen().undos.back().description, "drop all from 10.0.0.1 moved");
  EXPECT_EQ(undo(), "ok");
  ASSERT_EQ(set(7, {{kSource, "10.0.0.4"}, {kComment, "x"}}), "ok");
  EXPECT_EQ(undo(), "ok");
  EXPECT_EQ(ask(nv::cmd::getAll, nv::kNoId), before);
  kit->settle();
  start();
  EXPECT_EQ(ask(nv::cmd::getAll, nv::kNoId), before);
}

TEST_F(Rules, DamagedRecordsAreLeftOutAndTheProgramKeepsItsIds) {
  for (const auto* const source : {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"})
    add(fields("drop", source));
  kit->settle();
  auto record = stores.get("firewall", 5);
  stores.set("firewall", 5, record.insert(key::nextId, 2));
  record.insert(key::nextId, 6).insert(kSource, "10.9.0.0/16");
  stores.set("firewall", 2, record);
  record = stores.get("firewall", 7);
  stores.set("firewall", 7, record.insert(kSource, "10.0.0.2"));
  record = stores.get("firewall", 8);
  stores.set("firewall", 8, record.insert(kBehind, 0xfffffff0));
  const CapturedOutput output;
  start();
  EXPECT_EQ(orderText(), "1 2 3 4 5 6 8");
  EXPECT_EQ(output.text(),
            "AOmap::init error:the id 2 is a program rule's\n"
            "AOmap::init error:it would never match: rule 6 (drop all from 10.0.0.2) stands before "
            "it\nAOmap::init warning: store has 2 unused objects\n");
}

/// A small world of packets, in which a rule is the set of those that it matches.
class World {
 public:
  static constexpr std::size_t kOrdinary = 6 * 3 * 4 * 4;
  /// Behind the ordinary ones, one for each rule that only the program can match.
  using Packets = std::bitset<kOrdinary + 2>;
  struct Choice {
    const char* text;
    unsigned mask;
  };
  // Packets come from 10.1.2.3, 10.1.9.9, 10.9.9.9, 192.0.2.1, 2001:db8::1, 2001:db9::1,
  static constexpr Choice kSources[] = {
      {"", 63},          {"10.0.0.0/8", 7}, {"10.1.0.0/16", 3},    {"10.1.2.3", 1},
      {"0.0.0.0/0", 15}, {"::/0", 48},      {"2001:db8::/32", 16}, {"192.0.2.0/24", 8}};
  // by lo, eth0 and eth1,
  static constexpr Choice kInterfaces[] = {{"", 7}, {"lo", 1}, {"eth0", 2}};
  // are tcp, udp, icmp or something else,
  static constexpr Choice kProtocols[] = {{"", 15}, {"tcp", 1}, {"udp", 2}, {"icmp", 4}};
  // and go to the ports 22, 25, 8000 and 9.
  static constexpr Choice kPorts[] = {{"", 15}, {"22", 1}, {"20-30", 3}, {"8000-8080", 4}};

  static Packets of(unsigned source, unsigned interface, unsigned protocol, unsigned ports) {
    Packets packets;
    for (std::size_t k = 0; k < kOrdinary; ++k)
      packets[k] = (source >> (k % 6) & 1) != 0 && (interface >> (k / 6 % 3) & 1) != 0 &&
                   (protocol >> (k / 18 % 4) & 1) != 0 && (ports >> (k / 72) & 1) != 0;
    packets[kOrdinary] = packets[kOrdinary + 1] = packets.count() == kOrdinary;
    return packets;
  }
};

struct ModelRule {
  std::uint32_t id;
  World::Packets packets;
  bool disabled = false;
};

/// What the filter should be after the same changes.
struct Model {
  std::vector<ModelRule> rules;

  static bool isFine(const std::vector<ModelRule>& order) {
    for (auto later = order.begin(); later != order.end(); ++later)
      for (auto earlier = order.begin(); earlier != later; ++earlier)
        if (!earlier->disabled && !later->disabled && (later->packets & ~earlier->packets).none())
          return false;
    return true;
  }
  std::vector<ModelRule>::iterator find(std::uint32_t id) {
    return std::find_if(rules.begin(), rules.end(), [id](const auto& r) { return r.id == id; });
  }
  /// Takes the changed order if no rule in it is idle.
  bool take(const std::vector<ModelRule>& changed) {
    if (!isFine(changed)) return false;
    rules = changed;
    return true;
  }
};

TEST_F(Rules, RandomChangesAndRestartsFollowASetOfPacketsForEachRule) {
  Random random;
  SCOPED_TRACE(random.seed());
  Model model;
  World::Packets special;
  for (std::size_t k = 0; k < 2; ++k) {
    special.reset();
    special.set(World::kOrdinary + k);
    model.rules.push_back({static_cast<std::uint32_t>(k + 1), special});
  }
  model.rules.push_back({3, World::of(63, 1, 15, 15)});
  model.rules.push_back({4, World::of(63, 7, 1, 1)});

  const auto anyRule = [&](message& rule) {
    const auto& source = World::kSources[random.below(8)];
    const auto& interface = World::kInterfaces[random.below(3)];
    const auto& protocol = World::kProtocols[random.below(4)];
    const bool hasPorts = protocol.mask == 1 || protocol.mask == 2;
    const auto& ports = World::kPorts[hasPorts ? random.below(4) : 0];
    rule = fields("drop", source.text, protocol.text, ports.text, interface.text);
    return World::of(source.mask, interface.mask, protocol.mask, ports.mask);
  };
  const auto anyId = [&] {
    return model.rules[random.below(static_cast<unsigned>(model.rules.size()))].id;
  };

  unsigned accepted = 0, refused = 0;
  for (int step = 0; step < 3000; ++step) {
    auto changed = model.rules;
    const auto at = [&](std::uint32_t id) {
      return std::find_if(changed.begin(), changed.end(),
                          [id](const auto& r) { return r.id == id; });
    };
    const auto id = anyId(), next = random.below(4) == 0 ? nv::kNoId : anyId();
    const bool isProgram = id <= kProgramRules;
    message rule;
    bool expected = false, isDone = false;
    switch (random.below(model.rules.size() > 20 ? 7 : 6)) {
      case 0:
      case 1: {
        const auto packets = anyRule(rule);
        const auto reply = ask(nv::cmd::addObj, nv::kNoId, rule.insert(key::nextId, next));
        isDone = !nv::isError(reply);
        changed.insert(at(next), {reply.get(key::objectId), packets});
        expected = model.take(changed);
        break;
      }
      case 2:
        at(id)->packets = anyRule(rule);
        isDone = set(id, rule) == "ok";
        expected = !isProgram && model.take(changed);
        break;
      case 3: {
        const bool disabled = random.below(2) == 0;
        at(id)->disabled = disabled;
        isDone = set(id, {{kDisabled, disabled}}) == "ok";
        expected = !isProgram && model.take(changed);
        break;
      }
      case 4: {
        const auto moved = *at(id);
        changed.erase(at(id));
        changed.insert(at(next), moved);
        isDone = move(id, next) == "ok";
        expected = !isProgram && id != next && model.take(changed);
        break;
      }
      case 5:
        if (random.below(10) != 0) continue;
        kit->settle();
        start();
        break;
      default:
        changed.erase(at(id));
        isDone = remove(id) == "ok";
        expected = !isProgram && model.take(changed);
    }
    ASSERT_EQ(isDone, expected) << "step " << step;
    ++(isDone ? accepted : refused);
    std::vector<std::uint32_t> ids;
    for (const auto& one : model.rules) ids.push_back(one.id);
    ASSERT_EQ(order(), ids) << "step " << step;
  }
  EXPECT_GT(accepted, 200U);
  EXPECT_GT(refused, 200U);
}

/// A program that stands in the place of `nft`: refuses files in which "192.0.2.66" stands.
class CheckedRules : public Rules {
 protected:
  CheckedRules() {
    std::ofstream(directory / "nft") << "#!/bin/sh\n"
                                     << "for last; do :; done\n"
                                     << "[ \"$last\" = - ] && exit 0\n"
                                     << "grep -q 192.0.2.66 \"$last\" || exit 0\n"
                                     << "echo \"Error: $1 $2\"; exit 1\n";
    std::filesystem::permissions(directory / "nft", std::filesystem::perms(0755));
    setenv("PATH", (directory.path().string() + ":" + path).c_str(), 1);
    start();
  }
  ~CheckedRules() override { setenv("PATH", path.c_str(), 1); }

  const std::string path = std::getenv("PATH");
};

TEST_F(CheckedRules, AFileThatNftRefusesDoesNotTakeThePlaceOfTheLastOne) {
  add(fields("drop", "192.0.2.1"));
  const auto before = fileText();
  ASSERT_NE(before.find("192.0.2.1"), before.npos);
  ::testing::internal::CaptureStderr();
  add(fields("drop", "192.0.2.66"));
  EXPECT_EQ(fileText(), before);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "firewall: cannot write " + file.string() +
                                                          ": nft -c -f '" + file.string() +
                                                          ".new': Error: -c -f\n");
  EXPECT_FALSE(std::filesystem::exists(file.string() + ".new"));
  remove(6);
  add(fields("drop", "192.0.2.2"));
  EXPECT_NE(fileText().find("192.0.2.2"), std::string::npos);
}

}  // namespace
}  // namespace firewall
