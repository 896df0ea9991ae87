/// What containers read from requests and records, with the defaults of absent fields.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>

#include "platform/keys.h"
#include "platform/message.h"
#include "platform/page.h"

namespace nv {

/// Get flags as the client gave them.
inline std::uint32_t getFlagsOf(const message& request) {
  return request.get(key::getFlags, kDefaultFlags);
}

/// The flags that an element is handed for a client: the store bit comes from the container alone.
inline std::uint32_t clientFlags(std::uint32_t flags) { return flags & ~kStoreBit; }

/// What a reply to get all holds at most, whatever the client asks for.
inline constexpr std::uint32_t kPageRecords = 1000;
inline constexpr std::size_t kPageBytes = 16384;

inline Page pageFor(std::uint32_t count) { return {std::min(count, kPageRecords), kPageBytes}; }

/// For whom a request speaks, or who manages a stored element; kNoId: nobody.
inline std::uint32_t managedIdOf(const message& m) { return m.get(key::managedId, kNoId); }

/// Whether the requester is the system and not a user.
inline bool isFromSystem(const message& request) {
  return static_cast<std::int32_t>(request.get(key::rights, kSystemRights)) < 0;
}

/// Whether the request is a user's and the element is one that only the system changes.
inline bool isProtected(const std::set<std::uint32_t>& dynamicIds, const message& request,
                        std::uint32_t id) {
  return !isFromSystem(request) && dynamicIds.contains(id);
}

}  // namespace nv
