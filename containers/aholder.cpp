#include "containers/aholder.h"

#include <iostream>
#include <memory>
#include <utility>

#include "containers/apply.h"
#include "containers/error_texts.h"
#include "containers/managed_configs.h"
#include "containers/record.h"
#include "containers/request.h"
#include "platform/commands.h"
#include "platform/keys.h"

using nv::message;

namespace {

constexpr std::uint32_t kRecord = 0;

void reportRefused(const message& verdict) {
  unsigned code = 0;
  std::string text;
  nv::isError(verdict, &code, &text);
  std::cout << "error: while loading config from store: " + text + " (" + std::to_string(code) +
                   ")\n"
            << std::flush;
}

/// Hands the object its complete configuration with the request merged into the party's own.
void applyManaged(Object& object, const message& request, std::uint32_t party) {
  message full = nv::configOf(object, nv::kRecordFlags);
  nv::mergeManaged(full, request, party);
  object.setConfig(full, nv::kDefaultFlags);
}

}  // namespace

// Life.

AHolder::AHolder(const std::string& storeName) : store(nv::openStore(storeName)) {}

AHolder::~AHolder() {
  delete std::exchange(store, nullptr);
  delete std::exchange(object, nullptr);
}

void AHolder::init() {
  object = newObject();
  if (store == nullptr) return;
  // In merge mode as well: a record is a complete configuration, with those of other parties.
  if (store->has(kRecord)) object->setConfig(store->get(kRecord), nv::kRecordFlags);
  const message verdict = checkChange(nullptr, object);
  if (nv::isError(verdict)) {
    reportRefused(verdict);
    const std::unique_ptr<Object> fresh{newObject()};
    copyObject(object, fresh.get());
  } else {
    objChanged(nullptr, object);
  }
}

// Commands.

message AHolder::cmdGet(const message& request) {
  const std::uint32_t flags = nv::getFlagsOf(request);
  message reply;
  if ((flags & nv::kDefaultCfgBit) != 0) reply.insert(nv::key::defaultCfg, getDefaultCfg());
  object->getConfig(reply, nv::clientFlags(flags));
  return reply;
}

message AHolder::cmdSet(const message& request) {
  std::unique_ptr<Object> old{newObject()};
  copyObject(old.get(), object);
  const std::uint32_t party = nv::managedIdOf(request);
  const bool isManaged = party != nv::kNoId;
  if (isManaged && !acceptsManaged()) return nv::refusal(nv::ErrorText::cantApplyManaged);

  message undo;
  if (isManaged && mergeOnSet())
    applyManaged(*object, request, party);
  else
    undo = nv::applySet(*object, request, nv::applyMode(mergeOnSet()), true);
  message reply = checkChange(old.get(), object);
  if (nv::isError(reply)) {
    copyObject(object, old.get());
    return reply;
  }
  objChanged(old.get(), object);
  old.reset();
  if (object->isStorable()) storeObj();
  tell();
  if (!isManaged) {
    undo.insert(nv::key::command, nv::cmd::set);
    sendUndo(request, undo, object->name() + " changed");
  }
  return reply;
}

message AHolder::getObject(std::uint32_t, std::uint32_t flags) {
  return nv::configOf(*object, flags);
}

std::uint32_t AHolder::objectCount() { return nv::kNoId; }

void AHolder::changed(bool mayStore) {
  if (mayStore && object->isStorable()) storeObj();
  tell();
}

void AHolder::tell() {
  if (object->isNotifying()) nv::announce(*this, nv::kNoId);
}

// The store.

void AHolder::save() { store->set(kRecord, nv::configOf(*object, nv::kRecordFlags)); }

void AHolder::storeObj() {
  if (store == nullptr) return;
  if (autoStore)
    save();
  else
    dirty = true;
}

void AHolder::flushConfig() {
  if (store != nullptr && dirty) save();
  dirty = false;
}

void AHolder::setAutoStore(bool on) {
  autoStore = on;
  if (on) flushConfig();
}

// What a service may leave as it is.

message AHolder::getDefaultCfg() { return nv::defaultConfig(std::unique_ptr<Object>(newObject())); }

bool AHolder::mergeOnSet() { return false; }

bool AHolder::acceptsManaged() { return false; }
