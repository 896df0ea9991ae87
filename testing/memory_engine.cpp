#include "testing/memory_engine.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace nv::testkit {

void MemoryEngine::commit() {
  if (!underWay_) return;
  outcome_ = Outcome{write(), 0};
  underWay_.reset();
  if (wake_) wake_();
}

void MemoryEngine::release() {
  holding_ = false;
  commit();
}

void MemoryEngine::failCommit(unsigned k, std::string text) {
  commitsBeforeFailure_ = k;
  failure_ = std::move(text);
}

StoreEngine::Opened MemoryEngine::open(std::string_view name) {
  auto at = std::find(names_.begin(), names_.end(), name);
  if (at == names_.end()) at = names_.emplace(names_.end(), name);
  Opened opened{static_cast<unsigned>(at - names_.begin()), !stores_.has(name), {}, unreadable_};
  if (!opened.error.empty()) return opened;
  for (const auto& [id, record] : stores_.records(name)) opened.ids.push_back(id);
  return opened;
}

StoreEngine::Found MemoryEngine::read(unsigned table, std::uint32_t id) {
  if (!unreadable_.empty()) return {{}, unreadable_};
  return {stores_.get(names_[table], id)};
}

void MemoryEngine::submit(StoreBatch batch) {
  assert(!underWay_ && !outcome_);
  underWay_ = std::move(batch);
  if (!holding_) commit();
}

std::optional<StoreEngine::Outcome> MemoryEngine::outcome() {
  return std::exchange(outcome_, std::nullopt);
}

StoreEngine::Outcome MemoryEngine::wait() {
  commit();
  assert(outcome_);
  return *outcome();
}

std::string MemoryEngine::write() {
  if (commitsBeforeFailure_ > 0 && --commitsBeforeFailure_ == 0) return failure_;
  for (StoreChange& change : *underWay_) {
    if (changesLeft_ && *changesLeft_ == 0) return "the power failed";
    if (changesLeft_) --*changesLeft_;
    apply(change);
  }
  ++commits_;
  return {};
}

void MemoryEngine::apply(StoreChange& change) {
  const std::string& name = names_[change.table];
  if (change.record)
    stores_.set(name, change.id, std::move(*change.record));
  else
    stores_.remove(name, change.id);
}

}  // namespace nv::testkit
