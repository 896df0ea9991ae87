// A message against a plain map of values, over random edits of all fourteen types.
#include <map>
#include <variant>

#include <gtest/gtest.h>

#include "platform/message.h"
#include "tests/support/random.h"
#include "tests/support/random_message.h"

namespace nv {
namespace {

using value = std::variant<bool, std::uint32_t, std::uint64_t, addr6, std::string, flat_message,
                           std::vector<unsigned char>, std::vector<std::uint32_t>,
                           std::vector<std::uint64_t>, std::vector<addr6>, std::vector<std::string>,
                           std::vector<flat_message>, std::vector<std::vector<unsigned char>>>;
using model = std::map<std::uint32_t, value>;

constexpr unsigned kIds = 5;

class edits {
 public:
  explicit edits(unsigned seed) : random_(seed) {}

  void step() {
    static constexpr void (edits::*kKinds[])() = {
        &edits::insert,  &edits::insert,        &edits::insert, &edits::remove,
        &edits::append,  &edits::removeElement, &edits::merge,  &edits::mergeWithPrior,
        &edits::exclude, &edits::travel,        &edits::rebuild};
    (this->*kKinds[random_.below(std::size(kKinds))])();
  }

  void verify() {
    ASSERT_EQ(message::check(message_.bytes()), "");
    ASSERT_EQ(message_.count(), model_.size());
    auto expected = model_.begin();
    for (const field f : message_) {
      ASSERT_EQ(f.uid(), expected->first);
      withId(f.uid(), [&]<TypedId T>(T id) {
        const auto& own = std::get<typename IdTraits<T>::type>(expected->second);
        ASSERT_EQ(message_.get(id), own);
        if constexpr (ArrayId<T>) {
          ASSERT_EQ(message_.size(id), own.size());
        }
      });
      ++expected;
    }
    withId(random_.uid(kIds), [&]<TypedId T>(T id) {
      const bool there = model_.contains(id.uid());
      ASSERT_EQ(message_.has(id), there);
      ASSERT_TRUE(there || message_.get(id) == typename IdTraits<T>::type());
    });
    ASSERT_EQ(message_, build(model_)) << "the order of edits shows";
  }

 private:
  static void put(message& m, std::uint32_t uid, const value& v) {
    withId(uid, [&](auto id) { m.insert(id, std::get<typename IdTraits<decltype(id)>::type>(v)); });
  }

  value randomValue(std::uint32_t uid) {
    value made;
    withId(uid, [&](auto id) { made = random_.value<decltype(id)>(); });
    return made;
  }

  model randomModel(unsigned fields) {
    model made;
    for (unsigned k = 0; k < fields; ++k) {
      const std::uint32_t uid = random_.uid(kIds);
      made[uid] = !model_.contains(uid) || random_.oneIn(2) ? randomValue(uid) : model_[uid];
    }
    return made;
  }

  static message build(const model& fields) {
    message m;
    for (const auto& [uid, v] : fields) put(m, uid, v);
    return m;
  }

  void insert() {
    const std::uint32_t uid = random_.uid(kIds);
    model_[uid] = randomValue(uid);
    put(message_, uid, model_[uid]);
  }

  void remove() {
    const std::uint32_t uid = random_.uid(kIds);
    model_.erase(uid);
    withId(uid, [&](auto id) { message_.remove(id); });
  }

  void append() {
    withId(random_.uid(kIds) | 0x80000000, [&]<TypedId T>(T id) {
      if constexpr (ArrayId<T>) {
        using list = typename IdTraits<T>::type;
        const list added = random_.value<T>();
        if (!added.empty() || model_.contains(id.uid())) model_.try_emplace(id.uid(), list{});
        for (const auto& element : added) {
          std::get<list>(model_[id.uid()]).push_back(element);
          message_[id].append(element);
        }
      }
    });
  }

  void removeElement() {
    const u32_array_id id(1 + random_.below(kIds));
    const unsigned element = random_.below(4);
    std::size_t erased = 0;
    if (const auto it = model_.find(id.uid()); it != model_.end()) {
      erased = std::erase(std::get<std::vector<std::uint32_t>>(it->second), element);
    }
    EXPECT_EQ(message_.hasElem(id, element), erased > 0);
    message_.remove(id, element);
  }

  void merge() {
    if (random_.oneIn(8)) return message_.merge(message_);
    const model other = randomModel(random_.below(20));
    message_.merge(build(other));
    for (const auto& [uid, v] : other) model_[uid] = v;
  }

  void mergeWithPrior() {
    const model other = randomModel(random_.below(20));
    message prior = build(randomModel(random_.below(4)));
    message expected = prior;
    for (const auto& [uid, v] : other) {
      const auto old = model_.find(uid);
      if (old != model_.end() && old->second != v) put(expected, uid, old->second);
      model_[uid] = v;
    }
    nv::merge(message_, build(other), prior);
    EXPECT_EQ(prior, expected);
  }

  void exclude() {
    if (random_.oneIn(8)) return model_.clear(), message_.exclude(message_);
    const model other = randomModel(random_.below(20));
    message_.exclude(build(other));
    for (const auto& [uid, v] : other) {
      const auto own = model_.find(uid);
      if (own != model_.end() && own->second == v) model_.erase(own);
    }
  }

  /// Out through the flat form and back, with copies, moves and swaps on the way.
  void travel() {
    std::vector<unsigned char> flat(random_.below(64), 0xee);
    message_.flatten(flat);
    ASSERT_EQ(flat.size(), message_.max_length());
    message back{flat_message(flat)};
    message copy = back;
    ASSERT_EQ(copy, message_);
    ASSERT_EQ(kept_, build(keptModel_)) << "a copy has changed";
    kept_ = copy;
    keptModel_ = model_;
    message_.clear();
    message_ = random_.oneIn(2) ? back : std::move(copy);
    message other;
    other.swap(message_);
    message_ = std::move(other);
    ASSERT_TRUE(other.empty());  // NOLINT(bugprone-use-after-move): that is what is tested
    message_ = *&message_;
  }

  /// Built from a list of fields at once, in descending order.
  void rebuild() {
    std::vector<field_value> list;
    for (auto it = model_.rbegin(); it != model_.rend(); ++it) {
      withId(it->first, [&](auto id) {
        list.emplace_back(id, std::get<typename IdTraits<decltype(id)>::type>(it->second));
      });
    }
    message_ = message(std::span<const field_value>(list));
  }

  testkit::random_source random_;
  message message_, kept_;
  model model_, keptModel_;
};

TEST(MessageModel, RandomEditsLeaveWhatAPlainMapHolds) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (unsigned run = 0; run < 20; ++run) {
    edits edited(random.below(1u << 31));
    for (unsigned k = 0; k < 300; ++k) {
      edited.step();
      edited.verify();
      if (HasFailure()) return;
    }
  }
}

}  // namespace
}  // namespace nv
