#include "tools/confctl/undo_commands.h"

#include <algorithm>

#include "platform/commands.h"
#include "platform/keys.h"
#include "platform/undo_log.h"
#include "tools/confctl/elements.h"
#include "tools/confctl/words.h"

namespace confctl {
namespace {

UndoRecord readRecord(const nv::message& record) {
  return {record.get(nv::undo_key::number), record.get(nv::undo_key::description),
          nv::message(record.view(nv::undo_key::command)), record.get(nv::undo_key::route)};
}

std::vector<UndoRecord> undoRecords(Client client, const Target& target) {
  std::vector<UndoRecord> records;
  const nv::message request = client.session.request(target.route, nv::cmd::getUndo);
  client.session.askPages(target, request, [&records](const nv::message& page) {
    for (const nv::flat_view record : page.view(nv::key::objects)) {
      records.push_back(readRecord(nv::message(record)));
    }
  });
  return records;
}

/// Throws a Failure when `text` is neither "last" nor a number, or no record is meant by it.
const UndoRecord& findRecord(const std::vector<UndoRecord>& records, const Target& target,
                             const std::string& text) {
  const auto number = readNumber(text, 0xffffffff);
  if (text != "last" && !number) {
    throw usage("argument '" + printable(text) + "': neither a number nor last");
  }
  const auto found =
      number ? std::ranges::find(records, *number, &UndoRecord::number) : records.begin();
  if (found == records.end()) {
    throw Failure{
        Exit::refused,
        "'" + target.text + "' " + (number ? "has no undo record " + text : "has no undo records")};
  }
  return *found;
}

}  // namespace

void showUndoRecords(Client client, const std::string& service) {
  const Target target = client.open(service);
  for (const UndoRecord& record : undoRecords(client, target)) client.printer.undoRecord(record);
}

void undoChange(Client client, const std::string& service, const std::string& text) {
  const Target target = client.open(service);
  const std::vector<UndoRecord> records = undoRecords(client, target);
  const UndoRecord& record = findRecord(records, target, text);
  // A service has a say in its own objects alone: the command goes to it and to nobody else.
  const unsigned code = record.command.get(nv::key::command);
  if (!nv::cmd::isChange(code)) {
    throw Failure{Exit::failed, "'" + target.text + "' would undo this with something that is " +
                                    "not a change of its objects"};
  }
  nv::message request = record.command;
  request.merge(client.session.request(target.route, code));
  nv::message reply = client.session.ask(target, request);
  if (request.has(nv::key::objectId)) {
    reply.insert(nv::key::objectId, request.get(nv::key::objectId));
  }
  client.printer.undone(record.number, reply);
}

}  // namespace confctl
