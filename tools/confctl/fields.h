/// Fields as arguments of the command line.
///
///     name=TEXT     the field has this value (value_text.h; messages: JSON)
///     name:=JSON    the same, written as JSON (value_json.h); the only form of some strings
///     name-         the field is removed
#pragma once

#include <string>
#include <vector>

#include "tools/confctl/dictionary.h"

namespace confctl {

/// Whether `argument` is a field rather than a number or name.
bool isField(const std::string& argument);

/// The update message that the arguments make. An array that is given again goes on; anything else
/// that is given twice, a name that names no field, a bad value and a field that belongs to the
/// request itself throw a Failure that names the argument.
nv::message readFields(const std::vector<std::string>& arguments, const Dictionary& names);

/// The fields of `m` as such arguments, quoted for a shell, without the object id. A removal list
/// becomes one argument for each of its fields.
std::vector<std::string> fieldWords(const nv::message& m, const Dictionary& names);

}  // namespace confctl
