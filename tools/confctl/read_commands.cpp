#include "tools/confctl/read_commands.h"

#include <chrono>
#include <iostream>

#include <unistd.h>

#include "platform/commands.h"
#include "platform/describe.h"
#include "platform/keys.h"
#include "tools/confctl/progress.h"
#include "tools/confctl/refusal.h"

namespace confctl {
namespace {

std::uint32_t flagsOf(const ReadOptions& options) {
  return options.flags | (options.defaults ? nv::kDefaultCfgBit : 0);
}

std::string stateWord(Presence presence) {
  switch (presence) {
    case Presence::running: return "running";
    case Presence::noAccess: return "no access";
    case Presence::noHandler: return "no handler";
    default: return "not running";
  }
}

ServiceState stateOf(const ServiceAddress& service, const nv::message& description) {
  ServiceState state{.address = service.address, .name = service.name};
  state.running = !nv::isError(description);
  state.state = stateWord(presenceOf(description));
  if (!state.running) return state;
  if (description.has(nv::key::count)) state.objects = description.get(nv::key::count);
  state.handlers = description.get(nv::describe_key::handlers);
  return state;
}

std::uint64_t steadyMilliseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

/// Each page brings the default configuration along; it is shown once.
void printPage(Printer& printer, const nv::message& page, bool isFirst) {
  if (isFirst && page.has(nv::key::defaultCfg)) {
    printer.defaults(nv::message(page.view(nv::key::defaultCfg)));
  }
  for (const nv::flat_view object : page.view(nv::key::objects)) {
    printer.listed(nv::message(object));
  }
}

}  // namespace

Target Client::open(const std::string& service) {
  Target target = session.find(service);
  printer.use(session.dictionary(target));
  return target;
}

void showServices(Client client) {
  std::vector<ServiceState> states;
  for (const auto& [service, description] :
       client.session.neighbours(client.session.options().timeout))
    states.push_back(stateOf(service, description));
  client.printer.services(states);
}

void showKeys(Client client, const std::string& service) {
  client.open(service);
  client.printer.keys();
}

void getObject(Client client, const std::string& service, std::optional<std::uint32_t> id,
               const ReadOptions& options) {
  const Target target = client.open(service);
  nv::message request = client.session.request(target.route, id ? nv::cmd::getObj : nv::cmd::get);
  if (id) request.insert(nv::key::objectId, *id);
  request.insert(nv::key::getFlags, flagsOf(options));
  client.printer.object(client.session.ask(target, request));
}

void listObjects(Client client, const std::string& service, const ReadOptions& options) {
  const Target target = client.open(service);
  nv::message request = client.session.request(target.route, nv::cmd::getAll);
  request.insert(nv::key::getFlags, flagsOf(options));
  if (options.pageSize) {
    request.insert(nv::key::maxCount, *options.pageSize);
    request.insert(nv::key::maxPerReply, *options.pageSize);
  }
  bool isFirst = true;
  std::size_t listed = 0;
  Progress progress(std::cerr, isatty(STDERR_FILENO) != 0, steadyMilliseconds);
  client.session.askPages(target, request, [&](const nv::message& page) {
    progress.hide();
    printPage(client.printer, page, isFirst);
    isFirst = false;
    progress.show(listed += page.view(nv::key::objects).size());
  });
}

void countObjects(Client client, const std::string& service) {
  const Target target = client.session.find(service);
  const nv::message reply =
      client.session.ask(target, client.session.request(target.route, nv::cmd::getCount));
  const std::uint32_t count = reply.get(nv::key::count, nv::kNoId);
  if (count == nv::kNoId) throw Failure{Exit::refused, "'" + service + "' has no objects to count"};
  client.printer.count(count);
}

void dumpService(Client client, const std::string& service, std::uint32_t flags) {
  const Target target = findTarget(client.session.options().directory, service);
  nv::message request = client.session.request(target.route, nv::cmd::dump);
  request.insert(nv::key::getFlags, flags);
  for (const std::string_view text : client.session.ask(target, request).get(nv::key::about))
    client.printer.dump(text);
}

}  // namespace confctl
