/// The hosts service without its process: what it refuses and with which words, what its file says,
/// and when the script of a host is run.

#include <algorithm>

#include "examples/hosts/host_map.h"
#include "examples/support/addresses.h"
#include "examples/support/host_names.h"
#include "platform/run_request.h"
#include "tests/examples/service_test.h"

namespace hosts {
namespace {

constexpr const char* kHead = "# Written by the hosts service. Changes made here are lost.\n";

struct Fields {
  std::string name;
  std::vector<std::string> addresses{"192.0.2.1"};
  std::string comment{};
  bool disabled = false;

  message request() const {
    std::vector<nv::addr6> parsed;
    for (const auto& text : addresses) parsed.push_back(examples::addressFrom(text).value());
    message msg{{kName, name}, {kComment, comment}, {kDisabled, disabled}};
    return std::move(msg.insert(kAddresses, parsed));
  }
};

class Hosts : public ServiceTest<HostMap> {
 protected:
  Hosts() { start(); }

  void start() {
    make(file);
    open(100);
  }
  std::string add(const Fields& fields) { return ServiceTest::add(fields.request()); }
  /// Without the head.
  std::string lines() {
    const auto text = fileText();
    EXPECT_TRUE(text.starts_with(kHead));
    return text.substr(std::strlen(kHead));
  }
};

TEST_F(Hosts, FaultsAreRefusedWithWordsThatSayWhatIsWrong) {
  ASSERT_EQ(add({"printer"}), "ok");
  for (const std::string name : {"a b", "a_b", "b\xc3\xa4r", "a\n10.0.0.1 bank"}) {
    auto shown = name;
    for (char& c : shown) c = c < ' ' || c > '~' ? '?' : c;
    EXPECT_EQ(add({name}),
              '"' + shown + "\" is no host name: it may hold letters, digits, '-' and '.' only");
  }
  for (const std::string name : {"-a", "a-.b"})
    EXPECT_EQ(add({name}), '"' + name + "\" is no host name: a label begins or ends with '-'");
  for (const std::string name : {"a..b", "a.", ".a"})
    EXPECT_EQ(add({name}), '"' + name + "\" is no host name: a label is empty");
  for (const std::string name : {"printer", "PrinteR"})
    EXPECT_EQ(add({name}), "the name \"" + name + "\" is taken by object 1");
  for (const std::string address : {"ff02::1", "224.0.0.1", "239.255.255.255"})
    EXPECT_EQ(add({"a", {"10.0.0.1", address}}), address + " is a multicast address");
  for (const auto* comment : {"x\n10.0.0.1 bank", "x\r", "\x7f"})
    EXPECT_EQ(add({"a", {"::1"}, comment}), "a comment is one line without control characters");

  const std::string label(63, 'a');
  const std::string longest = label + "." + label + "." + label + "." + std::string(61, 'a');
  const struct {
    Fields fields;
    std::string outcome;
  } cases[] = {
      {{""}, "a host needs a name"},
      {{std::string("a\0b", 3)},
       "\"a?b\" is no host name: it may hold letters, digits, '-' and '.' only"},
      {{label + "a"}, "\"" + label + "a\" is no host name: a label is longer than 63 characters"},
      {{longest + "a"}, "a host name has at most 253 characters, this one has 254"},
      {{"10.0.0.1"}, "\"10.0.0.1\" is no host name: its last label is a number"},
      {{"a", {}}, "a host needs an address"},
      {{"a", {"::"}}, ":: stands for no address"},
      {{"a", {"0.0.0.0"}}, "0.0.0.0 stands for no address"},
      {{"a", {"255.255.255.255"}}, "255.255.255.255 is the broadcast address"},
      {{"a", {"::1", "10.0.0.1", "::1"}}, "::1 stands twice"},
      {{"a", std::vector<std::string>(17, "::1")},
       "a host has at most 16 addresses, this one has 17"},
      {{"a", {"::1"}, std::string(201, 'x')}, "a comment has at most 200 bytes, this one has 201"},
  };
  for (const auto& [fields, expected] : cases) EXPECT_EQ(add(fields), expected);
  EXPECT_EQ(lines(), "192.0.2.1\tprinter\n");

  const Fields fine[] = {
      {longest},   {label},
      {"1.2.3.a"}, {"x--y"},
      {"3com"},    {"z", {"240.0.0.1", "fe80::1", "223.255.255.255"}, std::string(200, '#')}};
  for (const auto& fields : fine) EXPECT_EQ(add(fields), "ok") << fields.name;
}

TEST_F(Hosts, ASetTakesTheFieldsThatItHoldsAndEmptiesThoseThatItRemoves) {
  add({"nas", {"192.0.2.7", "2001:db8::7"}, "old # left"});
  EXPECT_EQ(set(1, {{kName, "tape"}}), "ok");
  EXPECT_EQ(lines(), "192.0.2.7\ttape\t# old # left\n2001:db8::7\ttape\t# old # left\n");
  EXPECT_EQ(kit->seen().undos.back().description, "tape changed");
  EXPECT_EQ(set(1, without(kComment.uid())), "ok");
  EXPECT_EQ(set(1, without(kAddresses.uid())), "a host needs an address");
  EXPECT_EQ(lines(), "192.0.2.7\ttape\n2001:db8::7\ttape\n");
}

TEST_F(Hosts, ChangesOfOnePassAreOneFile) {
  ASSERT_EQ(lines(), "");
  add({"a"});
  add({"b"});
  EXPECT_EQ(fs::file_size(file), std::strlen(kHead)) << "not before the loop sleeps";
  kit->pass();
  fs::remove(file);
  kit->settle();
  EXPECT_FALSE(fs::exists(file)) << "nothing has changed since";
}

TEST_F(Hosts, AFileThatCannotBeWrittenIsTriedAgain) {
  fs::rename(directory.path(), directory.path().string() + ".away");
  add({"nas"});
  kit->settle();
  fs::rename(directory.path().string() + ".away", directory.path());
  EXPECT_EQ(lines(), "") << "not at once: the disk may need its time";
  kit->advance(examples::KeptFile::kRetryInterval);
  EXPECT_EQ(lines(), "192.0.2.1\tnas\n");
}

/// What the service should be after the same changes.
struct Model {
  std::map<std::uint32_t, Fields> hosts;

