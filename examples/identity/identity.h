/// Who a device is: one configuration, which the user and two other parties write, and a file of
/// what counts.
#pragma once

#include <filesystem>

#include "containers/aholder.h"
#include "examples/identity/settings.h"
#include "examples/support/kept_file.h"

namespace identity {

struct Box {
  /// Written for other programs. Its directory must be there.
  std::filesystem::path file = "/var/lib/confkit/identity.env";
  /// Where the time zones are. When it is not there any well-formed name will do.
  std::filesystem::path zones = "/usr/share/zoneinfo";
};

/// Keeps what the user says, by sets without key::managedId, and what the fleet controller and the
/// address service say, by sets with theirs, until they drop it; Settings::inForce tells what
/// counts. Refuses what is faulty, whoever says it. A time zone must be there when somebody comes
/// to say it; one that a later version of the system does not have stays.
///
/// The file is written by `init()` and after changes, see KeptFile.
class Identity : public AHolder {
 public:
  explicit Identity(Box box);

  /// Refuses a request that writes all parties at once. A removed field is set to an empty text
  /// instead, which a set can undo.
  nv::message cmdSet(const nv::message& request) override;

  Object* newObject() override { return new Settings; }
  void copyObject(Object* dst, Object* src) override;
  nv::message checkChange(Object* old, Object* obj) override;
  void objChanged(Object*, Object*) override { file_.outdate(); }
  bool mergeOnSet() override { return true; }
  bool acceptsManaged() override { return true; }
  void init() override;

 private:
  std::string missingZone(const Settings& old, const Settings& settings) const;
  std::string fileText() const;

  const std::filesystem::path zones_;
  examples::KeptFile file_;
};

}  // namespace identity
