#include "tools/confctl/fields.h"

#include "platform/keys.h"
#include "tools/confctl/failure.h"
#include "tools/confctl/value_json.h"
#include "tools/confctl/value_text.h"
#include "tools/confctl/words.h"

namespace confctl {
namespace {

/// One argument, taken apart.
struct Argument {
  std::string_view name;
  std::string_view value;
  enum { text, json, removal } form;
};

Argument takeApart(std::string_view argument) {
  const auto sign = argument.find('=');
  if (sign == std::string_view::npos) {
    return {argument.substr(0, argument.size() - 1), {}, Argument::removal};
  }
  const bool isJson = sign > 0 && argument[sign - 1] == ':';
  return {argument.substr(0, sign - (isJson ? 1 : 0)), argument.substr(sign + 1),
          isJson ? Argument::json : Argument::text};
}

/// Whether confctl or the bus writes the field itself: ids from 0xff0000 to 0xff00ff, and the
/// object's.
bool isEnvelope(std::uint32_t uid) {
  if (uid == nv::key::managedConfigs.uid()) return false;
  return (uid & 0x00ffff00) == 0x00ff0000 || uid == nv::key::objectId.uid();
}

/// For the end of a sentence: what the service calls its fields.
std::string fieldList(const Dictionary& names) {
  std::string list;
  for (const Dictionary::Key& key : names.keys()) list += (list.empty() ? "" : ", ") + key.word;
  return list.empty() ? "" : "; the fields are: " + list;
}

std::uint32_t uidOf(const Argument& argument, const Dictionary& names) {
  const auto uid = names.uidOf(argument.name);
  if (!uid)
    throw BadValue("no field is called '" + printable(argument.name) + "'" + fieldList(names));
  if (isEnvelope(*uid)) throw BadValue("this field is not given by hand");
  return *uid;
}

nv::message valueOf(const Argument& argument, std::uint32_t uid, const Dictionary& names) {
  nv::message value;
  if (argument.form == Argument::json || holdsMessages(uid)) {
    insertJson(value, uid, parseJson(argument.value), names);
  } else {
    insertText(value, uid, argument.value);
  }
  return value;
}

/// Puts the elements of the array `more` behind those that `into` has.
template <class T>
void extend(nv::message& into, T id, const nv::field& more) {
  auto all = into.get(id);
  const auto added = more.as<T>();
  for (std::size_t k = 0; k < added.size(); ++k) all.push_back(nv::ownedOf(added[k]));
  into.insert(id, all);
}

void addField(nv::message& into, const nv::field& f) {
  nv::withId(f.uid(), [&](auto id) {
    if (!into.has(id)) {
      into.insert(f);
    } else if constexpr (nv::ArrayId<decltype(id)>) {
      extend(into, id, f);
    } else {
      throw BadValue("the field is given twice");
    }
  });
}

void addArgument(nv::message& update, std::string_view text, const Dictionary& names) {
  const Argument argument = takeApart(text);
  const std::uint32_t uid = uidOf(argument, names);
  if (argument.form == Argument::removal) {
    update.append(nv::key::removals, uid);
  } else {
    const nv::message value = valueOf(argument, uid, names);
    addField(update, *value.find(uid));
  }
  if (update.find(uid) && update.hasElem(nv::key::removals, uid)) {
    throw BadValue("the field is both given and removed");
  }
}

std::string fieldWord(const nv::field& f, const Dictionary& names) {
  const std::string name = names.nameOf(f.uid());
  if (const auto text = textOf(f)) {
    return name + "=" + (text->empty() ? "" : shellWord(*text));
  }
  return name + (holdsMessages(f.uid()) ? "=" : ":=") + shellWord(dumpJson(jsonOf(f, names), true));
}

}  // namespace

bool isField(const std::string& argument) {
  return argument.find('=') != std::string::npos ||
         (argument.size() > 1 && argument.ends_with('-'));
}

nv::message readFields(const std::vector<std::string>& arguments, const Dictionary& names) {
  nv::message update;
  for (const std::string& argument : arguments) {
    const std::string where = "argument '" + printable(argument) + "': ";
    if (!isField(argument)) throw usage(where + "not of the form name=value");
    try {
      addArgument(update, argument, names);
    } catch (const BadValue& error) {
      throw usage(where + error.what());
    }
  }
  return update;
}

std::vector<std::string> fieldWords(const nv::message& m, const Dictionary& names) {
  std::vector<std::string> words;
  for (const nv::field& f : names.fieldsOf(m)) {
    if (f.uid() == nv::key::objectId.uid()) continue;
    if (f.uid() == nv::key::removals.uid()) {
      for (const unsigned uid : f.as<nv::u32_array_id>()) words.push_back(names.nameOf(uid) + "-");
    } else {
      words.push_back(fieldWord(f, names));
    }
  }
  return words;
}

}  // namespace confctl
