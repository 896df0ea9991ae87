/// What containers share about their stores and records.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/keys.h"
#include "platform/store.h"

namespace nv {

/// The get flags under which an element writes its record, and takes it again.
inline constexpr std::uint32_t kRecordFlags = kStoreBit | kDefaultFlags;

/// A new store, which the caller owns; null for an empty name.
inline Store* openStore(std::string_view name) { return name.empty() ? nullptr : new Store(name); }

}  // namespace nv
