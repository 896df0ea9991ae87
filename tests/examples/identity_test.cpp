/// The identity service without its process: what counts of what three parties say, what is
/// refused, and what comes back.

#include "examples/identity/identity.h"

#include <fstream>
#include <functional>
#include <sstream>

#include <gtest/gtest.h>

#include "platform/commands.h"
#include "testing/kit.h"
#include "tests/support/captured_output.h"
#include "tests/support/random.h"
#include "tests/support/temp_directory.h"

namespace identity {
namespace {

namespace key = nv::key;
using nv::message;
using nv::testkit::Kit;
using nv::testkit::MemoryStores;

std::string outcome(const message& reply) {
  return nv::isError(reply) ? nv::getError(reply) : "ok";
}

class Device : public ::testing::Test {
 protected:
  Device() {
    std::filesystem::create_directories(zones / "Europe");
    for (const auto* const zone : {"UTC", "Europe/Berlin", "Europe/Rome"})
      std::ofstream(zones / zone) << "TZif2";
    std::ofstream(zones / "tzdata.zi") << "# version";
    start();
  }
  ~Device() override { device.reset(); }

  void start() {
    device.reset();
    kit.reset();
    kit = std::make_unique<Kit>(stores);
    device = std::make_unique<Identity>(Box{.file = file, .zones = zones});
    device->init();
    nv::getLooper()->addHandler(104, device.get());
  }

  std::string set(message fields, std::uint32_t party = nv::kNoId) {
    fields.insert(key::command, nv::cmd::set);
    if (party != nv::kNoId) fields.insert(key::managedId, party);
    return outcome(kit->ask(*device, std::move(fields), nv::testkit::user()));
  }
  std::string drop(std::uint32_t party) { return set({{key::absent, 1}}, party); }
  message get() { return kit->ask(*device, {{key::command, nv::cmd::get}}, nv::testkit::user()); }
  std::string counts(nv::string_id field) { return message(get().get(kInForce)).get(field); }
  std::string fileText() {
    kit->settle();
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }

