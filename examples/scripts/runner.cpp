#include "examples/scripts/runner.h"

#include <cstdlib>
#include <utility>

#include "examples/support/texts.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/run_request.h"

namespace scripts {

namespace err = nv::err;
namespace key = nv::key;
namespace run_key = nv::run_key;
using nv::message;

namespace {

constexpr const char* kShell = "/bin/sh";
constexpr const char* kPath = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

std::uint32_t rightsOf(const message& request) {
  return request.get(key::rights, nv::kSystemRights);
}

bool isWord(const message& argument) {
  return argument.has(run_key::word) &&
         argument.view(run_key::word).find('\0') == std::string_view::npos;
}

/// The number of the first argument that is no word; 0 when all are.
std::size_t badArgument(const message& request) {
  std::size_t number = 0;
  for (const auto argument : request.view(run_key::arguments)) {
    ++number;
    if (!isWord(message(argument))) return number;
  }
  return 0;
}

std::vector<std::string> environment(const message& request) {
  std::vector<std::string> all{
      kPath, "CONFKIT_RIGHTS=" + std::to_string(rightsOf(request)),
      "CONFKIT_ORIGIN=" + examples::shown(request.view(key::scriptOrigin))};
  if (const char* const bus = std::getenv("CONFKIT_BUS"))
    all.push_back(std::string("CONFKIT_BUS=") + bus);
  return all;
}

Program programOf(const message& request, const Script& script) {
  Program program{{kShell, "-c", script.source, "script"},
                  environment(request),
                  script.timeLimit,
                  Runner::kOutputLimit};
  for (const auto argument : request.view(run_key::arguments))
    program.words.push_back(message(argument).get(run_key::word));
  return program;
}

message answerOf(const Script& script, const Outcome& outcome) {
  auto answer =
      outcome.cut.empty() ? message() : nv::failedMsg(script.label + " was killed: " + outcome.cut);
  answer.insert(run_key::output, outcome.output);
  if (outcome.cut.empty() && outcome.status)
    answer.insert(run_key::status, static_cast<std::uint32_t>(*outcome.status));
  return answer;
}

}  // namespace

bool covers(std::uint32_t rights, std::uint32_t needed) {
  return (rights & nv::kSystemRights) != 0 || (needed & ~rights) == 0;
}

message Runner::refusal(const message& request, const Script& script) const {
  const auto rights = rightsOf(request);
  if (rights == 0 || !covers(rights, script.needs))
    return nv::errorMsg(err::notAllowed,
                        "the request lacks rights that " + script.label + " needs");
  if (const auto number = badArgument(request); number != 0)
    return nv::failedMsg("argument " + std::to_string(number) + " is no text");
  if (children_.size() >= kMostRuns)
    return nv::errorMsg(err::tooMany, std::to_string(kMostRuns) + " scripts are running");
  return {};
}

void Runner::run(nv::Handler& handler, const message& request, const Script& script) {
  if (auto refused = refusal(request, script); !refused.empty())
    return handler.replyMessage(request, std::move(refused));

  // The answer needs the envelope alone.
  message envelope = request;
  envelope.remove(run_key::arguments);
  envelope.remove(run_key::source);
  const auto number = ++lastRun_;
  const auto done = [this, number, &handler, envelope, script](const Outcome& outcome) {
    const auto child = std::move(children_.at(number));
    children_.erase(number);
    handler.replyMessage(envelope, answerOf(script, outcome));
  };
  std::string fault;
  auto child = Child::start(programOf(request, script), done, fault);
  if (!child) return handler.replyMessage(request, nv::failedMsg(script.label + ": " + fault));
  children_.emplace(number, std::move(child));
}

}  // namespace scripts
