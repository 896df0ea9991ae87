// Other handlers whose objects a manager keeps as items of its own.
#include <algorithm>
#include <utility>

#include "cfgman/cfgman.h"
#include "platform/follow.h"

namespace key = nv::key;
using nv::message;

void CfgMan::addRemote(const message& target, std::function<void()> onLoaded, bool flag) {
  const auto serial = ++lastRemote_;
  remotes.push_back({nullptr, false, std::move(onLoaded), serial});
  auto* const handle = nv::follow(
      [life = watch(), serial](const message& msg) {
        if (auto* const manager = life.get()) manager->remoteSays(serial, msg);
      },
      target, !flag);
  if (auto* const remote = findRemote(serial))
    remote->handle = handle;
  else
    nv::stopFollow(handle);
}

void CfgMan::setRemote(const message& target, std::function<void()> onLoaded) {
  for (const auto& remote : std::exchange(remotes, {})) nv::stopFollow(remote.handle);
  addRemote(target, std::move(onLoaded), false);
}

void CfgMan::setRemote(unsigned handlerId, unsigned object, std::function<void()> onLoaded) {
  message target{{key::route, {handlerId}}};
  if (object != nv::kNoId) target.append(key::route, object);
  setRemote(target, std::move(onLoaded));
}

CfgMan::RemoteRec* CfgMan::findRemote(std::uint64_t serial) {
  const auto at = std::find_if(remotes.begin(), remotes.end(), [serial](const RemoteRec& remote) {
    return remote.serial == serial;
  });
  return at == remotes.end() ? nullptr : &*at;
}

void CfgMan::remoteSays(std::uint64_t serial, const message& msg) {
  if (msg.empty()) return remoteLoaded(serial);
  message update = msg;
  if (!update.has(key::absent)) update.insert(key::absent, 0);
  auto state = update;
  scheduleUpdate(msg.get(key::objectId, nv::kNoId), std::move(update), std::move(state), {}, {});
}

void CfgMan::remoteLoaded(std::uint64_t serial) {
  auto* const remote = findRemote(serial);
  if (remote == nullptr) return;
  const auto life = watch();
  if (const auto onLoaded = std::exchange(remote->onLoaded, {})) onLoaded();
  if (life.gone()) return;
  if (auto* const still = findRemote(serial)) still->loaded = true;
}
