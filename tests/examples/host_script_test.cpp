/// The script of a host: when it is run, with whose rights, and what an undo makes of it.

#include "examples/hosts/host_map.h"
#include "examples/support/addresses.h"
#include "platform/run_request.h"
#include "tests/examples/service_test.h"

namespace hosts {
namespace {

// The configuration of a script.
constexpr nv::u32_id kId{1};
constexpr nv::string_id kSource{4};

message addressed(const std::string& address) {
  return message().insert(kAddresses, {examples::addressFrom(address).value()});
}
message scripted(const message& script) { return {{kScript, script}}; }
message withId(std::uint32_t id) { return scripted({{kId, id}}); }

class HostScript : public ServiceTest<HostMap> {
 protected:
  HostScript() { start(); }

  void start() {
    make(file);
    open(100);
  }
  std::string set(const message& fields, std::uint32_t rights) {
    const auto reply = ask(cmd::setObj, 1, fields, {{0xcfff0001}, rights});
    kit->settle();
    return outcome(reply);
  }
  /// Host 1, "nas", with these fields.
  void add(message fields, std::uint32_t rights) {
    fields.merge(addressed("192.0.2.1"));
    fields.insert(kName, "nas");
    ASSERT_EQ(outcome(ask(cmd::addObj, 1, fields, {{0xcfff0001}, rights})), "ok");
    kit->settle();
  }
  /// "<rights> <origin> <id>: <words>" of the runs that the last request caused.
  std::string runs() {
    std::string all;
    for (const auto& request : kit->seen().sentMessages) {
      EXPECT_EQ(request.get(key::command), cmd::runScript);
      all += std::to_string(request.get(key::rights)) + ' ' + request.get(key::scriptOrigin) + ' ' +
             std::to_string(request.get(key::objectId)) + ':';
      for (const auto word : request.view(nv::run_key::arguments))
        all += ' ' + message(word).get(nv::run_key::word);
    }
    return all;
  }
  /// What runs when somebody sets a new address.
  std::string runsFor(const std::string& address, std::uint32_t rights) {
    EXPECT_EQ(set(addressed(address), rights), "ok");
    return runs();
  }
};

TEST_F(HostScript, RunsWhenTheAddressesChangeAndOnlyThen) {
  add(withId(7), 5);
  EXPECT_EQ(runs(), "") << "a new host";
  EXPECT_EQ(set({{kComment, "x"}}, 3), "ok");
  EXPECT_EQ(runs(), "");
  EXPECT_EQ(runsFor("192.0.2.1", 3), "") << "the same address";
  EXPECT_EQ(runsFor("300::1", 3), "5 user 7: nas 300::1") << "with the rights of who set it";
  EXPECT_EQ(set(addressed("ff02::1"), 3), "ff02::1 is a multicast address");
  EXPECT_EQ(runs(), "") << "refused";
  start();
  EXPECT_EQ(runsFor("192.0.2.2", nv::kSystemRights), "5 user 7: nas 192.0.2.2");
  EXPECT_EQ(set(without(kScript.uid()), 5), "ok");
  EXPECT_EQ(runsFor("192.0.2.3", 5), "") << "there is none";
}

// Who may make what of a script the tests of InvokeScript know.
TEST_F(HostScript, HasTheRightsOfWhoSetItAlsoWhenThatWasAnUndo) {
  add(withId(7), 6);
  EXPECT_EQ(set(scripted({{kSource, "reboot"}}), 2),
            "cannot change script source value with higher rights");
  EXPECT_EQ(runsFor("192.0.2.2", 2), "6 user 7: nas 192.0.2.2") << "as it was";
  ASSERT_EQ(set(withId(8), 6), "ok");
  ASSERT_EQ(kit->seen().undos.size(), 1U);
  EXPECT_EQ(set(kit->seen().undos.back().undo, 1), "ok");
  EXPECT_EQ(runsFor("192.0.2.3", 1), "1 user 7: nas 192.0.2.3") << "no more than their own";
}

}  // namespace
}  // namespace hosts
