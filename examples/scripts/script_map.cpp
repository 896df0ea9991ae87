#include "examples/scripts/script_map.h"

#include <algorithm>

#include "examples/support/take.h"
#include "examples/support/texts.h"
#include "platform/commands.h"
#include "platform/errors.h"

namespace scripts {

namespace err = nv::err;
namespace key = nv::key;
using examples::take;
using nv::message;

namespace {

constexpr std::uint32_t kLowestId = 1, kHighestId = 65535;
constexpr std::size_t kLongestName = 63;

StoredScript& script(Object* obj) { return static_cast<StoredScript&>(*obj); }

bool isNameCharacter(char c) { return examples::isLetterOrDigit(c) || c == '-' || c == '_'; }

// A name that is a number could not be told from an id.
std::string nameFault(const std::string& name) {
  const auto quoted = '"' + examples::shown(name) + '"';
  if (name.empty()) return "a script needs a name";
  if (name.size() > kLongestName) return quoted + " is longer than 63 characters";
  if (!std::all_of(name.begin(), name.end(), isNameCharacter))
    return quoted + " is no name: it may hold letters, digits, '-' and '_' only";
  if (name.front() >= '0' && name.front() <= '9')
    return quoted + " is no name: it begins with a digit";
  return "";
}

std::string sourceFault(const std::string& source) {
  if (source.empty()) return "a script needs a source";
  if (source.size() > ScriptMap::kLongestSource)
    return "a script has at most 65536 bytes, this one has " + std::to_string(source.size());
  if (source.find('\0') != std::string::npos) return "a script holds no zero byte";
  return "";
}

std::string timeFault(std::uint32_t limit) {
  if (limit >= 1 && limit <= ScriptMap::kLongestTime) return "";
  return "the time limit is 1 to 60000 ms, this one is " + std::to_string(limit);
}

}  // namespace

void StoredScript::getConfig(message& out, std::uint32_t) {
  out.insert(key::name, scriptName).insert(kSource, source).insert(kNeeds, needs);
  out.insert(kTimeLimit, timeLimit).insert(kComment, comment);
}

void StoredScript::setConfig(const message& in, std::uint32_t) {
  const StoredScript fresh;
  take(in, key::name, scriptName, fresh.scriptName);
  take(in, kSource, source, fresh.source);
  take(in, kNeeds, needs, fresh.needs);
  take(in, kTimeLimit, timeLimit, fresh.timeLimit);
  take(in, kComment, comment, fresh.comment);
}

std::string StoredScript::fault() const {
  for (auto why : {nameFault(scriptName), sourceFault(source), timeFault(timeLimit),
                   examples::commentFault(comment)})
    if (!why.empty()) return why;
  return "";
}

ScriptMap::ScriptMap(Runner& runner) : AMap("scripts", kLowestId, kHighestId), runner_(runner) {
  describe("scripts", {{key::name.uid(), "name", "what the script is called"},
                       {kSource.uid(), "source", "what the shell runs"},
                       {kNeeds.uid(), "needs", "rights that a run needs, a bit each"},
                       {kTimeLimit.uid(), "time-limit", "milliseconds after which it is killed"},
                       {kComment.uid(), "comment", "a line for people"}});
}

bool ScriptMap::isAllowed(const message& request) const {
  const bool isSystem = (request.get(key::rights, nv::kSystemRights) & nv::kSystemRights) != 0;
  return AMap::isAllowed(request) && (isSystem || !nv::cmd::isChange(request.get(key::command)));
}

void ScriptMap::handleCmd(const message& cmd, unsigned code) {
  if (code != nv::cmd::runScript) return AMap::handleCmd(cmd, code);
  const auto* const found = wanted(cmd);
  if (found == nullptr) return replyMessage(cmd, nv::errorMsg(err::noSuchObject, ""));
  runner_.run(
      *this, cmd,
      {"script \"" + found->scriptName + '"', found->source, found->timeLimit, found->needs});
}

StoredScript* ScriptMap::wanted(const message& request) {
  auto id = request.get(key::objectId, nv::kNoId);
  if (!request.has(key::objectId)) {
    const auto named = idsByName_.find(request.view(key::name));
    if (named != idsByName_.end()) id = named->second;
  }
  return static_cast<StoredScript*>(objects.get(id));
}

message ScriptMap::getDefaultCfg() {
  message config;
  StoredScript().getConfig(config, nv::kDefaultFlags);
  return config;
}

void ScriptMap::copyObject(Object* dst, Object* src) { script(dst) = script(src); }

message ScriptMap::check(Object* obj) const {
  if (const auto fault = script(obj).fault(); !fault.empty()) return nv::failedMsg(fault);
  const auto found = idsByName_.find(obj->name());
  if (found == idsByName_.end() || found->second == obj->id) return {};
  return nv::failedMsg("the name \"" + obj->name() + "\" is taken by object " +
                       std::to_string(found->second));
}

void ScriptMap::objChanged(Object* old, Object* obj) {
  idsByName_.erase(old->name());
  objAdded(obj);
}

}  // namespace scripts
