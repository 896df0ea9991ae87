#include "tools/confctl/watch.h"

#include <algorithm>
#include <csignal>
#include <iostream>

#include <poll.h>
#include <unistd.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/follow.h"
#include "platform/keys.h"
#include "platform/looper.h"
#include "tools/confctl/fields.h"

namespace confctl {
namespace {

constexpr unsigned kCheckInterval = 500;  // ms
constexpr std::uint32_t kCheckTimeout = 2000;

/// Whether nobody reads any more what is written. Where nothing is written for long, only the pipe
/// itself can tell that its other end was closed.
bool isOutputGone() {
  pollfd output{STDOUT_FILENO, 0, 0};
  const bool isClosed = poll(&output, 1, 0) > 0 && (output.revents & (POLLERR | POLLHUP)) != 0;
  if (isClosed) std::cout.setstate(std::ios::badbit);
  return !std::cout;
}

void stopLoop(int) { nv::getLooper()->stop(0); }

}  // namespace

Watch::Watch(Client client, Target target, const WatchOptions& options)
    : client_(client), target_(std::move(target)), options_(options) {
  where_ = readFields(options_.where, client_.printer.names());
  if (where_.has(nv::key::removals)) throw usage("a filter names values");
  nv::message followed = where_;
  followed.merge(client_.session.request(target_.route, 0));
  followed.remove(nv::key::command);
  followed.insert(nv::key::getFlags, options_.flags);
  follow_ = nv::follow([this](const nv::message& object) { heard(object); }, followed, true);
  if (options_.milliseconds) {
    end_ = nv::Timer(*options_.milliseconds, [] { nv::getLooper()->stop(0); });
  }
  checkService();
}

Watch::~Watch() { nv::stopFollow(follow_); }

void Watch::run() {
  if (options_.changes == 0u) return;
  std::signal(SIGINT, stopLoop);
  std::signal(SIGTERM, stopLoop);
  nv::getLooper()->run();
}

void Watch::heard(const nv::message& object) {
  if (object.empty()) return heardAll();
  const std::uint32_t id = object.get(nv::key::objectId);
  if (!isInside(object)) return outside(object);
  const auto [place, isNew] = seen_.try_emplace(id, object);
  if (!isNew && place->second == object) return;
  if (!isNew) place->second = object;
  if (ready_) {
    change(!isNew ? "changed" : where_.empty() ? "added" : "entered", object);
  } else {
    client_.printer.event("initial", object);
  }
}

bool Watch::isInside(const nv::message& object) const {
  return object.get(nv::key::absent) == 0 &&
         std::all_of(where_.begin(), where_.end(), [&object](const nv::field& wanted) {
           return object.find(wanted.uid()) == wanted;
         });
}

void Watch::outside(const nv::message& object) {
  const std::uint32_t id = object.get(nv::key::objectId);
  if (seen_.erase(id) == 0) return;
  if (object.get(nv::key::absent) != 0) return change("removed", {{nv::key::objectId, id}});
  change("left", object);
}

void Watch::heardAll() {
  client_.printer.event(ready_ ? "back" : "ready", seen_.size());
  ready_ = true;
  gone_ = false;
}

void Watch::change(std::string_view what, const nv::message& object) {
  if (changes_ == options_.changes) return;
  client_.printer.event(what, object);
  if (++changes_ == options_.changes || !std::cout) nv::getLooper()->stop(0);
}

void Watch::checkService() {
  nv::message question = client_.session.request(target_.route, nv::cmd::getCount);
  check_ = nv::Post(
      question, [this](const nv::message& answer) { checked(answer); }, kCheckTimeout);
}

void Watch::checked(const nv::message& answer) {
  unsigned code = 0;
  const bool isThere = !nv::isError(answer, &code, nullptr) || code != nv::err::noRoute;
  if (!isThere && !gone_) client_.printer.event("gone", seen_.size());
  gone_ = gone_ || !isThere;
  if (isOutputGone()) return nv::getLooper()->stop(0);
  nextCheck_ = nv::Timer(kCheckInterval, [this] { checkService(); });
}

void watchObjects(Client client, const std::string& service, const WatchOptions& options) {
  Target target = client.open(service);
  Watch(client, std::move(target), options).run();
}

}  // namespace confctl
