#include "platform/observer.h"

namespace nv {

namespace {

Observer* current = nullptr;

}  // namespace

void Observer::storeSet(std::string_view, std::uint32_t, const message&) {}
void Observer::storeRemove(std::string_view, std::uint32_t) {}
void Observer::reply(const message&, const message&) {}
void Observer::notifyChange(Handler*, std::uint32_t, bool, void*, const message&) {}
void Observer::undo(const message&, const message&, const std::string&) {}
void Observer::sent(const message&) {}

bool Observer::follow(void*, const message&, bool, std::function<void(const message&)>) {
  return false;
}
void Observer::followStopped(void*) {}

bool Observer::post(const message&, std::function<void(const message&)>) { return false; }

Observer* observer() { return current; }
void setObserver(Observer* observer) { current = observer; }

}  // namespace nv
