#include "tools/confctl/value_json.h"

#include <set>

#include "tools/confctl/words.h"

namespace confctl {
namespace {

[[noreturn]] void refuse(const Json& json, const std::string& expected) {
  throw BadValue(printable(dumpJson(json)) + " is not " + expected);
}

/// Watches the parser: how deep it is, and which names it has met.
class Watcher {
 public:
  bool operator()(int depth, Json::parse_event_t event, const Json& parsed) {
    using Event = Json::parse_event_t;
    if (depth >= kMaxJsonDepth && (event == Event::object_start || event == Event::array_start)) {
      throw BadValue("the JSON is nested more than " + std::to_string(kMaxJsonDepth) + " deep");
    }
    if (event == Event::object_start) names_.emplace_back();
    if (event == Event::object_end) names_.pop_back();
    if (event == Event::key) addName(parsed.get<std::string>());
    return true;
  }

 private:
  void addName(const std::string& name) {
    if (!names_.back().insert(name).second) {
      throw BadValue("the name '" + printable(name) + "' stands twice in one JSON object");
    }
  }

  std::vector<std::set<std::string>> names_;
};

/// Reads and writes single values and elements.
struct Elements {
  const Dictionary& names;

  void from(const Json& json, bool& out) const {
    if (!json.is_boolean()) refuse(json, "true or false");
    out = json.get<bool>();
  }
  void from(const Json& json, unsigned char& out) const {
    bool value = false;
    from(json, value);
    out = value ? 1 : 0;
  }
  void from(const Json& json, std::uint32_t& out) const {
    if (!json.is_number_unsigned() || json.get<std::uint64_t>() > 0xffffffff) {
      refuse(json, "a number from 0 to 4294967295");
    }
    out = json.get<std::uint32_t>();
  }
  void from(const Json& json, std::uint64_t& out) const {
    if (!json.is_number_unsigned()) refuse(json, "a number from 0 to 18446744073709551615");
    out = json.get<std::uint64_t>();
  }
  void from(const Json& json, nv::addr6& out) const { fromText(stringOf(json), out); }
  void from(const Json& json, std::string& out) const {
    const bool isHex = json.is_object() && json.size() == 1 && json.contains("hex");
    if (!isHex) return fromText(stringOf(json), out);
    std::vector<unsigned char> bytes;
    from(json["hex"], bytes);
    out.assign(bytes.begin(), bytes.end());
  }
  void from(const Json& json, std::vector<unsigned char>& out) const {
    fromText(stringOf(json), out);
  }
  void from(const Json& json, nv::flat_message& out) const { out = messageOf(json).flat(); }

  template <class V>
  Json to(const V& value) const {
    if constexpr (std::is_same_v<V, nv::flat_view>) {
      return jsonOf(nv::message(value), names);
    } else if constexpr (std::is_same_v<V, std::string_view>) {
      return jsonOf(value);
    } else if constexpr (std::is_same_v<V, unsigned char>) {
      return value != 0;
    } else if constexpr (std::is_integral_v<V>) {
      return value;
    } else {
      return toText(value);
    }
  }

 private:
  const std::string& stringOf(const Json& json) const {
    if (!json.is_string()) refuse(json, "a string");
    return json.get_ref<const std::string&>();
  }

  nv::message messageOf(const Json& json) const {
    if (!json.is_object()) refuse(json, "a JSON object");
    nv::message m;
    for (const auto& [name, value] : json.items()) {
      const auto uid = names.uidOf(name);
      if (!uid) throw BadValue("'" + printable(name) + "' names no field");
      if (m.find(*uid)) throw BadValue("the field '" + name + "' stands twice in one JSON object");
      insertJson(m, *uid, value, names);
    }
    return m;
  }
};

template <class T>
void insertList(nv::message& into, T id, const Json& value, const Elements& elements) {
  if (!value.is_array()) refuse(value, "a JSON array");
  typename nv::IdTraits<T>::type list;
  for (const Json& element : value) {
    list.emplace_back();
    elements.from(element, list.back());
  }
  into.insert(id, list);
}

}  // namespace

Json parseJson(std::string_view text) {
  try {
    // The watcher is called by reference: the parser copies what it is given.
    Watcher watcher;
    return Json::parse(text, [&](int depth, Json::parse_event_t event, Json& parsed) {
      return watcher(depth, event, parsed);
    });
  } catch (const Json::parse_error& error) {
    throw BadValue("'" + printable(text) + "' is not JSON (byte " + std::to_string(error.byte) +
                   ")");
  }
}

std::string dumpJson(const Json& json, bool ascii) {
  return json.dump(-1, ' ', ascii, Json::error_handler_t::replace);
}

void insertJson(nv::message& into, std::uint32_t uid, const Json& value, const Dictionary& names) {
  const Elements elements{names};
  nv::withId(uid, [&](auto id) {
    using T = decltype(id);
    if constexpr (nv::ArrayId<T>) {
      insertList(into, id, value, elements);
    } else {
      typename nv::IdTraits<T>::type one{};
      elements.from(value, one);
      into.insert(id, one);
    }
  });
}

Json jsonOf(const nv::field& f, const Dictionary& names) {
  const Elements elements{names};
  Json json;
  nv::withId(f.uid(), [&](auto id) {
    using T = decltype(id);
    const auto value = f.as<T>();
    if constexpr (nv::ArrayId<T>) {
      json = Json::array();
      for (std::size_t k = 0; k < value.size(); ++k) json.push_back(elements.to(value[k]));
    } else {
      json = elements.to(value);
    }
  });
  return json;
}

Json jsonOf(const nv::message& m, const Dictionary& names) {
  Json object = Json::object();
  for (const nv::field& f : names.fieldsOf(m)) object[names.nameOf(f.uid())] = jsonOf(f, names);
  return object;
}

Json jsonOf(std::string_view text) {
  if (isUtf8(text)) return std::string(text);
  return {{"hex", toText(nv::bytesOf(text))}};
}

}  // namespace confctl
