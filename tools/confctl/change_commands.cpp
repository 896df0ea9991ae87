#include "tools/confctl/change_commands.h"

#include "platform/commands.h"
#include "platform/keys.h"
#include "tools/confctl/fields.h"

namespace confctl {
namespace {

/// The fields are read with the names of the service before anything is sent.
void change(Client client, const std::string& service, unsigned command, std::string_view deed,
            const ChangeOptions& options) {
  const Target target = client.open(service);
  nv::message request = readFields(options.fields, client.printer.names());
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

}  // namespace confctl
