/// What an object map should do, with an order of its own or without, said with plain containers
/// and without any of its code.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/message.h"
#include "tests/support/test_element.h"

namespace test {

/// What a step should lead to: the reply of a command, all calls in their order, the undo record.
struct Expected {
  nv::message reply;
  std::string line;
  std::optional<nv::message> undo;
};

/// The rules of the service that the model stands for.
inline bool refusesConfig(const ElementConfig& config) { return config.text == "bad"; }
inline bool refusesGoing(const ElementConfig& config) { return config.number == 13; }
inline bool refusesRestore(const ElementConfig& config) { return config.number == 77; }
inline nv::message serviceRefusal() {
  return std::move(nv::errorMsg(0x1234, "the service says no").insert(field::number, 3));
}
inline nv::message serviceApproval() { return {{field::number, 99}}; }

/// A map over ids [1, kMax] with a store. Requests hold what a client sends, rights included.
class MapModel {
 public:
  static constexpr std::uint32_t kMax = 24;

  struct Entry {
    ElementConfig config;
    std::uint32_t manager = nv::kNoId;
    bool operator==(const Entry&) const = default;
  };

  explicit MapModel(bool isOrdered) : isOrdered_(isOrdered) {}

  /// All ids; ascending where the map has no order of its own.
  std::vector<std::uint32_t> order;
  std::map<std::uint32_t, Entry> objects;
  std::map<std::uint32_t, nv::message> records;
  std::set<std::uint32_t> dynamic;
  std::set<std::uint32_t> pending;
  bool autoStore = true;
  bool takesManaged = false;
  /// The position that means the front.
  std::uint32_t front = 0;

  Expected command(const nv::message& request);

  /// `next` 0: at the end.
  Expected addByService(std::uint32_t id, const ElementConfig& config, bool mayStore,
                        std::uint32_t next);
  Expected changedByService(std::uint32_t id, const ElementConfig& config, bool mayStore);
  Expected moveByService(std::uint32_t id, std::uint32_t next);
  Expected removeByService(std::uint32_t id);
  Expected setAutoStore(bool on);
  Expected flush();
  /// The process ends,
  Expected end();
  /// and starts again, and prints this.
  Expected init(std::string& prints);

  /// The chain that the records should make once all is flushed.
  std::string chain() const;

 private:
  nv::message add(const nv::message& request);
  nv::message set(const nv::message& request);
  nv::message remove(const nv::message& request);
  nv::message move(const nv::message& request);
  nv::message getOne(const nv::message& request) const;
  nv::message getAll(const nv::message& request) const;
  std::optional<nv::message> refusal(const nv::message& request, const char* dynamicText) const;
  std::uint32_t managerOf(const nv::message& m) const;
  /// Where in `order` the request's position is; none: it names nobody.
  std::optional<std::size_t> placeOf(const nv::message& request) const;

  std::size_t indexOf(std::uint32_t id) const;
  std::uint32_t idAt(std::size_t place) const;
  std::string nextWord(std::size_t place) const;
  std::uint32_t nextOf(std::uint32_t id) const;
  bool isStorable(std::uint32_t id) const;
  std::uint32_t storableFrom(std::size_t place) const;
  /// The head's id where there is none.
  std::uint32_t previousStorable(std::uint32_t id) const;
  std::uint32_t lowestFree() const;
  nv::message entryOf(std::uint32_t id, std::uint32_t flags) const;
  nv::message recordOf(std::uint32_t id) const;

  void insertAt(std::size_t place, std::uint32_t id, bool mayStore = true);
  void moveTo(std::size_t place, std::uint32_t id);
  void takeOut(std::uint32_t id);
  std::uint32_t restore(std::uint32_t id, std::string& prints);
  void store(std::uint32_t id);
  void unstore(std::uint32_t id);
  void announce(std::uint32_t id, const ElementConfig& config);
  void check(const std::string& word, std::uint32_t id, std::size_t next);
  void say(const std::string& words);
  void say(const std::string& word, std::uint32_t id);
  void publish(const Entry& entry, const char* what, nv::message undo);
  Expected done(nv::message reply = {});

  void closeGap(std::uint32_t id);

  bool isOrdered_;
  /// Records of a chain that became no objects, with who leads to each.
  std::map<std::uint32_t, std::uint32_t> passedOver_;
  std::string line_;
  std::optional<nv::message> undo_;
};

}  // namespace test
