#include "cfgman/loading_order.h"

#include <algorithm>
#include <utility>

#include "platform/keys.h"

namespace {

/// The chain of a store taken apart from its end.
class Unchaining {
 public:
  explicit Unchaining(const nv::Store& store);
  std::vector<std::uint32_t> run() &&;

 private:
  /// A record and the one that it names.
  struct Step {
    std::uint32_t next, id;
    bool operator<(const Step& other) const {
      return next != other.next ? next < other.next : id < other.id;
    }
  };

  void take(std::uint32_t id);
  void takeStep();

  std::vector<std::uint32_t> ends_;  // to be taken, the last one first
  std::vector<Step> steps_;          // ascending; those before `at_` are done with
  std::vector<bool> done_;
  std::size_t at_ = 0;
  nv::Allocator left_{0, nv::kHeadId};  // records that are not in `order_` yet
  std::vector<std::uint32_t> order_;
};

Unchaining::Unchaining(const nv::Store& store) {
  for (const auto id : store.ids()) {
    if (id == nv::kNoId) continue;
    if (id != nv::kHeadId) left_.allocate(id);
    const auto next = store.get(id).get(nv::key::nextId, nv::kNoId);
    if (next == id || next >= nv::kHeadId || !store.has(next))
      ends_.push_back(id);
    else
      steps_.push_back({next, id});
  }
  std::sort(steps_.begin(), steps_.end());
  done_.resize(steps_.size());
  order_.reserve(static_cast<std::size_t>(left_.used()));
}

std::vector<std::uint32_t> Unchaining::run() && {
  while (true) {
    if (!ends_.empty()) {
      const auto id = ends_.back();
      ends_.pop_back();
      take(id);
    } else if (at_ < steps_.size()) {
      takeStep();
    } else {
      break;
    }
  }
  for (const auto id : left_) order_.push_back(id);
  return std::move(order_);
}

/// Only cycles are left: the smallest id that is named goes first, and whoever names it stays
/// behind.
void Unchaining::takeStep() {
  if (done_[at_]) {
    ++at_;
    return;
  }
  done_[at_] = true;
  take(steps_[at_++].next);
}

void Unchaining::take(std::uint32_t id) {
  if (left_.isAllocated(id)) {
    left_.free(id);
    order_.push_back(id);
  }
  const auto first = std::lower_bound(steps_.begin(), steps_.end(), Step{id, 0});
  for (auto at = first; at != steps_.end() && at->next == id; ++at) {
    const auto k = static_cast<std::size_t>(at - steps_.begin());
    if (done_[k]) continue;
    done_[k] = true;
    ends_.push_back(at->id);
  }
}

}  // namespace

std::vector<std::uint32_t> loadingOrder(const nv::Store& store) { return Unchaining(store).run(); }
