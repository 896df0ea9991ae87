/// A handler of a few lines for tests of the bus: numbered texts, some of them stored.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/handler.h"
#include "platform/keys.h"
#include "platform/store.h"

namespace nv::testkit {

/// Set writes the text under key::name, get reads it, get all pages by two. With a store name each
/// set is stored before it is announced.
class ListHandler : public Handler {
 public:
  explicit ListHandler(const std::string& store = {}) {
    if (!store.empty()) store_ = std::make_unique<Store>(store);
  }

  message cmdGetObj(const message& request, std::uint32_t id) override {
    lastRequest = request;
    if (!texts.contains(id)) return errorMsg(err::noSuchObject, "");
    return getObject(id, request.get(key::getFlags, kDefaultFlags));
  }

  message cmdSetObj(const message& request, std::uint32_t id) override {
    lastRequest = request;
    put(id, request.get(key::name));
    sendUndo(request, {{key::command, cmd::removeObj}, {key::objectId, id}}, "text changed");
    return {};
  }

  message cmdRemoveObj(const message&, std::uint32_t id) override {
    texts.erase(id);
    notifyChange(id, true, nullptr, {});
    return {};
  }

  message cmdGetAll(const message&, std::uint32_t startId, std::uint32_t) override {
    auto at = startId == kNoId ? texts.begin() : texts.find(startId);
    if (at == texts.end() && startId != kNoId) return errorMsg(err::noSuchObject, "");
    std::vector<flat_message> page;
    for (; at != texts.end() && page.size() < 2; ++at)
      page.push_back(getObject(at->first, 5).flat());
    message reply;
    reply.insert(key::objects, page);
    if (at != texts.end()) reply.insert(key::startId, at->first);
    return reply;
  }

  message getObject(std::uint32_t id, std::uint32_t flags) override {
    lastFlags = flags;
    ++fetches;
    if (!texts.contains(id)) return Handler::getObject(id, flags);
    return {{key::objectId, id}, {key::name, texts[id]}};
  }

  void* subscribe(const message& request, bool& plain) override {
    ++subscribers;
    if (!request.has(key::about)) return nullptr;
    plain = false;
    return new int(0);
  }
  void unsubscribe(const message&, void* cookie) override {
    --subscribers;
    delete static_cast<int*>(cookie);
  }
  void subscriberStalled(void*) override { ++stalled; }
  void subscriberResumed(void*) override { --stalled; }

  void put(std::uint32_t id, const std::string& text) {
    texts[id] = text;
    if (store_) store_->set(id, {{key::name, text}});
    notifyChange(id, false, nullptr, {});
  }

  std::map<std::uint32_t, std::string> texts;
  message lastRequest;
  std::uint32_t lastFlags = 0;
  int fetches = 0;
  int subscribers = 0;
  int stalled = 0;

 private:
  std::unique_ptr<Store> store_;
};

}  // namespace nv::testkit
