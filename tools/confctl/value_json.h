/// Values as JSON.
///
/// bool: true, false. Numbers: numbers. Addresses: text. Strings: text, or {"hex": "..."} when they
/// are not UTF-8. Raw: a string of hexadecimal digits. Messages: an object, a member a field, named
/// as the dictionary says. Arrays: arrays of those.
#pragma once

#include <string_view>

#include <nlohmann/json.hpp>

#include "tools/confctl/dictionary.h"
#include "tools/confctl/elements.h"

namespace confctl {

/// Members stay in the order in which they were added.
using Json = nlohmann::ordered_json;

/// How deep arrays and objects may be nested in JSON that somebody typed.
inline constexpr int kMaxJsonDepth = 16;

/// Throws BadValue: not JSON, nested too deeply, a name twice in one object.
Json parseJson(std::string_view text);
/// One line; `ascii`: characters beyond ASCII escaped as well.
std::string dumpJson(const Json& json, bool ascii = false);

/// Gives `into` the field `uid` with a value. Throws BadValue.
void insertJson(nv::message& into, std::uint32_t uid, const Json& value, const Dictionary& names);

Json jsonOf(const nv::field& f, const Dictionary& names);
/// The object of all fields.
Json jsonOf(const nv::message& m, const Dictionary& names);
/// What stands for a string.
Json jsonOf(std::string_view text);

}  // namespace confctl
