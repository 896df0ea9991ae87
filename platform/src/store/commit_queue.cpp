#include "platform/src/store/commit_queue.h"

#include <cassert>
#include <iostream>
#include <set>

namespace nv {

namespace {

CommitQueue* current = nullptr;

}  // namespace

CommitQueue::CommitQueue(std::unique_ptr<StoreEngine> engine) : engine_(std::move(engine)) {}

StoreEngine::Opened CommitQueue::open(std::string_view name) {
  auto opened = engine_->open(name);
  if (!opened.error.empty()) failToRead(opened.error);
  const auto hasChange = [&](const Changes& changes) {
    const auto at = changes.lower_bound({opened.table, 0});
    return at != changes.end() && at->first.first == opened.table;
  };
  if (hasChange(inFlight_) || hasChange(batch_)) addUnwritten(opened);
  return opened;
}

void CommitQueue::addUnwritten(StoreEngine::Opened& opened) const {
  std::set<std::uint32_t> ids(opened.ids.begin(), opened.ids.end());
  for (const Changes* changes : {&inFlight_, &batch_}) {
    for (auto at = changes->lower_bound({opened.table, 0});
         at != changes->end() && at->first.first == opened.table; ++at) {
      if (at->second)
        ids.insert(at->first.second);
      else
        ids.erase(at->first.second);
    }
  }
  opened.firstTime = false;
  opened.ids.assign(ids.begin(), ids.end());
}

void CommitQueue::set(unsigned table, std::uint32_t id, const message& record) {
  batch_[{table, id}] = record;
  ++made_;
}

void CommitQueue::remove(unsigned table, std::uint32_t id) {
  batch_[{table, id}] = std::nullopt;
  ++made_;
}

message CommitQueue::get(unsigned table, std::uint32_t id) {
  for (const Changes* changes : {&batch_, &inFlight_}) {
    const auto at = changes->find({table, id});
    if (at != changes->end()) return at->second.value_or(message());
  }
  auto found = engine_->read(table, id);
  if (!found.error.empty()) failToRead(found.error);
  return std::move(found.record);
}

void CommitQueue::failToRead(const std::string& why) {
  if (error_.empty()) error_ = why;
  if (unreadable_) unreadable_(why);
}

bool CommitQueue::canSubmit() const {
  return gathering() && !writing_ && error_.empty() && engine_->refusal().empty();
}

void CommitQueue::submit() {
  assert(gathering() && !writing_ && error_.empty());
  inFlight_.swap(batch_);
  StoreBatch batch;
  batch.reserve(inFlight_.size());
  for (const auto& [at, record] : inFlight_) batch.push_back({at.first, at.second, record});
  submitted_ = made_;
  writing_ = true;
  engine_->submit(std::move(batch));
}

std::optional<StoreEngine::Outcome> CommitQueue::reap() {
  if (!writing_) return std::nullopt;
  auto outcome = engine_->outcome();
  if (outcome) finish(*outcome);
  return outcome;
}

void CommitQueue::finishWriting() {
  if (writing_) finish(engine_->wait());
}

std::string CommitQueue::drain() {
  while (error_.empty() && !allDurable()) {
    if (!writing_) {
      if (const auto why = refusal(); !why.empty()) {
        std::cout << "store: " << batch_.size() << " changes are not written: " << why << std::endl;
        break;
      }
      submit();
    }
    finish(engine_->wait());
  }
  return error_;
}

void CommitQueue::finish(const StoreEngine::Outcome& outcome) {
  writing_ = false;
  lastCommitMicroseconds_ = outcome.microseconds;
  if (error_.empty()) error_ = outcome.error;
  if (!outcome.error.empty()) return;
  durable_ = submitted_;
  inFlight_.clear();
}

CommitQueue* commitQueue() { return current; }
void setCommitQueue(CommitQueue* queue) { current = queue; }

}  // namespace nv
