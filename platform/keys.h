/// Field ids that more than one part of the system uses, with their types, and the reserved ids.
///
/// Ids of the forms 0xfe00xx and 0xff00xx belong to the platform; all others to the services.
#pragma once

#include "platform/ids.h"

namespace nv {

/// No id: allocate one, the end of a list, an object that nobody manages.
inline constexpr unsigned kNoId = 0xffffffff;
/// The head record of a stored order chain.
inline constexpr unsigned kHeadId = 0xfffffffe;
/// Get flags of a request that gives none.
inline constexpr unsigned kDefaultFlags = 5;
/// Get flag, set by containers alone: the element's stored form.
inline constexpr unsigned kStoreBit = 0x80000000;
/// Get flag: configuration only (configuration manager).
inline constexpr unsigned kConfigOnlyBit = 0x40000000;
/// Get flag: add the default configuration to the reply.
inline constexpr unsigned kDefaultCfgBit = 0x20000000;
/// The rights of the system. Read as signed it is negative, and so is every system's.
inline constexpr unsigned kSystemRights = 0x80000000;

namespace key {

inline constexpr u32_id objectId{0xfe0001};
inline constexpr message_array_id objects{0xfe0002};
inline constexpr u32_id startId{0xfe0003};
inline constexpr u32_id maxCount{0xfe0004};
inline constexpr u32_id nextId{0xfe0005};
inline constexpr bool_id dynamic{0xfe0007};
/// A flag of an item's state, true in a new item.
inline constexpr bool_id stateFlag{0xfe0008};
// Configuration keys of the configuration manager, whose meaning is the service's.
inline constexpr string_id cfgText{0xfe0009};
inline constexpr bool_id cfgFlagA{0xfe000a};
inline constexpr bool_id cfgFlagD{0xfe000d};
inline constexpr u32_id getFlags{0xfe000c};
inline constexpr string_id name{0xfe0010};
/// Non-zero: the object does not exist, or is removed.
inline constexpr u32_id absent{0xfe0013};
inline constexpr u32_id maxPerReply{0xfe0018};
inline constexpr u32_id count{0xfe0019};
inline constexpr string_array_id about{0xfe001c};
inline constexpr message_id defaultCfg{0xfe001d};
inline constexpr bool_id replaceState{0xfd3e1d};

inline constexpr u32_array_id route{0xff0001};
inline constexpr u32_array_id requester{0xff0002};
inline constexpr u32_id command{0xff0007};
inline constexpr u32_id errorCode{0xff0008};
inline constexpr string_id errorText{0xff0009};
inline constexpr string_id scriptOrigin{0xff000a};
/// Rights of the requester, read as signed: negative is the system, and so is absent.
inline constexpr u32_id rights{0xff000b};
/// 0xffffffff: no automatic reply.
inline constexpr u32_id replyMarker{0xff000d};
/// UIds of removed fields.
inline constexpr u32_array_id removals{0xff0014};
inline constexpr u32_id managedId{0xff001e};
inline constexpr message_array_id managedConfigs{0xff0022};

// Written and read by the bus alone.

/// Number of a request on its connection; its reply and its notifications carry it back.
inline constexpr u32_id tag{0xff0003};
/// What a frame is: absent in a request, else a `frame` value of the bus.
inline constexpr u32_id frameKind{0xff0004};
/// In a request: answer only when all that the answer may tell is on disk.
inline constexpr bool_id settled{0xff0005};

}  // namespace key
}  // namespace nv
