/// A process with stores and without a loop.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/message.h"
#include "platform/src/store/commit_queue.h"

namespace store_test {

inline nv::message number(unsigned n) { return nv::message().insert(nv::u32_id(1), n); }
inline unsigned numberIn(const nv::message& m) { return m.get(nv::u32_id(1), 0xffffffff); }

/// A process with stores; what it did not write by `finish` is lost with it.
class Process {
 public:
  explicit Process(std::unique_ptr<nv::StoreEngine> engine) : queue_(std::move(engine)) {
    nv::setCommitQueue(&queue_);
  }
  ~Process() { nv::setCommitQueue(nullptr); }
  std::string finish() { return queue_.drain(); }
  nv::CommitQueue& queue() { return queue_; }

 private:
  nv::CommitQueue queue_;
};

}  // namespace store_test
