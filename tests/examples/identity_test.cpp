/// The identity service without its process: what counts of what three parties say, what is
/// refused, and what comes back.

#include "examples/identity/identity.h"

#include "tests/examples/service_test.h"
#include "tests/support/captured_output.h"

namespace identity {
namespace {

class Device : public ServiceTest<Identity> {
 protected:
  Device() {
    fs::create_directories(zones / "Europe");
    for (const auto* const zone : {"UTC", "Europe/Berlin", "Europe/Rome"})
      std::ofstream(zones / zone) << "TZif2";
    std::ofstream(zones / "tzdata.zi") << "# version";
    start();
  }

  void start() {
    make(Box{.file = file, .zones = zones});
    open(104);
  }
  std::string set(message fields, std::uint32_t party = nv::kNoId) {
    if (party != nv::kNoId) fields.insert(key::managedId, party);
    return outcome(ask(cmd::set, nv::kNoId, fields));
  }
  std::string drop(std::uint32_t party) { return set({{key::absent, 1}}, party); }
  message get() { return ask(cmd::get); }
  std::string counts(nv::string_id field) { return message(get().get(kInForce)).get(field); }

  const fs::path zones = directory / "zones";
};

TEST_F(Device, FaultsAreRefusedWhoeverSaysThem) {
  const std::string noZone = "\" is no time zone: Europe/Berlin and UTC are";
  const struct {
    message fields;
    std::string outcome;
  } cases[] = {
      {{{kHostName, "a b"}},
       "\"a b\" is no host name: it may hold letters, digits, '-' and '.' only"},
      {{{kHostName, std::string(65, 'a')}},
       "the host name of a device has at most 64 characters, this one has 65"},
      {{{kHostName, std::string(64, 'a')}},
       "\"" + std::string(64, 'a') + "\" is no host name: a label is longer than 63 characters"},
      {{{kLocation, "a\nHOST_NAME=b"}}, "a location is one line without control characters"},
      {{{kContact, std::string(201, 'x')}}, "a contact has at most 200 bytes, this one has 201"},
      {{{kTimeZone, "Europe/Paris"}},
       "there is no time zone \"Europe/Paris\" in " + zones.string()},
      {{{kTimeZone, "Europe"}}, "there is no time zone \"Europe\" in " + zones.string()},
      {{{kTimeZone, "tzdata.zi"}}, "\"tzdata.zi" + noZone},
      {{{kTimeZone, "../UTC"}}, "\"../UTC" + noZone},
      {{{kTimeZone, "/UTC"}}, "\"/UTC" + noZone},
      {{{kTimeZone, "UTC/"}}, "\"UTC/" + noZone},
      {{{kTimeZone, "Europe//Rome"}}, "\"Europe//Rome" + noZone},
  };
  ASSERT_EQ(set({{kHostName, "gate"}}), "ok");
  const auto before = get();
  for (const auto& [fields, expected] : cases) {
    EXPECT_EQ(set(fields), expected);
    EXPECT_EQ(set(fields, kFleetController), expected);
  }
  EXPECT_EQ(set({{kHostName, "x"}}, 9),
            "nobody has the managed id 9: 1 is the fleet controller, 2 the address service");
  EXPECT_EQ(set({{kLocation, "x"}, {key::managedConfigs, std::vector<nv::flat_message>()}}),
            "each party sets its own configuration, with its managed id");
  EXPECT_EQ(get(), before);
  fs::remove_all(zones);
  EXPECT_EQ(set({{kTimeZone, "Europe/Paris"}}), "ok") << "nothing to compare it with";
}

TEST_F(Device, PartiesAreStoredWithoutTheEnvelopeOfTheirRequests) {
  set({{kHostName, "dhcp-7"}}, kAddressService);
  set({{kTimeZone, "UTC"}}, kFleetController);
  set({{kContact, "net"}}, kAddressService);
  EXPECT_TRUE(kit->seen().undos.empty());
  kit->settle();
  const message record = stores.get("identity", 0);
  EXPECT_FALSE(record.has(kInForce));
  EXPECT_EQ(
      record.get(key::managedConfigs),
      (std::vector{message{{key::managedId, 2}, {kHostName, "dhcp-7"}, {kContact, "net"}}.flat(),
                   message{{key::managedId, 1}, {kTimeZone, "UTC"}}.flat()}));
  EXPECT_EQ(set(without(kHostName.uid()), kAddressService), "ok");
  EXPECT_EQ(counts(kHostName), "localhost");
}

TEST_F(Device, UndoingASetBringsBackWhatTheUserSaidAndLeavesTheParties) {
  set({{kHostName, "dhcp-7"}}, kAddressService);
  set({{kLocation, "hall"}});
  const auto before = get();
  for (const auto& change :
       {message{{kLocation, "yard"}, {kContact, "me"}}, without(kLocation.uid())}) {
    EXPECT_EQ(set(change), "ok");
    EXPECT_EQ(undo(), "ok");
    EXPECT_EQ(get(), before);
  }
}

TEST_F(Device, TheFileIsOneThatAShellReads) {
  set({{kHostName, "gate"}, {kLocation, "\"A\" $HOME `b` \\"}, {kTimeZone, "Europe/Rome"}});
  for (int starts = 0; starts < 2; ++starts) {
    EXPECT_EQ(fileText(),
              "# Written by the identity service. Changes made here are lost.\n"
              "HOST_NAME=\"gate\"\nLOCATION=\"\\\"A\\\" \\$HOME \\`b\\` \\\\\"\n"
              "TIME_ZONE=\"Europe/Rome\"\nCONTACT=\"\"\n");
    fs::remove(file);
    start();
  }
}

TEST_F(Device, AZoneThatIsGoneAfterAnUpdateStaysAndAnotherFieldCanBeSet) {
  set({{kTimeZone, "Europe/Rome"}});
  fs::remove(zones / "Europe/Rome");
  start();
  EXPECT_EQ(counts(kTimeZone), "Europe/Rome");
  EXPECT_EQ(set({{kLocation, "hall"}}), "ok");
  EXPECT_EQ(set({{kTimeZone, "UTC"}}), "ok");
  EXPECT_EQ(set({{kTimeZone, "Europe/Rome"}}),
            "there is no time zone \"Europe/Rome\" in " + zones.string());
}

TEST_F(Device, RandomSetsAndRestartsCountAsAModelSays) {
  Random random;
  SCOPED_TRACE(random.seed());
  // By party and field. The fleet controller goes before the user, the address service behind.
  std::map<std::uint32_t, std::map<std::uint32_t, std::string>> said;
  const std::uint32_t parties[] = {kFleetController, nv::kNoId, kAddressService};
  const std::pair<nv::string_id, const char*> fields[] = {
      {kHostName, "localhost"}, {kLocation, ""}, {kTimeZone, "UTC"}, {kContact, ""}};
  const std::string zoneNames[] = {"", "UTC", "Europe/Rome", "Europe/Berlin"};
  const std::string names[] = {"", "a", "b", "c"};
  for (int step = 0; step < 2000; ++step) {
    const auto party = parties[random.below(3)];
    const auto field = fields[random.below(4)].first;
    const auto value = (field == kTimeZone ? zoneNames : names)[random.below(4)];
    if (const auto choice = random.below(20); choice == 0) {
      start();
    } else if (choice < 3 && party != nv::kNoId) {
      ASSERT_EQ(drop(party), "ok");
      said.erase(party);
    } else {
      ASSERT_EQ(set({{field, value}}, party), "ok");
      said[party][field.id()] = value;
    }
    for (const auto& [one, builtIn] : fields) {
      std::string expected = builtIn;
      for (const auto speaker : {kAddressService, nv::kNoId, kFleetController})
        if (!said[speaker][one.id()].empty()) expected = said[speaker][one.id()];
      ASSERT_EQ(counts(one), expected) << "step " << step;
      ASSERT_EQ(get().get(one), said[nv::kNoId][one.id()]) << "the user's own";
    }
  }
}

}  // namespace
}  // namespace identity