  bool takes(std::uint32_t id, const std::string& name) const {
    return examples::hostNameFault(name).empty() &&
           std::none_of(hosts.begin(), hosts.end(), [&](const auto& host) {
             return host.first != id &&
                    examples::nameKey(host.second.name) == examples::nameKey(name);
           });
  }
  std::string lines() const {
    std::string text;
    for (const auto& [id, host] : hosts)
      for (const auto& address : host.addresses)
        if (!host.disabled)
          text += address + '\t' + host.name + (host.comment.empty() ? "" : "\t# " + host.comment) +
                  '\n';
    return text;
  }
};

TEST_F(Hosts, RandomChangesUndosAndRestartsGiveTheFileOfTheModel) {
  Random random;
  SCOPED_TRACE(random.seed());
  const std::string names[] = {"a", "B", "b", "c", "C", "d.e", "no name", "-"};
  const std::vector<std::string> addresses[] = {{"10.0.0.1"}, {"::1", "10.0.0.2"}, {"fe80::7"}};
  Model model;
  for (int step = 0; step < 1000; ++step) {
    const auto id = 1 + random.below(6);
    const Fields fields{names[random.below(8)], addresses[random.below(3)],
                        random.below(2) == 0 ? "left" : "", random.below(3) == 0};
    auto changed = model;
    bool isFine = model.takes(id, fields.name);
    message reply;
    if (const auto choice = random.below(8); choice < 6) {
      const bool isAdd = choice < 3;
      reply = ask(isAdd ? cmd::addObj : cmd::setObj, id, fields.request());
      isFine = isFine && model.hosts.contains(id) != isAdd;
      changed.hosts[id] = fields;
    } else {
      reply = ask(cmd::removeObj, id);
      isFine = changed.hosts.erase(id) == 1;
    }
    ASSERT_EQ(!nv::isError(reply), isFine) << "step " << step;
    if (isFine && random.below(4) != 0) {
      model = changed;
    } else if (isFine) {
      ASSERT_EQ(undo(), "ok") << "step " << step;
    }
    if (random.below(50) == 0) start();
    if (random.below(20) != 0) continue;
    ASSERT_EQ(lines(), model.lines()) << "step " << step;
  }
}

// Who may make what of a script the tests of InvokeScript know.
TEST_F(Hosts, TheScriptOfAHostRunsWhenItsAddressesChangeAndOnlyThen) {
  constexpr nv::u32_id kId{1};
  const auto at = [](const std::string& address) {
    return message().insert(kAddresses, {examples::addressFrom(address).value()});
  };
  auto nas = Fields{"nas"}.request();
  nas.insert(kScript, message{{kId, 7}});
  const struct {
    message fields;
    std::uint32_t rights;
    const char *outcome, *run;  // with the rights of who set the script
  } cases[] = {
      {nas, 5, "ok", ""},
      {{{kComment, "x"}}, 3, "ok", ""},
      {at("192.0.2.1"), 3, "ok", ""},  // the same
      {at("300::1"), 3, "ok", "5 user 7: nas 300::1"},
      {at("ff02::1"), 3, "ff02::1 is a multicast address", ""},
      {at("192.0.2.2"), nv::kSystemRights, "ok", "5 user 7: nas 192.0.2.2"},
      {without(kScript.uid()), 5, "ok", ""},
      {at("192.0.2.3"), 5, "ok", ""},
  };
  for (const auto& c : cases) {
    if (c.rights == nv::kSystemRights) start();
    const unsigned code = &c == cases ? cmd::addObj : cmd::setObj;
    EXPECT_EQ(outcome(ask(code, 1, c.fields, {{0xcfff0001}, c.rights})), c.outcome);
    kit->settle();
    std::string run;
    for (const auto& request : kit->seen().sentMessages) {
      EXPECT_EQ(request.get(key::command), cmd::runScript);
      run += std::to_string(request.get(key::rights)) + ' ' + request.get(key::scriptOrigin) + ' ' +
             std::to_string(request.get(key::objectId)) + ':';
      for (const auto word : request.view(nv::run_key::arguments))
        run += ' ' + message(word).get(nv::run_key::word);
    }
    EXPECT_EQ(run, c.run);
  }
}

}  // namespace
}  // namespace hosts
