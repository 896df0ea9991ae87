/// The message: a typed key/value record. Everything received, stored, replied or announced is one.
///
///     nv::message m{{key::objectId, 7}, {key::name, "printer"}};
///     m.insert(key::dynamic, true).append(key::about, "in the hall");
///     unsigned id = m.get(key::objectId);              // 7
///     unsigned flags = m.get(key::getFlags, 5);        // absent: the default given
///     for (std::string_view text : m.view(key::about)) // read in place, nothing copied
///       ...
///
/// A message holds at most one field for a type and id; the order of inserts leaves no trace. It
/// *is* its flat form, one buffer of bytes, and equal contents are equal bytes:
///
///     u32 length, u32 n, u32 nin | n entries {u32 uid, u32 val}, ascending by uid | heap
///
/// `length` is that of the whole, a multiple of 4. The first `nin` entries are the bool and u32
/// fields, whose `val` is the value. The `val` of each other field is the offset of its value in
/// the heap, a multiple of 4, plus the number of zero bytes (0 to 3) that pad it; values stand in
/// the order of the entries, without gaps. All numbers are little-endian. The flat form of an empty
/// message is no bytes.
///
/// No operation fails: an absent field reads as its zero value (false, 0, empty) or the default
/// given, removing it does nothing, an insert succeeds (beyond `kMaxSize` bytes the program ends,
/// as it does when memory is out). Messages are independent values; a moved-from one is empty.
/// Values given to a message may be views of that same message. Any change ends the views and
/// fields taken before it.
#pragma once

#include <initializer_list>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/export.h"
#include "platform/field.h"

namespace nv {

class CONFKIT_API message {
 public:
  /// The longest flat form, in bytes.
  static constexpr std::uint32_t kMaxSize = 0x40000000;
  /// How deep messages may be nested in bytes from outside: a message within a message is depth 1.
  static constexpr unsigned kMaxDepth = 32;
  /// Instead of a depth: nested messages are any bytes, which are judged when they are read.
  static constexpr unsigned kNestedUnread = ~0u;
  /// Flat forms up to this many bytes stand in the message itself, longer ones in memory of their
  /// own.
  static constexpr std::uint32_t kInlineSize = 244;

  message() noexcept : data_(inline_), capacity_(kInlineSize) { clear(); }
  /// All fields of a list at once, in any order; of two values for one field the later one counts.
  message(std::initializer_list<field_value> fields);
  explicit message(std::span<const field_value> fields);
  message(const message& other) : data_(inline_), capacity_(kInlineSize) {
    if (other.length() > kInlineSize) allocate(other.length());
    std::memcpy(data_, other.data_, other.length());
  }
  message(message&& other) noexcept { take(other); }
  /// The message whose flat form is given; empty when the bytes are not the flat form of a message.
  message(const flat_message& flat) : message(flat_view(flat)) {}
  explicit message(flat_view flat);
  ~message() { release(); }

  message& operator=(const message& other);
  message& operator=(message&& other) noexcept;
  message& operator=(const flat_message& flat) { return *this = message(flat); }
  void swap(message& other) noexcept;
  friend void swap(message& a, message& b) noexcept { a.swap(b); }

  // The flat form.

  /// The message in `bytes`, none when they are not a flat form or nest messages deeper than
  /// `depth`.
  static std::optional<message> parse(byte_view bytes, unsigned depth = kMaxDepth);
  /// Why `parse` refuses `bytes`, in a few words; empty when it does not.
  static std::string_view check(byte_view bytes, unsigned depth = kMaxDepth);
  /// Replaces `out` by the flat form.
  void flatten(std::vector<unsigned char>& out) const { out.assign(data_, data_ + max_length()); }
  flat_message flat() const { return flat_message(flat_view(bytes())); }
  /// The flat form where it stands; valid until the message changes.
  byte_view bytes() const { return {data_, max_length()}; }
  operator flat_view() const { return bytes(); }
  /// The length of the flat form, exactly, in bytes.
  unsigned max_length() const { return empty() ? 0 : length(); }

  // The whole message.

  bool empty() const { return count() == 0; }
  /// The number of fields.
  std::size_t count() const { return load32(data_ + kCountAt); }
  /// Drops all fields and keeps the memory.
  void clear() noexcept {
    store32(data_, kHeaderSize);
    store32(data_ + 4, 0);
    store32(data_ + 8, 0);
  }
  /// Same fields with equal values.
  bool operator==(const message& other) const;
  /// Inserts every field of `other`.
  void merge(const message& other);
  /// Drops every field that `other` holds with an equal value.
  void exclude(const message& other);
  /// Writes the fields as text within braces, `_u` and the like naming their types. Each line but
  /// the first begins with `prefix` and `indent` spaces, `step` more for each level; with `step` 0
  /// all stands on one line. Leaves the stream's format alone.
  void dump2(std::ostream& os, std::string_view prefix, unsigned indent, unsigned step) const;
  void dump2(std::ostream& os, std::string_view prefix, unsigned step) const {
    dump2(os, prefix, 0, step);
  }

