#include "tools/confctl/change_commands.h"

#include "platform/commands.h"
#include "platform/keys.h"
#include "tools/confctl/fields.h"

namespace confctl {
namespace {

/// The object at the front, nv::kNoId when there is none. Not every ordered service has a position
/// that means the front, but each puts an object before one that is named.
std::uint32_t firstObject(Client client, const Target& target) {
  nv::message request = client.session.request(target.route, nv::cmd::getAll);
  request.insert(nv::key::maxCount, 1);
  const nv::message page = client.session.ask(target, request);
  const auto objects = page.view(nv::key::objects);
  return objects.empty() ? nv::kNoId : nv::message(objects[0]).get(nv::key::objectId, nv::kNoId);
}

/// The object that will stand behind, nv::kNoId for nobody.
std::uint32_t nextAt(Client client, const Target& target, const Place& place) {
  return place.first ? firstObject(client, target) : place.before.value_or(nv::kNoId);
}

/// The fields are read with the names of the service before anything is sent.
void change(Client client, const std::string& service, unsigned command, std::string_view deed,
            const ChangeOptions& options) {
  const Target target = client.open(service);
  nv::message request = readFields(options.fields, client.printer.names());
  if (options.place.isGiven()) {
    if (request.has(nv::key::nextId)) throw usage("argument 'next': the place is given twice");
    request.insert(nv::key::nextId, nextAt(client, target, options.place));
  }
  request.merge(client.session.request(target.route, command));
  if (options.id) request.insert(nv::key::objectId, *options.id);
  if (options.dynamic) request.insert(nv::key::dynamic, true);
  if (options.managedBy) request.insert(nv::key::managedId, *options.managedBy);
  nv::message reply = client.session.ask(target, request);
  if (options.id) reply.insert(nv::key::objectId, *options.id);
  client.printer.done(deed, reply);
}

}  // namespace

void addObject(Client client, const std::string& service, const ChangeOptions& options) {
  change(client, service, nv::cmd::addObj, "added", options);
}

void setObject(Client client, const std::string& service, const ChangeOptions& options) {
  change(client, service, options.id ? nv::cmd::setObj : nv::cmd::set, "changed", options);
}

void removeObject(Client client, const std::string& service, const ChangeOptions& options) {
  change(client, service, nv::cmd::removeObj, "removed", options);
}

void dropManaged(Client client, const std::string& service, std::uint32_t manager) {
  const Target target = client.open(service);
  nv::message request = client.session.request(target.route, nv::cmd::set);
  request.insert(nv::key::managedId, manager).insert(nv::key::absent, 1);
  client.printer.done("dropped", client.session.ask(target, request));
}

void moveObject(Client client, const std::string& service, std::uint32_t id, const Place& place) {
  const Target target = client.open(service);
  const auto next = nextAt(client, target, place);
  nv::message reply;
  if (!place.first || next != id) {
    nv::message request = client.session.request(target.route, nv::cmd::moveObj);
    request.insert(nv::key::objectId, id).insert(nv::key::nextId, next);
    reply = client.session.ask(target, request);
  }
  reply.insert(nv::key::objectId, id);
  client.printer.done("moved", reply);
}

}  // namespace confctl
