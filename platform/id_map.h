/// Objects by 32-bit id, ascending: what a container indexes its elements with.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

namespace nv {

/// An ordered map from ids to pointers. Does not own what it points to.
///
/// Ids are given out from below and so lie close together. Each 32 neighbours share a page, each 32
/// pages a book, and the books stand in a tree. A look-up among a million objects then reads a few
/// lines of memory that are not at hand, where a tree of the ids would read ten or more, and an
/// index entry takes little more than a pointer. The price is a page and a book (300 bytes on a
/// 32-bit machine) for each id without neighbours.
///
/// A position stays valid while its object is in the map.
template <class T>
class IdMap {
  static constexpr std::uint32_t kFan = 32;
  static constexpr std::uint32_t kBookSize = kFan * kFan;

  /// Which of 32 places are taken.
  class Places {
   public:
    bool has(std::uint32_t k) const { return (bits_ >> k & 1) != 0; }
    void take(std::uint32_t k) { bits_ |= std::uint32_t{1} << k; }
    void free(std::uint32_t k) { bits_ &= ~(std::uint32_t{1} << k); }
    bool empty() const { return bits_ == 0; }
    /// The lowest taken place from `k` on, 32 when there is none.
    std::uint32_t from(std::uint32_t k) const {
      if (k == kFan) return kFan;
      return static_cast<std::uint32_t>(std::countr_zero(bits_ & ~std::uint32_t{0} << k));
    }

   private:
    std::uint32_t bits_ = 0;
  };

  struct Page {
    Places used;
    std::array<T*, kFan> objects{};
  };

  /// Objects by the low ten bits of their ids, in pages of which none is empty.
  class Book {
   public:
    /// Null when there is none. Reads nothing but the two pointers.
    T* get(std::uint32_t k) const {
      const Page* page = pages_[k / kFan].get();
      return page == nullptr ? nullptr : page->objects[k % kFan];
    }
    bool empty() const { return used_.empty(); }
    /// The lowest number from `k` on that has an object, kBookSize when there is none.
    std::uint32_t from(std::uint32_t k) const {
      std::uint32_t page = k / kFan;
      if (page < kFan && used_.has(page)) {
        const std::uint32_t slot = pages_[page]->used.from(k % kFan);
        if (slot < kFan) return page * kFan + slot;
        ++page;
      }
      page = used_.from(page);
      return page == kFan ? kBookSize : page * kFan + pages_[page]->used.from(0);
    }
    void put(std::uint32_t k, T* object) {
      auto& page = pages_[k / kFan];
      if (!page) page = std::make_unique<Page>();
      used_.take(k / kFan);
      page->used.take(k % kFan);
      page->objects[k % kFan] = object;
    }
    void drop(std::uint32_t k) {
      auto& page = pages_[k / kFan];
      page->used.free(k % kFan);
      page->objects[k % kFan] = nullptr;
      if (!page->used.empty()) return;
      page.reset();
      used_.free(k / kFan);
    }

   private:
    Places used_;
    std::array<std::unique_ptr<Page>, kFan> pages_;
  };
  using Books = std::map<std::uint32_t, Book>;  // by id / kBookSize, none empty

 public:
  using value_type = std::pair<std::uint32_t, T*>;

  /// Goes through the ids, ascending: `for (auto [id, object] : map)`.
  class iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = IdMap::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;
    struct pointer {
      value_type value;
      const value_type* operator->() const { return &value; }
    };

    value_type operator*() const {
      return {book_->first * kBookSize + place_, book_->second.get(place_)};
    }
    pointer operator->() const { return {**this}; }
    iterator& operator++() {
      place_ = book_->second.from(place_ + 1);
      settle();
      return *this;
    }
    bool operator==(const iterator& other) const {
      return book_ == other.book_ && place_ == other.place_;
    }

   private:
    friend class IdMap;
    iterator(const Books& books, typename Books::const_iterator book, std::uint32_t place)
        : books_(&books), book_(book), place_(place) {}
    /// Goes on to the next book from behind the last place of one.
    void settle() {
      if (place_ < kBookSize) return;
      place_ = ++book_ == books_->end() ? 0 : book_->second.from(0);
    }

    const Books* books_;
    typename Books::const_iterator book_;
    std::uint32_t place_;  // 0 at the end
  };

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  iterator begin() const { return lower_bound(0); }
  iterator end() const { return {books_, books_.end(), 0}; }

  bool contains(std::uint32_t id) const { return get(id) != nullptr; }
  /// The object `id`, null when there is none.
  T* get(std::uint32_t id) const {
    const auto book = books_.find(id / kBookSize);
    return book == books_.end() ? nullptr : book->second.get(id % kBookSize);
  }
  /// The position of `id`, or the end.
  iterator find(std::uint32_t id) const {
    const auto book = books_.find(id / kBookSize);
    const bool isThere = book != books_.end() && book->second.get(id % kBookSize) != nullptr;
    return isThere ? iterator{books_, book, id % kBookSize} : end();
  }
  /// The position of the lowest id that is not below `id`, or the end.
  iterator lower_bound(std::uint32_t id) const {
    const auto book = books_.lower_bound(id / kBookSize);
    if (book == books_.end()) return end();
    const bool isOwn = book->first == id / kBookSize;
    iterator at{books_, book, book->second.from(isOwn ? id % kBookSize : 0)};
    at.settle();
    return at;
  }

  /// Puts `object`, not null, under `id`; one that is there already stays. Tells where it is, and
  /// whether it is the new one.
  std::pair<iterator, bool> emplace(std::uint32_t id, T* object) {
    const auto book = books_.try_emplace(id / kBookSize).first;
    const std::uint32_t place = id % kBookSize;
    const bool isNew = book->second.get(place) == nullptr;
    if (isNew) {
      book->second.put(place, object);
      ++size_;
    }
    return {iterator{books_, book, place}, isNew};
  }
  /// Takes the object `id` out; null when there is none.
  T* take(std::uint32_t id) {
    const auto book = books_.find(id / kBookSize);
    if (book == books_.end()) return nullptr;
    const std::uint32_t place = id % kBookSize;
    T* const object = book->second.get(place);
    if (object == nullptr) return nullptr;
    book->second.drop(place);
    if (book->second.empty()) books_.erase(book);
    --size_;
    return object;
  }

 private:
  Books books_;
  std::size_t size_ = 0;
};

}  // namespace nv
