/// The hosts that a resolver knows besides those that it asks for: a map of Host, and a file of all
/// of them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "containers/amap.h"
#include "examples/hosts/host.h"
#include "examples/support/kept_file.h"

namespace hosts {

/// Keeps the hosts, refuses faulty ones and names that are taken, and writes the file of those that
/// are not disabled.
///
/// The file is written by `init()` and after changes, see KeptFile.
///
/// A host may have a script, which the script service runs when the addresses change, once that is
/// on disk. What comes of it nobody is told.
///
/// An element takes the fields of a request itself (the map does not merge on set): its fields
/// do not depend on one another, so there is nothing that a complete configuration would tell it.
class HostMap : public AMap {
 public:
  static constexpr std::uint32_t kLowestId = 1;
  static constexpr std::uint32_t kHighestId = 65535;

  /// `file`: what is written. Its directory must be there.
  explicit HostMap(std::filesystem::path file);

  /// The host of that name, nv::kNoId when there is none.
  std::uint32_t idOf(std::string_view name) const;

  Object* newObject() override { return new Host; }
  void copyObject(Object* dst, Object* src) override;
  nv::message checkRestore(Object* obj) override { return check(obj); }
  nv::message checkAdd(Object* obj) override { return check(obj); }
  nv::message checkChange(Object* old, Object* obj) override;
  nv::message checkRemove(Object*) override { return {}; }
  void objAdded(Object* obj) override;
  void objChanged(Object* old, Object* obj) override;
  void objRemoved(Object* obj) override;
  void init() override;

 private:
  /// Refuses a host with a fault or with the name of another one.
  nv::message check(Object* obj) const;
  std::string fileText();

  std::map<std::string, std::uint32_t> idsByName_;  // by nameKey, of all objects
  examples::KeptFile file_;
};

}  // namespace hosts
