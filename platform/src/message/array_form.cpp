#include "platform/src/message/array_form.h"

namespace nv::flat {

namespace {

template <std::unsigned_integral E>
void toLittleEndian(unsigned char* items, std::size_t size) {
  for (std::size_t at = 0; at < size; at += sizeof(E)) {
    E native;
    std::memcpy(&native, items + at, sizeof native);
    store(items + at, native);
  }
}

}  // namespace

void normalise(std::uint32_t uid, unsigned char* items, std::size_t size) {
  constexpr bool swaps = std::endian::native == std::endian::big;
  const std::uint32_t type = uid & kTypeMask;
  if (type == bool_array_id::tag) {
    for (std::size_t k = 0; k < size; ++k) items[k] = items[k] != 0;
  }
  if (swaps && type == u32_array_id::tag) toLittleEndian<std::uint32_t>(items, size);
  if (swaps && type == u64_array_id::tag) toLittleEndian<std::uint64_t>(items, size);
}

std::uint64_t listSize(const byte_list& list) {
  std::uint64_t size = kListHead + kListEnd * std::uint64_t{list.size()};
  list.forEach([&](byte_view element) { size += element.size(); });
  return size;
}

void writeList(unsigned char* to, const byte_list& list) {
  store32(to, static_cast<std::uint32_t>(list.size()));
  unsigned char* ends = to + kListHead;
  unsigned char* const bytes = ends + kListEnd * list.size();
  std::uint32_t end = 0;
  list.forEach([&](byte_view element) {
    copyBytes(bytes + end, element);
    end += static_cast<std::uint32_t>(element.size());
    store32(ends, end);
    ends += kListEnd;
  });
}

}  // namespace nv::flat
