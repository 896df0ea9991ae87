#include "examples/identity/settings.h"

#include "examples/identity/time_zone.h"
#include "examples/support/host_names.h"
#include "examples/support/take.h"
#include "examples/support/texts.h"

namespace identity {

namespace key = nv::key;
using nv::message;

namespace {

// The places of the fields in Values.
enum : std::size_t { kHostNameAt, kLocationAt, kTimeZoneAt, kContactAt };

constexpr std::size_t kLongestHostName = 64;  // the kernel's

const Values kBuiltIn{"localhost", "", "UTC", ""};

std::string hostNameFault(const std::string& name) {
  if (name.size() > kLongestHostName)
    return "the host name of a device has at most 64 characters, this one has " +
           std::to_string(name.size());
  return examples::hostNameFault(name);
}

std::string faultOf(const Values& values) {
  const auto &name = values[kHostNameAt], &zone = values[kTimeZoneAt];
  for (auto why : {name.empty() ? "" : hostNameFault(name), zone.empty() ? "" : zoneFault(zone),
                   examples::lineFault("a location", values[kLocationAt]),
                   examples::lineFault("a contact", values[kContactAt])})
    if (!why.empty()) return why;
  return "";
}

message messageOf(const Values& values, bool withEmpty) {
  message out;
  for (std::size_t k = 0; k < values.size(); ++k)
    if (withEmpty || !values[k].empty()) out.insert(kFields[k], values[k]);
  return out;
}

}  // namespace

std::vector<nv::KeyInfo> dictionary() {
  return {{kHostName.uid(), "host-name", "what the device is called"},
          {kLocation.uid(), "location", "where it is, a line for people"},
          {kTimeZone.uid(), "time-zone", "such as Europe/Berlin"},
          {kContact.uid(), "contact", "whom to ask, a line for people"},
          {kInForce.uid(), "in-force", "what counts of what the user and others say (shown only)"}};
}

Values valuesIn(const message& config) {
  Values values;
  for (std::size_t k = 0; k < values.size(); ++k) examples::take(config, kFields[k], values[k]);
  return values;
}

Values Settings::inForce() const {
  const auto partysOrNone = [this](std::uint32_t party) {
    const auto found = parties.find(party);
    return found == parties.end() ? Values() : found->second;
  };
  auto values = partysOrNone(kFleetController);
  for (const auto& next : {users, partysOrNone(kAddressService), kBuiltIn})
    for (std::size_t k = 0; k < values.size(); ++k)
      if (values[k].empty()) values[k] = next[k];
  return values;
}

std::string Settings::fault() const {
  for (const auto& [party, values] : parties) {
    if (party != kFleetController && party != kAddressService)
      return "nobody has the managed id " + std::to_string(party) +
             ": 1 is the fleet controller, 2 the address service";
    if (auto why = faultOf(values); !why.empty()) return why;
  }
  return faultOf(users);
}

void Settings::getConfig(message& out, std::uint32_t flags) {
  out.merge(messageOf(users, true));
  for (const auto party : arrivals) {
    auto entry = messageOf(parties.at(party), false);
    out.append(key::managedConfigs, entry.insert(key::managedId, party));
  }
  if ((flags & nv::kStoreBit) == 0) out.insert(kInForce, messageOf(inForce(), false));
}

void Settings::setConfig(const message& in, std::uint32_t) {
  users = valuesIn(in);
  parties.clear();
  arrivals.clear();
  for (const auto entry : in.view(key::managedConfigs)) {
    const message config(entry);
    const auto party = config.get(key::managedId);
    if (parties.emplace(party, valuesIn(config)).second) arrivals.push_back(party);
  }
}

}  // namespace identity
