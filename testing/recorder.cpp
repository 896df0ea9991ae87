#include "testing/recorder.h"

#include <utility>

namespace nv::testkit {

void Recorder::clear() {
  storeOps.clear();
  replies.clear();
  notifies.clear();
  undos.clear();
  sentMessages.clear();
  log.clear();
}

std::string Recorder::line() const {
  std::string line;
  for (const auto& word : log) {
    if (!line.empty()) line += ", ";
    line += word;
  }
  return line;
}

void Recorder::storeSet(std::string_view store, std::uint32_t id, const message& record) {
  storeOps.push_back({std::string(store), id, record});
  log.push_back("store " + std::to_string(id));
}

void Recorder::storeRemove(std::string_view store, std::uint32_t id) {
  storeOps.push_back({std::string(store), id, std::nullopt});
  log.push_back("unstore " + std::to_string(id));
}

void Recorder::reply(const message& request, const message& reply) {
  replies.push_back({request, reply});
  log.push_back("reply");
}

void Recorder::notifyChange(Handler* handler, std::uint32_t id, bool removed, void* cookie,
                            const message& extra) {
  notifies.push_back({handler, id, removed, cookie, extra});
  log.push_back("notify " + std::to_string(id));
}

void Recorder::undo(const message& request, const message& undo, const std::string& description) {
  undos.push_back({request, undo, description});
  log.push_back("undo " + description);
}

void Recorder::sent(const message& msg) {
  sentMessages.push_back(msg);
  log.push_back("send");
}

bool Recorder::follow(void* handle, const message& target, bool wait,
                      std::function<void(const message&)> deliver) {
  follows.push_back({handle, target, wait, std::move(deliver)});
  log.push_back("follow");
  return answersFollows;
}

void Recorder::followStopped(void* handle) {
  for (auto& follow : follows)
    if (follow.handle == handle) follow.stopped = true;
  log.push_back("unfollow");
}

bool Recorder::post(const message& request, std::function<void(const message&)> answer) {
  posts.push_back({request, std::move(answer)});
  log.push_back("post");
  return answersPosts;
}

}  // namespace nv::testkit
