/// Command codes: the values of `key::command` in a command message.
#pragma once

namespace nv::cmd {

inline constexpr unsigned getObj = 0xfe0002;
inline constexpr unsigned setObj = 0xfe0003;
inline constexpr unsigned getAll = 0xfe0004;
inline constexpr unsigned addObj = 0xfe0005;
inline constexpr unsigned removeObj = 0xfe0006;
inline constexpr unsigned moveObj = 0xfe0007;
inline constexpr unsigned get = 0xfe000d;
inline constexpr unsigned set = 0xfe000e;
inline constexpr unsigned routeGone = 0xfe0014;
inline constexpr unsigned getCount = 0xfe0015;
inline constexpr unsigned stopGetAll = 0xfe0018;

/// The script service's one command.
inline constexpr unsigned runScript = 1;

// Commands of the platform itself, answered for every handler.

/// Start a subscription; notifications carry the tag of this request until it is undone.
inline constexpr unsigned subscribe = 0xfe0010;
/// End the subscription whose tag stands in `key::objectId`.
inline constexpr unsigned unsubscribe = 0xfe0011;
/// What the handler is: its name and the dictionary of its keys.
inline constexpr unsigned describe = 0xfe0012;
/// The last undo records of the handler, newest first.
inline constexpr unsigned getUndo = 0xfe0016;
/// What the handler holds, as text for whoever looks for a fault, in `key::about`; `key::getFlags`
/// says how much of it, in the handler's own bits. Needs a right: it shows addresses of memory.
inline constexpr unsigned dump = 0xfe0017;

/// Whether a command with this code changes nothing, whatever the service: the platform's reading
/// commands, and what the bus says of a client that has gone. Any other code may be a change.
constexpr bool onlyReads(unsigned code) {
  switch (code) {
    case getObj:
    case getAll:
    case get:
    case getCount:
    case stopGetAll:
    case routeGone:
    case subscribe:
    case unsubscribe:
    case describe:
    case getUndo: return true;
    default: return false;
  }
}

/// Whether a command with this code asks for a change of configuration.
constexpr bool isChange(unsigned code) {
  return code == setObj || code == addObj || code == removeObj || code == moveObj || code == set;
}

}  // namespace nv::cmd
