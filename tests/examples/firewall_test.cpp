/// The firewall service without its process: what it refuses and with which words, where rules
/// stand after a restart, and what its file says.

#include "examples/firewall/firewall.h"

#include <algorithm>
#include <bitset>

#include "examples/firewall/program_rules.h"
#include "tests/examples/service_test.h"
#include "tests/support/captured_output.h"

namespace firewall {
namespace {

message fields(const std::string& action, const std::string& source = "",
               const std::string& protocol = "", const std::string& ports = "",
               const std::string& interface = "") {
  return {{kAction, action},
          {kSource, source},
          {kProtocol, protocol},
          {kPorts, ports},
          {kInterface, interface}};
}

class Rules : public ServiceTest<Firewall> {
 protected:
  Rules() { start(); }

  void start() {
    make(Box{.rulesetFile = file});
    open(103);
  }
  std::string addBefore(std::uint32_t next, message rule) {
    return add(rule.insert(key::nextId, next));
  }
};

TEST_F(Rules, FaultsAreRefusedWithWordsThatSayWhatIsWrong) {
  for (const std::string source :
       {"10.0.0.0/33", "10.0.0.0/", "10.0.0.0/8 ", "10.0.0", "2001:db8::/129"})
    EXPECT_EQ(add(fields("drop", source)),
              '"' + source + "\" is no source: one is 192.0.2.7, 10.0.0.0/8 or 2001:db8::/32");
  for (const std::string ports : {"0", "65536", "9-8", "1-", "-5", "5 }"})
    EXPECT_EQ(add(fields("drop", "", "tcp", ports)),
              '"' + ports + "\" are no ports: 22 and 8000-8080 are, up to 65535");
  const struct {
    message rule;
    std::string outcome;
  } cases[] = {
      {fields(""), "a rule needs an action: accept, drop or reject"},
      {fields("Drop"), "\"Drop\" is no action: accept, drop and reject are"},
      {fields("drop\n accept"), "\"drop? accept\" is no action: accept, drop and reject are"},
      {fields("drop", "10.0.0.1/8"),
       "\"10.0.0.1/8\" is no source: beyond its first 8 bits it is not 0"},
      {fields("drop", "2001:db8::8000/112"),
       "\"2001:db8::8000/112\" is no source: beyond its first 112 bits it is not 0"},
      {fields("drop", std::string("1.1.1.1\0x", 9)),
       "\"1.1.1.1?x\" is no source: one is 192.0.2.7, 10.0.0.0/8 or 2001:db8::/32"},
      {fields("drop", "", "sctp"), "\"sctp\" is no protocol: tcp, udp and icmp are"},
      {fields("drop", "", "icmp", "5"), "only tcp and udp have ports"},
      {fields("drop", "", "", "5"), "only tcp and udp have ports"},
      {fields("drop", "", "", "", "eth\"0"),
       "\"eth\"0\" is no interface name: it may hold letters, digits, '-', '_' and '.' only"},
      {fields("drop").insert(kComment, "x\n accept"),
       "a comment is one line without control characters"},
      {fields("drop", "::/0"), "ok"},  // zero bits
      {fields("drop", "192.0.2.7", "udp", "1-65535", "eth0.7"), "ok"},
  };
  for (const auto& [rule, expected] : cases) EXPECT_EQ(add(rule), expected);
  EXPECT_EQ(ids(), "1 2 3 4 5 6");
}

TEST_F(Rules, TheFileHoldsTheRulesInTheirOrderWithoutDisabledOnes) {
  add(fields("accept", "192.0.2.0/24", "tcp", "443").insert(kComment, "office \\"));
  add(fields("drop", "2001:db8::", "udp", "1-9", "eth0"));
  add(fields("reject", "", "icmp").insert(kDisabled, true));
  addBefore(3, fields("drop", "", "icmp"));
  const std::string expected =
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
      "}\n";
  EXPECT_EQ(fileText(), expected);
  fs::remove(file);
  start();
  EXPECT_EQ(fileText(), expected);
}

// That it is refused whenever it should be the random test knows.
TEST_F(Rules, ARefusalNamesTheRuleThatWouldNeverMatchAndTheOneBeforeIt) {
  ASSERT_EQ(add(fields("accept", "10.1.0.0/16")), "ok");
  ASSERT_EQ(add(fields("drop", "10.0.0.0/8")), "ok");
  ASSERT_EQ(add(fields("drop", "10.1.2.0/24").insert(kDisabled, true)), "ok");
  const auto before = ask(cmd::getAll);
  const auto stored = stores.get("firewall", 6);
  const std::string drop =
                        "it would never match: rule 6 (drop all from 10.0.0.0/8) stands before it",
                    behind = " would never match: it would stand behind this one";
  EXPECT_EQ(add(fields("reject", "10.7.0.0/16")), drop);
  EXPECT_EQ(addBefore(4, fields("drop", "", "tcp")), "rule 4 (accept tcp 22)" + behind);
  EXPECT_EQ(addBefore(1, fields("drop")), "rule 1 (accept ct state established,related)" + behind);
  EXPECT_EQ(move(6, 5), "rule 5 (accept all from 10.1.0.0/16)" + behind);
  EXPECT_EQ(move(5, nv::kNoId), drop);
  EXPECT_EQ(set(5, {{kSource, "10.0.0.0/7"}}), "rule 6 (drop all from 10.0.0.0/8)" + behind);
  EXPECT_EQ(set(6, {{kSource, ""}, {kInterface, "lo"}}),
            "it would never match: rule 3 (accept all on lo) stands before it");

  const std::string program = "rule 1 comes from the program: it cannot be ";
  EXPECT_EQ(set(1, {{kComment, "mine"}}), program + "changed");
  EXPECT_EQ(move(1, nv::kNoId), program + "moved");
  EXPECT_EQ(remove(1), program + "removed");
  EXPECT_EQ(ask(cmd::getAll), before);
  EXPECT_EQ(stores.get("firewall", 6), stored);
  EXPECT_TRUE(stores.get("firewall", 1).empty());

  ASSERT_EQ(move(7, 5), "ok") << "what is disabled may stand anywhere";
  EXPECT_EQ(kit->seen().undos.back().description, "drop all from 10.1.2.0/24 moved");
}

TEST_F(Rules, DamagedRecordsAreLeftOutAndTheProgramKeepsItsIds) {
  for (const auto* const source : {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"})
    add(fields("drop", source));
  damage("firewall", 5, {{key::nextId, 2}});
  stores.set("firewall", 2, fields("drop", "10.9.0.0/16").insert(key::nextId, 6));
  damage("firewall", 7, {{kSource, "10.0.0.2"}});
  damage("firewall", 8, {{kBehind, 0xfffffff0}});
  const CapturedOutput output;
  start();
  EXPECT_EQ(ids(), "1 2 3 4 5 6 8");
  EXPECT_EQ(output.text(),
            "AOmap::init error:the id 2 is a program rule's\n"
            "AOmap::init error:it would never match: rule 6 (drop all from 10.0.0.2) stands before "
            "it\nAOmap::init warning: store has 2 unused objects\n");
}

/// A rule is the set of those packets that it matches, in a small world of them. Behind the
/// ordinary ones stands one for each rule that only the program can match.
constexpr std::size_t kOrdinary = 6 * 3 * 4 * 4;
using Packets = std::bitset<kOrdinary + 2>;

struct Choice {
  const char* text;
  unsigned mask;
};
// Packets come from 10.1.2.3, 10.1.9.9, 10.9.9.9, 192.0.2.1, 2001:db8::1, 2001:db9::1,
constexpr Choice kSources[] = {
    {"", 63},          {"10.0.0.0/8", 7}, {"10.1.0.0/16", 3},    {"10.1.2.3", 1},
    {"0.0.0.0/0", 15}, {"::/0", 48},      {"2001:db8::/32", 16}, {"192.0.2.0/24", 8}};
// by lo, eth0 and eth1,
constexpr Choice kInterfaces[] = {{"", 7}, {"lo", 1}, {"eth0", 2}};
// are tcp, udp, icmp or something else,
constexpr Choice kProtocols[] = {{"", 15}, {"tcp", 1}, {"udp", 2}, {"icmp", 4}};
// and go to the ports 22, 25, 8000 and 9.
constexpr Choice kPortRanges[] = {{"", 15}, {"22", 1}, {"20-30", 3}, {"8000-8080", 4}};

Packets matched(unsigned source, unsigned interface, unsigned protocol, unsigned ports) {
  Packets packets;
  for (std::size_t k = 0; k < kOrdinary; ++k)
    packets[k] = (source >> (k % 6) & 1) != 0 && (interface >> (k / 6 % 3) & 1) != 0 &&
                 (protocol >> (k / 18 % 4) & 1) != 0 && (ports >> (k / 72) & 1) != 0;
  packets[kOrdinary] = packets[kOrdinary + 1] = packets.count() == kOrdinary;
  return packets;
}

struct ModelRule {
  std::uint32_t id;
  Packets packets;
  bool disabled = false;
};

bool allCanMatch(const std::vector<ModelRule>& order) {
  for (auto later = order.begin(); later != order.end(); ++later)
    for (auto earlier = order.begin(); earlier != later; ++earlier)
      if (!earlier->disabled && !later->disabled && (later->packets & ~earlier->packets).none())
        return false;
  return true;
}

TEST_F(Rules, RandomChangesUndosAndRestartsFollowASetOfPacketsForEachRule) {
  Random random;
  SCOPED_TRACE(random.seed());
  std::vector<ModelRule> model{{1, Packets().set(kOrdinary)},
                               {2, Packets().set(kOrdinary + 1)},
                               {3, matched(63, 1, 15, 15)},
                               {4, matched(63, 7, 1, 1)}};
  const auto anyRule = [&](message& rule) {
    const auto& source = kSources[random.below(8)];
    const auto& interface = kInterfaces[random.below(3)];
    const auto& protocol = kProtocols[random.below(4)];
    const bool hasPorts = protocol.mask == 1 || protocol.mask == 2;
    const auto& ports = kPortRanges[hasPorts ? random.below(4) : 0];
    rule = fields("drop", source.text, protocol.text, ports.text, interface.text);
    return matched(source.mask, interface.mask, protocol.mask, ports.mask);
  };
  const auto anyId = [&] { return model[random.below(static_cast<unsigned>(model.size()))].id; };

  unsigned accepted = 0, refused = 0;
  for (int step = 0; step < 3000; ++step) {
    auto changed = model;
    const auto at = [&](std::uint32_t id) {
      return std::find_if(changed.begin(), changed.end(), [id](auto& r) { return r.id == id; });
    };
    const auto id = anyId(), next = random.below(4) == 0 ? nv::kNoId : anyId();
    bool isAllowed = id > kProgramRules;
    const auto before = ask(cmd::getAll);
    message rule, reply;
    switch (random.below(model.size() > 20 ? 6 : 5)) {
      case 0:
      case 1: {
        const auto packets = anyRule(rule);
        reply = ask(cmd::addObj, nv::kNoId, rule.insert(key::nextId, next));
        changed.insert(at(next), {reply.get(key::objectId), packets});
        isAllowed = true;
        break;
      }
      case 2:
        at(id)->packets = anyRule(rule);
        reply = ask(cmd::setObj, id, rule);
        break;
      case 3:
        at(id)->disabled = random.below(2) == 0;
        reply = ask(cmd::setObj, id, {{kDisabled, at(id)->disabled}});
        break;
      case 4: {
        const auto moved = *at(id);
        changed.erase(at(id));
        changed.insert(at(next), moved);
        reply = ask(cmd::moveObj, id, {{key::nextId, next}});
        isAllowed = isAllowed && id != next;
        break;
      }
      default: changed.erase(at(id)); reply = ask(cmd::removeObj, id);
    }
    const bool isAccepted = isAllowed && allCanMatch(changed);
    ASSERT_EQ(!nv::isError(reply), isAccepted) << "step " << step;
    ++(isAccepted ? accepted : refused);
    if (isAccepted && !kit->seen().undos.empty() && random.below(4) == 0) {
      ASSERT_EQ(undo(), "ok") << "step " << step;
      ASSERT_EQ(ask(cmd::getAll), before) << "step " << step;
    } else if (isAccepted) {
      model = changed;
    }
    if (random.below(60) == 0) start();
    std::string order;
    for (const auto& one : model) order += (order.empty() ? "" : " ") + std::to_string(one.id);
    ASSERT_EQ(ids(), order) << "step " << step;
  }
  EXPECT_GT(accepted, 200U);
  EXPECT_GT(refused, 200U);
}

TEST_F(Rules, AFileThatNftRefusesDoesNotTakeThePlaceOfTheLastOne) {
  const FakeProgram nft(directory, "nft",
                        "for last; do :; done\n"
                        "[ \"$last\" = - ] && exit 0\n"
                        "grep -q 192.0.2.66 \"$last\" || exit 0\n"
                        "echo \"Error: $1 $2\"; exit 1\n");
  start();
  add(fields("drop", "192.0.2.1"));
  const auto before = fileText();
  ASSERT_NE(before.find("192.0.2.1"), before.npos);
  ::testing::internal::CaptureStderr();
  add(fields("drop", "192.0.2.66"));
  EXPECT_EQ(fileText(), before);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "firewall: cannot write " + file.string() +
                                                          ": nft -c -f '" + file.string() +
                                                          ".new': Error: -c -f\n");
  EXPECT_FALSE(fs::exists(file.string() + ".new"));
  remove(6);
  add(fields("drop", "192.0.2.2"));
  EXPECT_NE(fileText().find("192.0.2.2"), std::string::npos);
}

}  // namespace
}  // namespace firewall
