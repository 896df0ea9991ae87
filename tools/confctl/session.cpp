#include "tools/confctl/session.h"

#include <algorithm>
#include <set>

#include "platform/client.h"
#include "platform/commands.h"
#include "platform/describe.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/looper.h"
#include "platform/post.h"
#include "tools/confctl/refusal.h"
#include "tools/confctl/words.h"

namespace confctl {
namespace {

/// For what only makes a text clearer.
constexpr std::uint32_t kShortTimeout = 500;  // ms

/// Under these ids a service gathers the rest of a list while it is read: the same one page after
/// page, and a page may be empty.
bool isIteration(std::uint32_t startId) { return startId >= 0xfffff001 && startId <= 0xfffffffc; }

/// Whether the service has a socket, be it of a process that has died.
bool isRegistered(const std::filesystem::path& bus, const Target& target) {
  return std::ranges::count(findServices(bus), target.route[0], &ServiceAddress::address) > 0;
}

/// Drops what the bus put around an answer.
nv::message unwrapped(nv::message reply) {
  reply.remove(nv::key::route);
  reply.remove(nv::key::requester);
  reply.remove(nv::key::rights);
  reply.remove(nv::key::tag);
  reply.remove(nv::key::frameKind);
  return reply;
}

}  // namespace

Session::Session(BusOptions options) : options_(std::move(options)) {
  if (!std::filesystem::is_directory(options_.directory)) {
    throw Failure{Exit::noService, "no bus in " + options_.directory.string()};
  }
  nv::connectBus(options_.directory);
}

Target Session::find(const std::string& text) {
  try {
    return findTarget(options_.directory, text);
  } catch (Failure& missing) {
    missing.text += whoRuns();
    throw;
  }
}

std::vector<Session::Neighbour> Session::neighbours(std::uint32_t timeout) {
  std::vector<Neighbour> all;
  std::vector<nv::message> questions;
  for (ServiceAddress& service : findServices(options_.directory)) {
    questions.push_back(request({service.address}, nv::cmd::describe));
    all.push_back({std::move(service), {}});
  }
  auto answers = askAll(std::move(questions), timeout);
  for (std::size_t k = 0; k < all.size(); ++k) all[k].description = std::move(answers[k]);
  return all;
}

/// For the end of a sentence: where was looked, and what was there.
std::string Session::whoRuns() {
  std::string names;
  bool isQuiet = true;
  for (const auto& [service, description] : neighbours(kShortTimeout)) {
    isQuiet = isQuiet && presenceOf(description) == Presence::notRunning;
    if (nv::isError(description)) continue;
    names += names.empty() ? " " : ", ";
    names += service.name.empty()
                 ? std::to_string(service.address)
                 : printable(service.name) + " (" + std::to_string(service.address) + ")";
  }
  const std::string place = "on the bus in " + options_.directory.string();
  if (!names.empty()) return "; running " + place + ":" + names;
  return isQuiet ? "; nothing is running " + place : "";
}

/// For the end of a sentence: what else the process has, when it tells.
std::string Session::whichHandlers(const Target& target) {
  const auto answer = tryToAsk(request({target.route[0]}, nv::cmd::describe), kShortTimeout);
  const auto handlers = answer.get(nv::describe_key::handlers);
  if (handlers.size() < 2) return "";
  std::string list;
  for (const unsigned id : handlers) list += (list.empty() ? ": " : ", ") + std::to_string(id);
  const auto dot = target.route.size() > 1 ? target.text.rfind('.') : std::string::npos;
  return "; handlers of " + printable(target.text.substr(0, dot)) + list;
}

Failure Session::failureOf(const Target& target, const nv::message& request,
                           const nv::message& reply) {
  Failure failure = refusal(target.text, request, reply);
  switch (presenceOf(reply)) {
    case Presence::notRunning:
      failure.text = "'" + printable(target.text) + "' is not running";
      if (!isRegistered(options_.directory, target)) failure.text += whoRuns();
      break;
    case Presence::noHandler: failure.text += whichHandlers(target); break;
    case Presence::noAccess: break;
    default:
      if (failure.status == Exit::noService) failure.text += whoRuns();
      if (failure.code == nv::err::badCommand && nv::getError(reply).empty())
        failure.text += whichHandlers(target);
  }
  return failure;
}

nv::message Session::request(const std::vector<std::uint32_t>& route, unsigned command) const {
  nv::message request{{nv::key::command, command}};
  request.insert(nv::key::route, route);
  if (options_.rights) request.insert(nv::key::rights, *options_.rights);
  return request;
}

nv::message Session::ask(const Target& target, const nv::message& request) {
  nv::message reply = tryToAsk(request, options_.timeout);
  if (nv::isError(reply)) throw failureOf(target, request, reply);
  return reply;
}

nv::message Session::tryToAsk(const nv::message& request, std::uint32_t timeout) {
  return std::move(askAll({request}, timeout).front());
}

void Session::askPages(const Target& target, nv::message request,
                       const std::function<void(const nv::message& page)>& take) {
  std::set<std::uint32_t> startIds;
  for (;;) {
    const nv::message page = ask(target, request);
    take(page);
    if (!page.has(nv::key::startId)) return;
    const std::uint32_t next = page.get(nv::key::startId);
    if (!isIteration(next)) {
      const std::string who = "'" + target.text + "' ";
      if (page.view(nv::key::objects).empty())
        throw Failure{Exit::failed, who + "goes on with its list but shows nothing"};
      if (!startIds.insert(next).second)
        throw Failure{Exit::failed,
                      who + "goes on with its list at " + std::to_string(next) + " once more"};
    }
    request.insert(nv::key::startId, next);
  }
}

std::vector<nv::message> Session::askAll(std::vector<nv::message> requests, std::uint32_t timeout) {
  std::vector<nv::message> replies(requests.size());
  std::vector<nv::Post> posts;
  std::size_t missing = requests.size();
  for (std::size_t k = 0; k < requests.size(); ++k) {
    const auto take = [&replies, &missing, k](const nv::message& reply) {
      replies[k] = unwrapped(reply);
      --missing;
    };
    posts.emplace_back(requests[k], take, timeout);
  }
  while (missing > 0) nv::getLooper()->runOnce(true);
  return replies;
}

Dictionary Session::dictionary(const Target& target) {
  const nv::message question = request(target.route, nv::cmd::describe);
  const nv::message answer = tryToAsk(question, options_.timeout);
  unsigned code = 0;
  if (!nv::isError(answer, &code, nullptr)) return Dictionary(answer);
  if (code == nv::err::badCommand) return {};
  throw failureOf(target, question, answer);
}

}  // namespace confctl
