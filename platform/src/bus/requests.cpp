#include "platform/src/bus/requests.h"

#include <utility>

#include "platform/errors.h"

namespace nv {

namespace {
std::uint32_t lastTag = 0;

std::uint32_t newTag() {
  if (++lastTag == 0) ++lastTag;
  return lastTag;
}
}  // namespace

std::uint32_t Requests::freshTag() const {
  auto tag = newTag();
  while (awaited_.contains(tag) || listeners_.contains(tag)) tag = newTag();
  return tag;
}

std::uint32_t Requests::await(Function done, std::uint32_t timeout) {
  const auto tag = freshTag();
  auto& awaited = awaited_[tag];
  awaited.done = std::move(done);
  if (timeout != 0) awaited.timeout = Timer(timeout, [this, tag] { timedOut(tag); });
  return tag;
}

void Requests::timedOut(std::uint32_t tag) {
  const auto delay = awaited_.at(tag).delay;
  answer(tag, errorMsg(err::timedOut, delay.empty() ? "no answer in time" : delay));
}

void Requests::delayed(std::uint32_t tag, std::string why) {
  if (const auto awaited = awaited_.find(tag); awaited != awaited_.end())
    awaited->second.delay = std::move(why);
}

void Requests::listen(std::uint32_t tag, Function notify, std::function<void()> lost) {
  listeners_[tag] = std::make_shared<Listener>(Listener{std::move(notify), std::move(lost)});
}

void Requests::forget(std::uint32_t tag) {
  // What the functions hold may forget more requests when it goes: it goes last.
  const auto awaited = awaited_.extract(tag);
  const auto listener = listeners_.extract(tag);
}

void Requests::sentOver(std::uint32_t tag, std::uint32_t connection) {
  if (const auto awaited = awaited_.find(tag); awaited != awaited_.end()) {
    awaited->second.connection = connection;
    awaited->second.delay.clear();
  }
  if (const auto listener = listeners_.find(tag); listener != listeners_.end())
    listener->second->connection = connection;
}

void Requests::answer(std::uint32_t tag, const message& reply) {
  const auto awaited = awaited_.extract(tag);
  if (awaited && awaited.mapped().done) awaited.mapped().done(reply);
}

void Requests::reply(std::uint32_t connection, std::uint32_t tag, const message& reply) {
  const auto found = awaited_.find(tag);
  if (found != awaited_.end() && found->second.connection == connection) answer(tag, reply);
}

void Requests::notify(std::uint32_t connection, std::uint32_t tag, const message& notification) {
  const auto found = listeners_.find(tag);
  if (found == listeners_.end() || found->second->connection != connection) return;
  const auto listener = found->second;
  listener->notify(notification);
}

void Requests::ended(std::uint32_t connection, std::uint32_t tag) {
  const auto found = listeners_.find(tag);
  if (found != listeners_.end() && found->second->connection == connection) lose(tag);
}

void Requests::lose(std::uint32_t tag) {
  if (const auto listener = listeners_.extract(tag)) listener.mapped()->lost();
}

std::vector<std::uint32_t> Requests::awaitedOver(std::uint32_t connection) const {
  std::vector<std::uint32_t> tags;
  for (const auto& [tag, awaited] : awaited_)
    if (awaited.connection == connection) tags.push_back(tag);
  return tags;
}

void Requests::refused(std::uint32_t connection, const message& error) {
  for (const auto tag : awaitedOver(connection)) reply(connection, tag, error);
}

void Requests::connectionLost(std::uint32_t connection) {
  const auto unanswered = awaitedOver(connection);
  std::vector<std::uint32_t> deaf;
  for (const auto& [tag, listener] : listeners_)
    if (listener->connection == connection) deaf.push_back(tag);

  for (const auto tag : unanswered) answer(tag, errorMsg(err::noRoute, "the connection ended"));
  for (const auto tag : deaf) lose(tag);
}

}  // namespace nv
