#include "script/invoke_script.h"

#include <utility>

#include "containers/error_texts.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/looper.h"
#include "platform/run_request.h"

namespace nv {

namespace {

namespace setting {
constexpr u32_id id{1};
constexpr u32_id rights{2};
constexpr string_id origin{3};
constexpr string_id source{4};
constexpr message_array_id args{5};
}  // namespace setting

// The script service: its address, and its handler of stored scripts.
constexpr unsigned kScriptService = 48;
constexpr unsigned kScripts = 101;

/// Whether `all` has every bit of `some`.
bool covers(std::uint32_t all, std::uint32_t some) { return (some & ~all) == 0; }

bool refuse(message* reply, unsigned code, ErrorText text) {
  if (reply != nullptr && !reply->empty()) *reply = errorMsg(code, errorText(text));
  return false;
}

}  // namespace

void InvokeScript::clear() { *this = InvokeScript(); }

void InvokeScript::fromStore(const message& cfg) {
  clear();
  if (cfg.has(setting::id)) {
    kind = kById;
    id = cfg.get(setting::id);
  } else if (cfg.has(setting::source)) {
    kind = kBySource;
    source = cfg.get(setting::source);
  } else {
    return;
  }
  rights = cfg.get(setting::rights);
  origin = cfg.get(setting::origin);
  args = cfg.get(setting::args);
}

message InvokeScript::toCfg() const {
  message cfg;
  if (kind == kNone) return cfg;
  cfg.insert(setting::rights, rights).insert(setting::origin, origin);
  if (!args.empty()) cfg.insert(setting::args, args);
  if (kind == kById) cfg.insert(setting::id, id);
  if (kind == kBySource) cfg.insert(setting::source, source);
  return cfg;
}

bool InvokeScript::update(const message& cfg, std::uint32_t callerRights,
                          const std::string& callerName, message* reply) {
  if (cfg.has(setting::id) && cfg.has(setting::source))
    return refuse(reply, err::badCommand, ErrorText::scriptIdAndSource);
  if (cfg.has(setting::rights) || cfg.has(setting::origin))
    return refuse(reply, err::scriptRights, ErrorText::cantModifyRights);

  InvokeScript next;
  next.fromStore(cfg);
  if (kind == kBySource || next.kind == kBySource) {
    if (!covers(callerRights, rights))
      return refuse(reply, err::scriptRights, ErrorText::scriptRightsTooLow);
  } else {
    rights = callerRights;
    origin = callerName;
  }
  id = next.id;
  source = std::move(next.source);
  args = std::move(next.args);
  kind = next.kind;
  return true;
}

message InvokeScript::runmsg(std::vector<flat_message> callArgs) const {
  message request;
  if (kind == kNone) return request;
  request.insert(key::rights, rights).insert(key::scriptOrigin, origin);
  callArgs.insert(callArgs.end(), args.begin(), args.end());
  if (!callArgs.empty()) request.insert(run_key::arguments, callArgs);
  request.insert(key::command, cmd::runScript);
  if (kind == kById) {
    request.insert_vector(key::route, kScriptService, kScripts);
    request.insert(key::objectId, id);
  } else {
    request.insert_vector(key::route, kScriptService);
    request.insert(run_key::source, source);
  }
  return request;
}

void InvokeScript::run(std::vector<flat_message> callArgs) const {
  if (kind != kNone) getLooper()->send(runmsg(std::move(callArgs)));
}

Post InvokeScript::post(std::vector<flat_message> callArgs,
                        std::function<void(const message&)> done) const {
  if (kind == kNone) {
    if (done) done({});
    return {};
  }
  auto request = runmsg(std::move(callArgs));
  return Post(request, std::move(done), kAnswerTimeout);
}

}  // namespace nv
