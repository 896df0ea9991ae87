/// The scripts that a device keeps.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "containers/amap.h"
#include "examples/scripts/runner.h"

namespace scripts {

// The fields of a script beside its name, nv::key::name. They stand in the stores of devices: never
// change a number or a type.
inline constexpr nv::string_id kSource{1};
inline constexpr nv::u32_id kNeeds{2};
inline constexpr nv::u32_id kTimeLimit{3};
inline constexpr nv::string_id kComment{4};

struct StoredScript : Object {
  std::string scriptName, source, comment;
  std::uint32_t needs = 0;         ///< rights that a run needs, a bit each
  std::uint32_t timeLimit = 3000;  ///< milliseconds

  std::string name() override { return scriptName; }
  void getConfig(nv::message& out, std::uint32_t flags) override;
  void setConfig(const nv::message& in, std::uint32_t flags) override;

  /// Why this is no proper script, looked at alone; empty when it is one.
  std::string fault() const;
};

/// Named scripts, which run when somebody asks with cmd::runScript and names one by id or by name.
///
/// Who has some right may run a script that needs no other; who changes one can do what the user of
/// this process can, so only the system may. A run that is under way goes on with the source with
/// which it began.
class ScriptMap : public AMap {
 public:
  static constexpr std::size_t kLongestSource = 64 * 1024;
  static constexpr std::uint32_t kLongestTime = 60000;

  /// `runner` outlives this.
  explicit ScriptMap(Runner& runner);

  bool isAllowed(const nv::message& request) const override;
  void handleCmd(const nv::message& cmd, unsigned code) override;

  Object* newObject() override { return new StoredScript; }
  nv::message getDefaultCfg() override;
  void copyObject(Object* dst, Object* src) override;
  nv::message checkRestore(Object* obj) override { return check(obj); }
  nv::message checkAdd(Object* obj) override { return check(obj); }
  nv::message checkChange(Object*, Object* obj) override { return check(obj); }
  nv::message checkRemove(Object*) override { return {}; }
  void objAdded(Object* obj) override { idsByName_[obj->name()] = obj->id; }
  void objChanged(Object* old, Object* obj) override;
  void objRemoved(Object* obj) override { idsByName_.erase(obj->name()); }

 private:
  nv::message check(Object* obj) const;
  /// The script that a request means, null when there is none.
  StoredScript* wanted(const nv::message& request);

  Runner& runner_;
  std::map<std::string, std::uint32_t, std::less<>> idsByName_;
};

}  // namespace scripts
