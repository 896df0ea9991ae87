/// A store engine that costs next to nothing.
#pragma once

#include <map>
#include <string>

#include "platform/keys.h"
#include "platform/store_engine.h"

namespace bench {

inline constexpr nv::u32_id kTag{0x11};
inline constexpr nv::string_id kText{0x12};

/// The text of object `n`, of 60 bytes.
inline std::string textOf(std::uint32_t n) {
  return std::string(60, static_cast<char>('a' + n % 26));
}

/// Record `id` of a chain 1, 2, ... `count`: of 150 bytes, for a manager and for an object map.
inline nv::message chainRecord(std::uint32_t id, std::uint32_t count) {
  return {{nv::key::objectId, id},
          {nv::key::nextId, id == count ? nv::kNoId : id + 1},
          {nv::key::name, "vlan" + std::to_string(id)},
          {nv::key::cfgText, textOf(id)},
          {kTag, id % 4094}};
}
inline nv::message chainHead() { return {{nv::key::objectId, nv::kHeadId}, {nv::key::nextId, 1}}; }

/// Each store is named after the number of records it begins with, a chain. They are made when they
/// are read; what is written is forgotten, and counted.
class MadeUpStore : public nv::StoreEngine {
 public:
  Opened open(std::string_view name) override {
    const auto count = static_cast<std::uint32_t>(std::stoul(std::string(name)));
    counts_.push_back(count);
    Opened opened{static_cast<unsigned>(counts_.size() - 1), count == 0, {}};
    opened.ids.reserve(count + 1);
    for (std::uint32_t id = 1; id <= count; ++id) opened.ids.push_back(id);
    if (count != 0) opened.ids.push_back(nv::kHeadId);
    return opened;
  }
  Found read(unsigned table, std::uint32_t id) override {
    return {id == nv::kHeadId ? chainHead() : chainRecord(id, counts_[table])};
  }
  void submit(nv::StoreBatch batch) override {
    ++commits;
    written += batch.size();
    outcome_ = Outcome{};
  }
  std::optional<Outcome> outcome() override { return std::exchange(outcome_, std::nullopt); }
  Outcome wait() override { return *outcome(); }
  void onOutcome(std::function<void()>) override {}
  std::string refusal() override { return {}; }

  unsigned commits = 0;
  std::size_t written = 0;  ///< records

 private:
  std::vector<std::uint32_t> counts_;  // by table
  std::optional<Outcome> outcome_;
};

}  // namespace bench
