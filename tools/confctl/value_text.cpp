#include "tools/confctl/value_text.h"

#include "tools/confctl/words.h"

namespace confctl {
namespace {

template <class T>
constexpr bool isMessageType =
    std::is_same_v<T, nv::message_id> || std::is_same_v<T, nv::message_array_id>;

std::vector<std::string> splitList(std::string_view text) {
  std::vector<std::string> elements;
  if (text.empty()) return elements;
  elements.emplace_back();
  for (std::size_t k = 0; k < text.size(); ++k) {
    if (text[k] == ',') {
      elements.emplace_back();
      continue;
    }
    if (text[k] == '\\' && (++k == text.size() || (text[k] != ',' && text[k] != '\\'))) {
      throw BadValue("in a list a backslash stands before a comma or a backslash only");
    }
    elements.back() += text[k];
  }
  return elements;
}

std::string escaped(std::string_view element) {
  std::string text;
  for (const char c : element) {
    if (c == ',' || c == '\\') text += '\\';
    text += c;
  }
  return text;
}

template <class T>
void insertList(nv::message& into, T id, std::string_view text) {
  typename nv::IdTraits<T>::type list;
  for (const std::string& element : splitList(text)) {
    list.emplace_back();
    fromText(element, list.back());
  }
  into.insert(id, list);
}

/// None for a list of one empty element: as text that is the empty list.
template <class T>
std::optional<std::string> listText(const nv::field& f) {
  const auto list = f.as<T>();
  std::string text;
  for (std::size_t k = 0; k < list.size(); ++k)
    text += (k == 0 ? "" : ",") + escaped(toText(list[k]));
  return text.empty() && !list.empty() ? std::nullopt : std::optional(text);
}

template <class T>
std::optional<std::string> valueText(const nv::field& f) {
  if constexpr (isMessageType<T>) {
    return {};
  } else if constexpr (nv::ArrayId<T>) {
    return listText<T>(f);
  } else {
    return toText(f.as<T>());
  }
}

}  // namespace

bool holdsMessages(std::uint32_t uid) {
  return nv::withId(uid, [](auto) {}) && ((uid >> 27) & 0xf) == nv::message_id::tag >> 27;
}

void insertText(nv::message& into, std::uint32_t uid, std::string_view text) {
  nv::withId(uid, [&](auto id) {
    using T = decltype(id);
    if constexpr (isMessageType<T>) {
      throw BadValue("a message is written as JSON");
    } else if constexpr (nv::ArrayId<T>) {
      insertList(into, id, text);
    } else {
      typename nv::IdTraits<T>::type value{};
      fromText(text, value);
      into.insert(id, value);
    }
  });
}

std::optional<std::string> textOf(const nv::field& f) {
  std::optional<std::string> text;
  nv::withId(f.uid(), [&](auto id) { text = valueText<decltype(id)>(f); });
  return text && isPlain(*text) ? text : std::nullopt;
}

}  // namespace confctl