  TempDirectory directory{TempDirectory::inMemory()};
  const std::filesystem::path file = directory / "identity.env";
  const std::filesystem::path zones = directory / "zones";
  MemoryStores stores;
  std::unique_ptr<Kit> kit;
  std::unique_ptr<Identity> device;
};

TEST_F(Device, FaultsAreRefusedWhoeverSaysThem) {
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
      {{{kTimeZone, "tzdata.zi"}}, "\"tzdata.zi\" is no time zone: Europe/Berlin and UTC are"},
      {{{kTimeZone, "../UTC"}}, "\"../UTC\" is no time zone: Europe/Berlin and UTC are"},
      {{{kTimeZone, "/UTC"}}, "\"/UTC\" is no time zone: Europe/Berlin and UTC are"},
      {{{kTimeZone, "UTC/"}}, "\"UTC/\" is no time zone: Europe/Berlin and UTC are"},
      {{{kTimeZone, "Europe//Rome"}},
       "\"Europe//Rome\" is no time zone: Europe/Berlin and UTC are"},
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
  std::filesystem::remove_all(zones);
  EXPECT_EQ(set({{kTimeZone, "Europe/Paris"}}), "ok") << "nothing to compare it with";
}

TEST_F(Device, TheFleetControllerGoesBeforeTheUserAndTheAddressServiceBehind) {
  EXPECT_EQ(counts(kHostName), "localhost");
  set({{kHostName, "dhcp-7"}}, kAddressService);
  EXPECT_EQ(counts(kHostName), "dhcp-7");
  set({{kHostName, "gate"}});
  EXPECT_EQ(counts(kHostName), "gate");
  set({{kHostName, "gate-17"}}, kFleetController);
  EXPECT_EQ(counts(kHostName), "gate-17");
  EXPECT_EQ(get().get(kHostName), "gate") << "what the user said is still there";

  set({{kHostName, ""}});
  EXPECT_EQ(counts(kHostName), "gate-17");
  EXPECT_EQ(drop(kFleetController), "ok");
  EXPECT_EQ(counts(kHostName), "dhcp-7");
  EXPECT_EQ(drop(kAddressService), "ok");
  EXPECT_EQ(counts(kHostName), "localhost");
  EXPECT_FALSE(get().has(key::managedConfigs));
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
}

TEST_F(Device, UndoingASetBringsBackWhatTheUserSaidAndLeavesTheParties) {
  const auto undo = [&] { return outcome(kit->ask(*device, kit->seen().undos.back().undo)); };
  set({{kHostName, "dhcp-7"}}, kAddressService);
  set({{kLocation, "hall"}});
  const auto before = get();
  set({{kLocation, "yard"}, {kContact, "me"}});
  EXPECT_EQ(undo(), "ok");
  EXPECT_EQ(get(), before);

  message removal;
  removal.insert_vector(key::removals, kLocation.uid());
  EXPECT_EQ(set(removal), "ok");
  EXPECT_EQ(get().get(kLocation), "");
  EXPECT_EQ(undo(), "ok");
  EXPECT_EQ(get(), before);

  removal.insert_vector(key::removals, kHostName.uid());
  EXPECT_EQ(set(removal, kAddressService), "ok");
  EXPECT_EQ(counts(kHostName), "localhost");
}

TEST_F(Device, TheFileIsOneThatAShellReads) {
  set({{kHostName, "gate"}, {kLocation, "\"A\" $HOME `b` \\"}, {kTimeZone, "Europe/Rome"}});
  EXPECT_EQ(fileText(),
            "# Written by the identity service. Changes made here are lost.\n"
            "HOST_NAME=\"gate\"\nLOCATION=\"\\\"A\\\" \\$HOME \\`b\\` \\\\\"\n"
            "TIME_ZONE=\"Europe/Rome\"\nCONTACT=\"\"\n");
}

TEST_F(Device, AZoneThatIsGoneAfterAnUpdateStaysAndAnotherFieldCanBeSet) {
  set({{kTimeZone, "Europe/Rome"}});
  std::filesystem::remove(zones / "Europe/Rome");
  kit->settle();
  start();
  EXPECT_EQ(counts(kTimeZone), "Europe/Rome");
  EXPECT_EQ(set({{kLocation, "hall"}}), "ok");
  EXPECT_EQ(set({{kTimeZone, "UTC"}}), "ok");
  EXPECT_EQ(set({{kTimeZone, "Europe/Rome"}}),
            "there is no time zone \"Europe/Rome\" in " + zones.string());
}

TEST_F(Device, AFaultyRecordGivesTheDefaultsAndIsReported) {
  set({{kHostName, "gate"}});
  kit->settle();
  const auto record = stores.get("identity", 0);
  const auto faulty = message(record).insert(kHostName, "a b");
  stores.set("identity", 0, faulty);
  const CapturedOutput output;
  start();
  EXPECT_EQ(counts(kHostName), "localhost");
  EXPECT_EQ(output.text(),
            "error: while loading config from store: \"a b\" is no host name: it may "
            "hold letters, digits, '-' and '.' only (16646147)\n");
  EXPECT_EQ(stores.get("identity", 0), faulty);
  EXPECT_NE(fileText().find("HOST_NAME=\"localhost\""), std::string::npos);
}

TEST_F(Device, RandomSetsAndRestartsCountAsAModelSays) {
  Random random;
  SCOPED_TRACE(random.seed());
  std::map<std::uint32_t, std::map<std::uint32_t, std::string>> said;  // by party and field
  const std::uint32_t parties[] = {kFleetController, nv::kNoId, kAddressService};
  const std::pair<nv::string_id, const char*> fields[] = {
      {kHostName, "localhost"}, {kLocation, ""}, {kTimeZone, "UTC"}, {kContact, ""}};
  for (int step = 0; step < 2000; ++step) {
    const auto party = parties[random.below(3)];
    const auto field = fields[random.below(4)].first;
    const std::string zoneNames[] = {"", "UTC", "Europe/Rome", "Europe/Berlin"};
    const std::string names[] = {"", "a", "b", "c"};
    const auto value = (field == kTimeZone ? zoneNames : names)[random.below(4)];
    if (const auto choice = random.below(20); choice == 0) {
      kit->settle();
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
        if (said.contains(speaker) && !said[speaker][one.id()].empty())
          expected = said[speaker][one.id()];
      ASSERT_EQ(counts(one), expected) << "step " << step;
    }
  }
}

}  // namespace
}  // namespace identity
