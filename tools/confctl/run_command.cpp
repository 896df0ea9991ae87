#include "tools/confctl/run_command.h"

#include "platform/commands.h"
#include "platform/keys.h"
#include "platform/run_request.h"
#include "tools/confctl/elements.h"

namespace confctl {
namespace {

nv::message argumentsOf(const std::vector<std::string>& words, std::size_t first) {
  std::vector<nv::flat_message> arguments;
  for (std::size_t k = first; k < words.size(); ++k)
    arguments.push_back(nv::message{{nv::run_key::word, words[k]}}.flat());
  nv::message request;
  if (!arguments.empty()) request.insert(nv::run_key::arguments, arguments);
  return request;
}

/// Which script, and its arguments.
nv::message runOf(const RunOptions& options) {
  if (options.source) {
    auto request = argumentsOf(options.words, 0);
    return request.insert(nv::run_key::source, *options.source);
  }
  if (options.words.empty()) throw usage("a script is needed: its id or name, or --source");
  auto request = argumentsOf(options.words, 1);
  const auto id = readNumber(options.words.front(), nv::kNoId);
  if (id) return request.insert(nv::key::objectId, static_cast<std::uint32_t>(*id));
  return request.insert(nv::key::name, options.words.front());
}

}  // namespace

void runScript(Client client, const std::string& service, const RunOptions& options) {
  nv::message request = runOf(options);
  const Target target = client.open(service);
  request.merge(client.session.request(target.route, nv::cmd::runScript));
  request.insert(nv::key::scriptOrigin, "confctl");
  const nv::message answer = client.session.tryToAsk(request, client.session.options().timeout);
  const bool hasEnded = answer.has(nv::run_key::status);
  const auto status = answer.get(nv::run_key::status);
  if (answer.has(nv::run_key::output))
    client.printer.ran(answer.view(nv::run_key::output),
                       hasEnded ? std::optional(status) : std::nullopt);
  if (nv::isError(answer)) throw client.session.failureOf(target, request, answer);
  if (status != 0)
    throw Failure{Exit::refused, "'" + target.text + "' ran a script that ended with status " +
                                     std::to_string(status)};
}

}  // namespace confctl