  // One field.

  template <TypedId T>
  bool has(T id) const {
    return holds(id.uid());
  }
  template <TypedId T>
  typename IdTraits<T>::type get(T id) const {
    return owned<T>(view(id));
  }
  /// The value, or `absent` when there is none.
  template <TypedId T>
  typename IdTraits<T>::type get(T id, typename IdTraits<T>::set_type absent) const {
    if constexpr (isWord<T>) {
      return static_cast<typename IdTraits<T>::type>(word(id.uid(), absent));
    } else {
      return has(id) ? get(id) : owned<T>(absent);
    }
  }
  /// The value in place, for types that `get` would copy.
  template <TypedId T>
  typename IdTraits<T>::view_type view(T id) const {
    if constexpr (isWord<T>) {
      return static_cast<typename IdTraits<T>::type>(word(id.uid(), 0));
    } else {
      return field::read<T>(valueOf(id.uid()));
    }
  }
  /// Sets the field, whatever it held.
  template <TypedId T>
  message& insert(T id, typename IdTraits<T>::set_type value) {
    if constexpr (isWord<T>) {
      setWord(id.uid(), value);
    } else if constexpr (std::is_same_v<T, u64_id>) {
      setNumber(id.uid(), value);
    } else if constexpr (isListOfViews<T>) {
      setList(id.uid(), value);
    } else {
      setBytes(id.uid(), field_value::rawBytes(value));
    }
    return *this;
  }
  template <TypedId T>
  void remove(T id) {
    erase(id.uid());
  }

  // Array fields.

  /// The array `id` of this message: `m[id].insert(all)`, `m[id].append(one)`.
  template <ArrayId T>
  typename IdTraits<T>::ref_type operator[](T id) {
    return {*this, id};
  }
  /// Adds an element at the end, creating the array when absent.
  template <ArrayId T>
  message& append(T id, typename IdTraits<T>::elem_set_type element) {
    if constexpr (isListOfViews<T>) {
      appendView(id.uid(), bytesOf(element));
    } else {
      appendItem(id.uid(), {reinterpret_cast<const unsigned char*>(&element), sizeof element});
    }
    return *this;
  }
  /// The number of elements, 0 when absent.
  template <ArrayId T>
  unsigned size(T id) const {
    return static_cast<unsigned>(view(id).size());
  }
  template <std::same_as<u32_array_id> T>
  bool hasElem(T id, unsigned element) const {
    for (const unsigned held : view(id)) {
      if (held == element) return true;
    }
    return false;
  }
  /// Removes every occurrence of `element`; an array left empty stays.
  template <std::same_as<u32_array_id> T>
  void remove(T id, unsigned element) {
    removeElement(id.uid(), element);
  }
  void insert_vector(u32_array_id id, unsigned a) { insert(id, {a}); }
  void insert_vector(u32_array_id id, unsigned a, unsigned b) { insert(id, {a, b}); }

  // Fields by UId, for code that treats all types alike.

  /// The field that `uid` names. Bits 26 to 24 of `uid` are not read; one of no type names none.
  std::optional<field> find(std::uint32_t uid) const;
  /// Inserts a field of any message, this one included.
  void insert(const field& f);
  /// Removes the field that `uid` names.
  void erase(std::uint32_t uid);

  /// Goes through the fields, ascending by UId: `for (nv::field f : m)`.
  class iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = field;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = field;

    iterator(const message* owner, std::uint32_t at) : owner_(owner), at_(at) {}
    field operator*() const { return owner_->fieldAt(at_); }
    iterator& operator++() { return at_ += kEntrySize, *this; }
    iterator operator++(int) {
      const iterator before = *this;
      return ++*this, before;
    }
    bool operator==(const iterator&) const = default;

   private:
    const message* owner_;
    std::uint32_t at_;
  };
  iterator begin() const { return {this, kHeaderSize}; }
  iterator end() const {
    return {this, kHeaderSize + kEntrySize * static_cast<std::uint32_t>(count())};
  }

 private:
  static constexpr std::uint32_t kHeaderSize = 12;
  static constexpr std::uint32_t kEntrySize = 8;
  static constexpr std::uint32_t kCountAt = 4;

  template <class T>
  static constexpr bool isWord = std::is_same_v<T, bool_id> || std::is_same_v<T, u32_id>;
  template <class T>
  static constexpr bool isListOfViews =
      std::is_base_of_v<byte_list, typename IdTraits<T>::set_type>;

