#include "tools/confctl/dictionary.h"

#include <algorithm>
#include <array>
#include <limits>

#include "platform/describe.h"
#include "platform/keys.h"
#include "tools/confctl/elements.h"

namespace confctl {
namespace {

constexpr std::uint32_t kArrayBit = 0x80000000;
constexpr unsigned kBaseTypes = 7;

bool isWord(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
  });
}

std::optional<std::uint32_t> tagOf(std::string_view suffix) {
  for (std::uint32_t base = 0; base < kBaseTypes; ++base) {
    const std::uint32_t tag = base << 27;
    if (nv::typeSuffix(tag) == suffix) return tag;
    if (nv::typeSuffix(tag | kArrayBit) == suffix) return tag | kArrayBit;
  }
  return {};
}

/// The field that a number and type suffix name.
std::optional<std::uint32_t> numbered(std::string_view name) {
  const auto end = name.find('_');
  if (end == std::string_view::npos) return {};
  const auto id = readNumber(name.substr(0, end), nv::kIdMask);
  const auto tag = tagOf(name.substr(end));
  if (!id || !tag) return {};
  return *tag | static_cast<std::uint32_t>(*id);
}

}  // namespace

Dictionary::Dictionary() { addPlatformWords(); }

Dictionary::Dictionary(const nv::message& description) {
  for (const nv::flat_view flat : description.view(nv::key::objects)) {
    const nv::message entry(flat);
    const std::uint32_t uid = entry.get(nv::describe_key::uid) & (nv::kTypeMask | nv::kIdMask);
    const std::string word = entry.get(nv::describe_key::word);
    if (add(uid, word)) keys_.push_back({uid, word, entry.get(nv::describe_key::line)});
  }
  addPlatformWords();
}

bool Dictionary::add(std::uint32_t uid, std::string_view word) {
  if (!nv::isKnownType(uid) || !isWord(word) || words_.contains(uid) || uids_.contains(word)) {
    return false;
  }
  words_.emplace(uid, Entry{std::string(word), words_.size()});
  uids_.emplace(word, uid);
  return true;
}

void Dictionary::addPlatformWords() {
  add(nv::key::name.uid(), "name");
  add(nv::key::about.uid(), "about");
  add(nv::key::nextId.uid(), "next");
  add(nv::key::dynamic.uid(), "dynamic");
  add(nv::key::absent.uid(), "absent");
  add(nv::key::managedId.uid(), "managed-by");
  add(nv::key::managedConfigs.uid(), "managed-configs");
  add(nv::key::defaultCfg.uid(), "default");
  add(nv::key::objectId.uid(), "id");
  add(nv::key::objects.uid(), "objects");
  add(nv::key::count.uid(), "count");
  add(nv::key::removals.uid(), "removals");
  add(nv::key::command.uid(), "command");
}

std::optional<std::uint32_t> Dictionary::uidOf(std::string_view name) const {
  const auto found = uids_.find(name);
  return found != uids_.end() ? std::optional(found->second) : numbered(name);
}

std::string Dictionary::nameOf(std::uint32_t uid) const {
  const auto found = words_.find(uid);
  if (found != words_.end()) return found->second.word;
  return std::to_string(uid & nv::kIdMask) + std::string(nv::typeSuffix(uid));
}

std::vector<nv::field> Dictionary::fieldsOf(const nv::message& m) const {
  const auto rank = [this](const nv::field& f) {
    const auto found = words_.find(f.uid());
    return found != words_.end() ? found->second.rank : std::numeric_limits<std::size_t>::max();
  };
  std::vector<nv::field> fields(m.begin(), m.end());
  std::ranges::stable_sort(fields, {}, rank);
  return fields;
}

std::string typeName(std::uint32_t uid) {
  constexpr std::array<std::string_view, kBaseTypes> names = {"bool",   "u32",     "u64", "address",
                                                              "string", "message", "raw"};
  return std::string(names[(uid >> 27) & 0xf]) + ((uid & kArrayBit) != 0 ? " list" : "");
}

}  // namespace confctl
