/// One record as it stands in the store file.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/bytes.h"
#include "platform/message.h"

namespace nv {

/// The bytes of a record, which say all about it, so that it can be found again without the tables
/// around it; never to change:
///
///     u32 crc | u16 n | n bytes: name of the store | flat message
///
/// The crc (CRC-32 as of Ethernet) covers the id as a u32 and everything after the crc. All numbers
/// are little-endian. Requires: `store` is shorter than 65536 bytes.
std::vector<unsigned char> encodeRecord(std::string_view store, std::uint32_t id,
                                        const message& record);

/// The number of the row that marks a store, whose bytes are those of an empty record. Its lower 32
/// bits stand for it in the crc.
inline constexpr std::int64_t kMarkerId = -1;

struct StoredRecord {
  std::string_view store;  // within the bytes decoded
  message record;
};
/// The record in `bytes`, none when the bytes or the id are not those that were written.
std::optional<StoredRecord> decodeRecord(std::uint32_t id, byte_view bytes);

}  // namespace nv
