#include "tools/confctl/refusal.h"

#include <cerrno>
#include <cstring>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "tools/confctl/words.h"

namespace confctl {
namespace {

/// Services have objects, or one configuration without an id; who meant the other is told.
std::string whatItTakes(unsigned command) {
  switch (command) {
    case nv::cmd::get:
    case nv::cmd::set: return "it has none of its own; give the id of an object";
    case nv::cmd::getObj:
    case nv::cmd::setObj: return "it has no objects; leave the id out";
    default: return "it does not take this command";
  }
}

/// What the codes of the error replies that come without a text mean.
std::string meaningOf(unsigned code, unsigned command) {
  if (code == nv::err::noSuchObject && command == nv::cmd::addObj) return "the id is out of range";
  if (code == nv::err::badCommand) return whatItTakes(command);
  switch (code) {
    case nv::err::noSuchItem:
    case nv::err::noSuchObject: return "there is no such object";
    case nv::err::idInUse: return "the id is in use, or none is free";
    case nv::err::noSuchPosition: return "the position names no object";
    case nv::err::noIterationId: return "too many lists are being read";
    case nv::err::notAllowed: return "not allowed";
    case nv::err::noRoute: return "nobody is there";
    case nv::err::timedOut: return "no answer in time";
    case nv::err::tooMany: return "too many requests";
    case nv::err::notStored: return "the change could not be stored";
    default: return "no reason given";
  }
}

Exit statusOf(unsigned code) {
  if (code == nv::err::noRoute) return Exit::noService;
  if (code == nv::err::timedOut) return Exit::timedOut;
  return Exit::refused;
}

std::string verbOf(unsigned command) {
  switch (command) {
    case nv::cmd::getObj:
    case nv::cmd::get: return "get";
    case nv::cmd::setObj:
    case nv::cmd::set: return "set";
    case nv::cmd::addObj: return "add";
    case nv::cmd::removeObj: return "remove";
    case nv::cmd::moveObj: return "move";
    case nv::cmd::getAll: return "list";
    case nv::cmd::getCount: return "count";
    default: return "carry out command " + hex(command) + " on";
  }
}

std::string scriptOf(const nv::message& request) {
  if (request.has(nv::key::objectId))
    return "run script " + std::to_string(request.get(nv::key::objectId));
  if (request.has(nv::key::name)) return "run script " + printable(request.view(nv::key::name));
  return "run the script";
}

}  // namespace

std::string deedOf(const nv::message& request) {
  const unsigned command = request.get(nv::key::command);
  if (command == nv::cmd::describe) return "describe itself";
  if (command == nv::cmd::dump) return "show its inside";
  if (command == nv::cmd::runScript) return scriptOf(request);
  if (command == nv::cmd::getUndo) return "tell its undo records";
  if (command == nv::cmd::get || command == nv::cmd::set) {
    return verbOf(command) + " the configuration";
  }
  if (request.has(nv::key::objectId)) {
    return verbOf(command) + " object " + std::to_string(request.get(nv::key::objectId));
  }
  return verbOf(command) + (command == nv::cmd::addObj ? " an object" : " its objects");
}

// One code stands for all of them: the text says which.
Presence presenceOf(const nv::message& answer) {
  unsigned code = 0;
  std::string text;
  if (!nv::isError(answer, &code, &text)) return Presence::running;
  if (code != nv::err::noRoute) return Presence::unknown;
  if (text == "nobody listens there") return Presence::notRunning;
  if (text == "no handler is registered there") return Presence::noHandler;
  return text.ends_with(std::strerror(EACCES)) ? Presence::noAccess : Presence::unknown;
}

Failure refusal(const std::string& service, const nv::message& request, const nv::message& reply) {
  unsigned code = 0;
  std::string text;
  nv::isError(reply, &code, &text);
  const std::string reason =
      text.empty() ? meaningOf(code, request.get(nv::key::command)) : printable(text);
  Failure failure{statusOf(code),
                  "'" + printable(service) + "' did not " + deedOf(request) + ": " + reason +
                      " (code " + hex(code) + ")",
                  code};
  if (request.has(nv::key::objectId)) failure.object = request.get(nv::key::objectId);
  return failure;
}

}  // namespace confctl