  template <class T, class V>
  static typename IdTraits<T>::type owned(const V& value);

  // Reading. Entries are named by where they are, in bytes from the beginning.
  std::uint32_t length() const { return load32(data_); }
  bool holds(std::uint32_t uid) const;
  std::uint32_t word(std::uint32_t uid, std::uint32_t absent) const;
  byte_view valueOf(std::uint32_t uid) const;
  field fieldAt(std::uint32_t at) const;
  /// Whether `p` points into this message.
  bool owns(const unsigned char* p) const {
    return reinterpret_cast<std::uintptr_t>(p) - reinterpret_cast<std::uintptr_t>(data_) < length();
  }

  // Writing whole values.
  void setWord(std::uint32_t uid, std::uint32_t value);
  void setField(std::uint32_t at, bool held, const field& f);
  void setNumber(std::uint32_t uid, std::uint64_t value);
  void setBytes(std::uint32_t uid, byte_view value);
  void setList(std::uint32_t uid, const byte_list& list);
  unsigned char* setValue(std::uint32_t uid, byte_view value);
  void appendItem(std::uint32_t uid, byte_view element);
  void appendView(std::uint32_t uid, byte_view element);
  void removeElement(std::uint32_t uid, std::uint32_t element);

  // Making room; a `size` is that of the value, without padding.
  unsigned char* room(std::uint32_t uid, std::uint64_t size);
  unsigned char* addValue(std::uint32_t at, std::uint32_t uid, std::uint64_t size);
  unsigned char* resizeValue(std::uint32_t at, std::uint64_t size);
  [[gnu::noinline]] void addWord(std::uint32_t at, std::uint32_t uid, std::uint32_t value);
  void eraseAt(std::uint32_t at);
  void shiftOffsets(std::uint32_t from, std::uint32_t delta);
  unsigned char* closeValue(std::uint32_t at, std::uint32_t size);

  // The buffer.
  void allocate(std::uint32_t size);
  void reserve(std::uint64_t size) {
    if (size > capacity_) enlarge(size);
  }
  void enlarge(std::uint64_t size);
  void mergeAll(const message& other);
  /// A message of the fields that are wanted.
  template <class Wanted>
  message only(Wanted isWanted) const;
  void assign(byte_view bytes);
  void take(message& other) noexcept;
  void release() noexcept {
    if (data_ != inline_) delete[] data_;
  }

  friend CONFKIT_API void merge(message& target, const message& source, message& prior);

  // The flat form, its header included even when there is no field: in `inline_`, or in `capacity_`
  // bytes of its own.
  unsigned char* data_;
  std::uint32_t capacity_;
  alignas(std::uint32_t) unsigned char inline_[kInlineSize];
};

/// An array field of a message, named but not read; valid while the message lives.
template <ArrayId T>
class array_ref {
 public:
  array_ref(message& owner, T id) : owner_(owner), id_(id) {}

  /// Sets the whole array.
  void insert(typename IdTraits<T>::set_type all) { owner_.insert(id_, all); }
  array_ref& operator=(typename IdTraits<T>::set_type all) { return insert(all), *this; }
  /// Adds an element at the end, creating the array when absent.
  void append(typename IdTraits<T>::elem_set_type element) { owner_.append(id_, element); }

 private:
  message& owner_;
  T id_;
};

/// Inserts every field of `source` into `target`. Of each field that both held with different
/// values, the earlier value goes into `prior`; fields that were added or equal leave no trace
/// there. A removal list is a field like any other. `prior` is not cleared first, and must not be
/// `target`.
CONFKIT_API void merge(message& target, const message& source, message& prior);

/// An error reply with a code of `nv::err`, or of the service's own, and a text.
CONFKIT_API message errorMsg(unsigned code, std::string_view text);
/// The error reply of a refusal that the text explains: `err::failed`.
CONFKIT_API message failedMsg(std::string_view text);
/// Whether `reply` is an error reply, whatever its code. If so, writes code and text where not
/// null.
CONFKIT_API bool isError(const message& reply, unsigned* code = nullptr,
                         std::string* text = nullptr);
/// The text of an error reply, empty for any other.
CONFKIT_API std::string getError(const message& reply);
/// Removes the fields that the bus and the requester put around a request: those with ids 0xff00xx.
CONFKIT_API void cleanSys(message& request);

template <class T, class V>
typename IdTraits<T>::type message::owned(const V& value) {
  if constexpr (ArrayId<T>) {
    typename IdTraits<T>::type all;
    all.reserve(value.size());
    for (std::size_t k = 0; k < value.size(); ++k) all.push_back(ownedOf(value[k]));
    return all;
  } else {
    return ownedOf(value);
  }
}

}  // namespace nv
