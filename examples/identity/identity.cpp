#include "examples/identity/identity.h"

#include <algorithm>
#include <utility>

#include "examples/identity/identity_file.h"
#include "examples/identity/time_zone.h"

namespace identity {

namespace key = nv::key;
using nv::message;

namespace {

Settings& settings(Object* obj) { return static_cast<Settings&>(*obj); }

/// The time zones that anybody says.
std::vector<std::string> zonesOf(const Settings& settings) {
  constexpr std::size_t at = std::find(kFields.begin(), kFields.end(), kTimeZone) - kFields.begin();
  std::vector<std::string> zones{settings.users[at]};
  for (const auto& [party, values] : settings.parties) zones.push_back(values[at]);
  return zones;
}

}  // namespace

Identity::Identity(Box box)
    : AHolder("identity"),
      zones_(std::move(box.zones)),
      file_("identity", std::move(box.file), [this] { return fileText(); }) {
  describe("identity", dictionary());
}

void Identity::init() {
  AHolder::init();
  file_.write();
}

message Identity::cmdSet(const message& request) {
  if (request.has(key::managedConfigs))
    return nv::failedMsg("each party sets its own configuration, with its managed id");
  if (!request.has(key::removals)) return AHolder::cmdSet(request);
  message texts = request;
  for (const auto field : kFields)
    if (!request.has(field) && request.hasElem(key::removals, field.uid())) texts.insert(field, "");
  texts.remove(key::removals);
  return AHolder::cmdSet(texts);
}

void Identity::copyObject(Object* dst, Object* src) { settings(dst) = settings(src); }

message Identity::checkChange(Object* old, Object* obj) {
  auto why = settings(obj).fault();
  if (why.empty() && old != nullptr) why = missingZone(settings(old), settings(obj));
  return why.empty() ? message() : nv::failedMsg(why);
}

/// Of the zones that nobody said before.
std::string Identity::missingZone(const Settings& old, const Settings& settings) const {
  const auto known = zonesOf(old);
  for (const auto& zone : zonesOf(settings)) {
    if (zone.empty() || std::find(known.begin(), known.end(), zone) != known.end()) continue;
    if (auto why = identity::missingZone(zones_, zone); !why.empty()) return why;
  }
  return "";
}

std::string Identity::fileText() const { return identityText(settings(object).inForce()); }

}  // namespace identity
