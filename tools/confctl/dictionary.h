/// The names of fields.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/message.h"

namespace confctl {

/// Says which field a name means, and the other way round. Names are the words of a service's own
/// dictionary, words for the platform's keys, and for every field its number and type suffix
/// ("7_u").
///
/// A service's words go before the platform's. Of two entries for one word or one field the first
/// counts. Entries with a word that could not be typed, or a field of no type, are left out.
class Dictionary {
 public:
  struct Key {
    std::uint32_t uid;
    std::string word;
    std::string about;
  };

  /// The platform's words alone.
  Dictionary();
  /// With the words of a handler, from its answer to cmd::describe.
  explicit Dictionary(const nv::message& description);

  std::optional<std::uint32_t> uidOf(std::string_view name) const;
  /// Requires: `uid` is of a known type.
  std::string nameOf(std::uint32_t uid) const;

  /// The keys of the service, in its order.
  const std::vector<Key>& keys() const { return keys_; }

  /// The fields of `m`, the dictionary's in its order before the others.
  std::vector<nv::field> fieldsOf(const nv::message& m) const;

 private:
  bool add(std::uint32_t uid, std::string_view word);
  void addPlatformWords();

  std::vector<Key> keys_;
  std::map<std::string, std::uint32_t, std::less<>> uids_;
  struct Entry {
    std::string word;
    std::size_t rank;
  };
  std::map<std::uint32_t, Entry> words_;
};

/// What kind of value the field holds: "u32", "address list".
std::string typeName(std::uint32_t uid);

}  // namespace confctl
