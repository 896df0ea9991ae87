#include "containers/apply.h"

#include "platform/keys.h"

namespace nv {
namespace {

message applyMerged(Object& obj, const message& in, std::uint32_t flags) {
  message full = configOf(obj, flags | kStoreBit);
  message prior;
  merge(full, in, prior);
  obj.setConfig(full, flags);
  return prior;
}

message applyPlain(Object& obj, const message& request) {
  message undo = configOf(obj, kDefaultFlags);
  obj.setConfig(request, kDefaultFlags);
  undo.exclude(configOf(obj, kDefaultFlags));
  return undo;
}

}  // namespace

void apply(Object& obj, const message& in, std::uint32_t flags, ApplyMode mode) {
  if (mode == ApplyMode::merge) {
    applyMerged(obj, in, flags);
  } else {
    obj.setConfig(in, flags);
  }
}

message applySet(Object& obj, const message& request, ApplyMode mode, bool undoable) {
  if (mode == ApplyMode::merge) return applyMerged(obj, request, kDefaultFlags);
  if (undoable) return applyPlain(obj, request);
  obj.setConfig(request, kDefaultFlags);
  return {};
}

message configOf(Object& obj, std::uint32_t flags) {
  message config;
  obj.getConfig(config, flags);
  return config;
}

message defaultConfig(std::unique_ptr<Object> fresh) { return configOf(*fresh, kDefaultFlags); }

void addressUndo(message& undo, unsigned code, std::uint32_t id) {
  undo.insert(key::command, code);
  undo.insert(key::objectId, id);
}

void announce(Handler& handler, std::uint32_t id) {
  handler.notifyChange(id, false, nullptr, message());
}

}  // namespace nv
