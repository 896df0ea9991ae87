#include "platform/src/store_file/record_format.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

#include <boost/crc.hpp>

namespace nv {

namespace {

constexpr std::size_t kCrcEnd = 4;
constexpr std::size_t kNameStart = 6;

std::uint32_t checksum(std::uint32_t id, byte_view bytes) {
  std::array<unsigned char, 4> idBytes;
  store32(idBytes.data(), id);
  boost::crc_32_type crc;
  crc.process_bytes(idBytes.data(), idBytes.size());
  crc.process_bytes(bytes.data(), bytes.size());
  return crc.checksum();
}

}  // namespace

std::vector<unsigned char> encodeRecord(std::string_view store, std::uint32_t id,
                                        const message& record) {
  assert(store.size() <= 0xffff);
  const byte_view flat = record.bytes();
  std::vector<unsigned char> out(kNameStart + store.size() + flat.size());
  nv::store(out.data() + kCrcEnd, static_cast<std::uint16_t>(store.size()));
  const auto afterName = std::copy(store.begin(), store.end(), out.begin() + kNameStart);
  std::copy(flat.begin(), flat.end(), afterName);
  store32(out.data(), checksum(id, byte_view(out).subspan(kCrcEnd)));
  return out;
}

std::optional<StoredRecord> decodeRecord(std::uint32_t id, byte_view bytes) {
  if (bytes.size() < kNameStart) return std::nullopt;
  if (load32(bytes.data()) != checksum(id, bytes.subspan(kCrcEnd))) return std::nullopt;
  const std::size_t length = load<std::uint16_t>(bytes.data() + kCrcEnd);
  if (bytes.size() - kNameStart < length) return std::nullopt;
  const byte_view name = bytes.subspan(kNameStart, length);
  // What a service puts into a nested field is its own affair, and it was acknowledged.
  const byte_view flat = bytes.subspan(kNameStart + length);
  std::optional<message> record = message::parse(flat, message::kNestedUnread);
  if (!record) return std::nullopt;
  return StoredRecord{{reinterpret_cast<const char*>(name.data()), name.size()},
                      std::move(*record)};
}

}  // namespace nv
