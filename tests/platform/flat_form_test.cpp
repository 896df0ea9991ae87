// Bytes from outside: each kind of damage by name, then every cut and every changed byte.
#include <gtest/gtest.h>

#include "platform/keys.h"
#include "platform/message.h"
#include "tests/support/random_message.h"

namespace nv {
namespace {

using bytes = std::vector<unsigned char>;

/// Bytes from 32-bit numbers, their length before them.
bytes words(std::initializer_list<std::uint32_t> numbers) {
  bytes made(4 + numbers.size() * 4);
  store32(made.data(), static_cast<std::uint32_t>(made.size()));
  unsigned char* at = made.data() + 4;
  for (const std::uint32_t number : numbers) {
    store32(at, number);
    at += 4;
  }
  return made;
}

constexpr std::uint32_t kU32 = 0x08000001;
constexpr std::uint32_t kU64 = 0x10000001;
constexpr std::uint32_t kAddr6 = 0x18000001;
constexpr std::uint32_t kString = 0x20000001;
constexpr std::uint32_t kMessage = 0x28000001;
constexpr std::uint32_t kBools = 0x80000001;
constexpr std::uint32_t kU32s = 0x88000001;
constexpr std::uint32_t kU64s = 0x90000001;
constexpr std::uint32_t kAddr6s = 0x98000001;
constexpr std::uint32_t kStrings = 0xa0000001;
constexpr std::uint32_t kMessages = 0xa8000001;

const struct {
  const char* what;
  bytes flat;
  const char* fault;
} kHostile[] = {
    {"part of a header", words({1}), "shorter than the header"},
    {"the empty message with a header", words({0, 0}), "no field"},
    {"an odd length", {13, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}, "length is not a multiple of 4"},
    {"another length", bytes(24), "not as long as it says"},
    {"a count beyond the bytes", words({2, 2, kU32, 1}), "more fields than bytes"},
    {"a count that overflows", words({0x20000001, 1, kU32, 1}), "more fields than bytes"},
    {"the largest count", words({0xffffffff, 0, kU32, 1}), "more fields than bytes"},
    {"more words than fields", words({1, 2, kU32, 1}), "more words than fields"},
    {"a value counted as a word", words({1, 1, kString, 0}), "wrong number of words"},
    {"a word counted as a value", words({1, 0, kU32, 0}), "wrong number of words"},
    {"trailing bytes after words", words({1, 1, kU32, 1, 0}), "bytes after the last value"},
    {"base type 7", words({1, 0, 0x38000001, 0}), "unknown type"},
    {"array of base type 7", words({1, 0, 0xb8000001, 0}), "unknown type"},
    {"a bit that belongs to nobody", words({1, 1, 0x09000001, 0}), "unknown type"},
    {"one field twice", words({2, 2, kU32, 1, kU32, 1}), "fields out of order"},
    {"descending fields", words({2, 2, kU32 + 1, 1, kU32, 1}), "fields out of order"},
    {"flag 2", words({1, 1, 1, 2}), "flag is neither 0 nor 1"},
    {"second flag 256", words({3, 3, 1, 1, 2, 256, kU32, 9}), "flag is neither 0 nor 1"},
    {"a gap before the first value", words({1, 0, kString, 4, 0, 0}), "gap between values"},
    {"values that overlap", words({2, 0, kString, 0, kString + 1, 0xfffffffc, 0}),
     "value beyond the end"},
    {"a value beyond the end", words({2, 0, kString, 0, kString + 1, 64, 0}),
     "value beyond the end"},
    {"more padding than value", words({1, 0, kString, 3}), "value beyond the end"},
    {"padding that is not zero", words({1, 0, kString, 3, 0x100}), "padding is not zero"},
    {"a short u64", words({1, 0, kU64, 0, 1}), "wrong size of a value"},
    {"a padded u64", words({1, 0, kU64, 1, 1, 0}), "wrong size of a value"},
    {"an absent u64", words({1, 0, kU64, 0}), "wrong size of a value"},
    {"a long address", words({1, 0, kAddr6, 0, 0, 0, 0, 0, 0}), "wrong size of a value"},
    {"a flag 2 in an array", words({1, 0, kBools, 0, 0x02000101}), "flag is neither 0 nor 1"},
    {"part of a u32", words({1, 0, kU32s, 1, 7}), "part of an element"},
    {"part of a u64", words({1, 0, kU64s, 0, 7}), "part of an element"},
    {"part of an address", words({1, 0, kAddr6s, 0, 7, 7}), "part of an element"},
    {"a list without a count", words({1, 0, kStrings, 0}), "list without a count"},
    {"a list cut within its count", words({1, 0, kStrings, 1, 0}), "list without a count"},
    {"a list with too high a count", words({1, 0, kStrings, 0, 2, 0}), "more elements than bytes"},
    {"a list with the largest count", words({1, 0, kStrings, 0, 0xffffffff, 0}),
     "more elements than bytes"},
    {"an element beyond the list", words({1, 0, kStrings, 0, 1, 5, 0}), "element beyond the end"},
    {"elements that go back", words({1, 0, kStrings, 0, 2, 4, 3, 0}), "element beyond the end"},
    {"bytes after the last element", words({1, 0, kStrings, 0, 1, 3, 0}),
     "bytes after the last element"},
    {"bytes after a list of none", words({1, 0, kStrings, 0, 0, 0}),
     "bytes after the last element"},
    {"a nested message that is none", words({1, 0, kMessage, 0, 7}), "shorter than the header"},
    {"a nested empty message with a header", words({1, 0, kMessage, 0, 12, 0, 0}), "no field"},
    {"an element that is no message", words({1, 0, kMessages, 0, 1, 4, 7}),
     "shorter than the header"},
};

TEST(FlatForm, HostileBytesAreRefusedWithAReasonAndReadAsEmpty) {
  for (const auto& row : kHostile) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(message::check(row.flat), row.fault);
    EXPECT_FALSE(message::parse(row.flat));
    message m{{u32_id(1), 1}};
    m = flat_message(row.flat);
    EXPECT_EQ(m, message());
  }
}

TEST(FlatForm, IsWhatTheHeaderSays) {
  const message m{{string_id(1), "abcde"}, {u32_id(1), 7}, {string_array_id(1), {"x", "yz"}}};
  EXPECT_EQ(m.flat(), flat_message(words({3, 1, kU32, 7, kString, 0 | 3, kStrings, 8 | 1,  //
                                          0x64636261, 0x65, 2, 1, 3, 0x007a7978})));
}

message nested(unsigned depth) {
  message m{{u32_id(1), 1}};
  for (unsigned level = 0; level < depth; ++level)
    m = level % 2 == 0 ? message{{message_id(1), m}} : message{{message_array_id(1), {m}}};
  return m;
}

TEST(FlatForm, NestingIsRefusedBelowItsLimit) {
  EXPECT_EQ(message::check(nested(message::kMaxDepth).bytes()), "");
  EXPECT_EQ(message::check(nested(message::kMaxDepth + 1).bytes()), "nested too deeply");
  EXPECT_EQ(message::check(nested(3).bytes(), 3), "");
  EXPECT_EQ(message::check(nested(4).bytes(), 3), "nested too deeply");
  EXPECT_EQ(message::check(nested(20000).bytes()), "nested too deeply");
}

/// Samples that hold every type, at least.
std::vector<message> samples() {
  std::vector<message> made;
  testkit::random_source random(7);
  for (const unsigned fields : {1u, 4u, 12u, 40u}) made.push_back(random.someMessage(fields, 3));
  message all{{key::defaultCfg, made[1]}, {key::objects, {made[1], message(), made[2]}}};
  for (std::uint32_t top = 0; top < 32; ++top)
    withId(top << 27 | 9, [&](auto id) { all.insert(id, random.value<decltype(id)>()); });
  made.push_back(all);
  return made;
}

TEST(FlatForm, EveryCutAndEveryExtraByteIsRefusedAndNoAlignmentIsNeeded) {
  for (const message& sample : samples()) {
    bytes shifted(1);
    shifted.insert(shifted.end(), sample.bytes().begin(), sample.bytes().end());
    EXPECT_EQ(message::parse(byte_view(shifted).subspan(1)), sample);
    for (std::size_t length = 1; length < sample.bytes().size(); ++length)
      EXPECT_FALSE(message::parse(byte_view(shifted).subspan(1, length))) << length;
    for (unsigned extra = 0; extra < 16; ++extra) {
      shifted.push_back(0);
      EXPECT_FALSE(message::parse(byte_view(shifted).subspan(1))) << extra;
    }
  }
}

TEST(FlatForm, EveryChangedByteIsRefusedOrLeavesACanonicalMessage) {
  std::size_t accepted = 0;
  for (const message& sample : samples()) {
    bytes flat(sample.bytes().begin(), sample.bytes().end());
    for (std::size_t at = 0; at < flat.size(); ++at) {
      const unsigned char good = flat[at];
      for (const unsigned flip : {1u, 2u, 3u, 4u, 8u, 16u, 0x80u, 0xffu}) {
        flat[at] = static_cast<unsigned char>(good ^ flip);
        const auto parsed = message::parse(flat);
        if (!parsed) continue;
        ++accepted;
        EXPECT_EQ(parsed->flat(), flat_message(flat));
        EXPECT_EQ(testkit::copiedByType(*parsed), *parsed)
            << "byte " << at << " changed by " << flip;
        EXPECT_NE(*parsed, sample);
      }
      flat[at] = good;
    }
  }
  EXPECT_GT(accepted, 0u);
}

}  // namespace
}  // namespace nv
