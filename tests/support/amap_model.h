/// What an object map should do, said with plain containers and without any of its code.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "tests/support/service_model.h"

namespace test {

/// An object map over ids [1, kMax] with a store. Requests hold what a client sends, rights
/// included.
class AMapModel {
 public:
  static constexpr std::uint32_t kMax = 24;

  struct Entry {
    ElementConfig config;
    std::uint32_t manager = nv::kNoId;
  };

  bool takesManaged = false;
  std::map<std::uint32_t, Entry> objects;
  std::map<std::uint32_t, nv::message> records;
  std::set<std::uint32_t> dynamic;
  std::set<std::uint32_t> pending;
  bool autoStore = true;

  Expected command(const nv::message& request);

  Expected addByService(std::uint32_t id, const ElementConfig& config, bool mayStore);
  Expected changedByService(std::uint32_t id, const ElementConfig& config, bool mayStore);
  Expected removeByService(std::uint32_t id);
  Expected setAutoStore(bool on);
  Expected flush();
  /// The process ends and starts again. Counts the lines that it prints.
  Expected restart(bool takesManagedNow, unsigned& printedLines);

 private:
  nv::message add(const nv::message& request);
  nv::message set(const nv::message& request);
  nv::message remove(const nv::message& request);
  nv::message getOne(const nv::message& request);
  nv::message getAll(const nv::message& request);
  std::optional<nv::message> refusal(const nv::message& request, const char* dynamicText) const;

  std::uint32_t lowestFree() const;
  nv::message entryOf(std::uint32_t id) const;
  void store(std::uint32_t id);
  void unstore(std::uint32_t id);
  void announce(std::uint32_t id, const ElementConfig& config);
  void say(const std::string& word, std::uint32_t id);
  void say(const std::string& words);
  Expected done(nv::message reply = {});

  std::string line_;
  std::optional<nv::message> undo_;
};

}  // namespace test
