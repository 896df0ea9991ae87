#include "platform/src/store_file/salvage.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace nv {

namespace {

constexpr unsigned char kInnerPage = 0x05;
constexpr unsigned char kLeafPage = 0x0d;
constexpr std::size_t kFileHeader = 100;  // at the start of page 1
constexpr std::size_t kLeafHeader = 8;
// A payload above kMostHere leaves at least kLeastHere bytes in its page; the rest fills other
// pages.
constexpr std::size_t kMostHere = kPageSize - 35;
constexpr std::size_t kLeastHere = (kPageSize - 12) * 32 / 255 - 23;
constexpr std::size_t kOverflowRoom = kPageSize - 4;

std::size_t headerAt(std::uint32_t page) { return page == 1 ? kFileHeader : 0; }

/// Reads what lies one after another in a piece of memory.
class Cursor {
 public:
  Cursor(byte_view bytes, std::size_t at) : bytes_(bytes), at_(at) {}

  std::optional<std::uint64_t> varint() {
    std::uint64_t value = 0;
    for (int i = 0; i < 9 && at_ < bytes_.size(); ++i) {
      const unsigned char byte = bytes_[at_++];
      if (i == 8) return value << 8 | byte;
      value = value << 7 | (byte & 0x7f);
      if (byte < 0x80) return value;
    }
    return std::nullopt;
  }
  std::size_t at() const { return at_; }

 private:
  byte_view bytes_;
  std::size_t at_;
};

std::size_t payloadHere(std::uint64_t length) {
  if (length <= kMostHere) return static_cast<std::size_t>(length);
  const auto rest = static_cast<std::size_t>((length - kLeastHere) % kOverflowRoom);
  return kLeastHere + rest <= kMostHere ? kLeastHere + rest : kLeastHere;
}

// A row is (NULL, blob): the id stands in the cell instead.
byte_view recordIn(byte_view row) {
  Cursor header(row, 0);
  const auto size = header.varint(), id = header.varint(), record = header.varint();
  if (!record || *id != 0 || *size != header.at() || *record < 12 || *record % 2 != 0) return {};
  const byte_view bytes = row.subspan(header.at());
  return bytes.size() == (*record - 12) / 2 ? bytes : byte_view();
}

// How many bytes a value takes, of which the header of its row says `serial`.
std::uint64_t valueSize(std::uint64_t serial) {
  constexpr std::array<std::uint64_t, 12> sizes{0, 1, 2, 3, 4, 6, 8, 8, 0, 0, 0, 0};
  return serial < sizes.size() ? sizes[static_cast<std::size_t>(serial)] : (serial - 12) / 2;
}

// A row of the schema is (type, name, name of the table, root page, SQL).
std::optional<Salvage::TableRow> tableRowIn(byte_view row) {
  Cursor header(row, 0);
  const auto headerSize = header.varint();
  std::array<std::string_view, 5> columns;
  std::uint64_t at = headerSize.value_or(row.size());
  for (std::string_view& column : columns) {
    const auto serial = header.varint();
    if (!serial || at > row.size() || valueSize(*serial) > row.size() - at) return std::nullopt;
    const auto size = static_cast<std::size_t>(valueSize(*serial));
    const byte_view bytes = row.subspan(static_cast<std::size_t>(at), size);
    column = {reinterpret_cast<const char*>(bytes.data()), size};
    at += size;
  }
  if (columns[0] != "table") return std::nullopt;
  return Salvage::TableRow{std::string(columns[1]), std::string(columns[4])};
}

// Bytes of the cell area that are on the page's own list of free blocks; more than a page when it
// is broken.
std::size_t freeBytes(const Page& page, std::size_t header) {
  std::size_t sum = page[header + 7];
  std::size_t at = bigEndian16(&page[header + 1]);
  while (at != 0 && sum <= kPageSize) {
    if (at + 4 > kPageSize) return kPageSize + 1;
    sum += std::max<std::size_t>(4, bigEndian16(&page[at + 2]));
    at = bigEndian16(&page[at]);
  }
  return sum;
}

}  // namespace

void Salvage::run(const Take& take) {
  take_ = take;
  explained_.assign(std::size_t{pages_.count()} + 1, false);
  explained_[0] = true;
  for (const std::uint32_t page : pages_.oldestFirst()) scanPage(page);
  markFreePages();
  reportPages();
}

void Salvage::scanPage(std::uint32_t number) {
  const std::optional<Page> page = pages_.read(number);
  if (!page) return;
  const unsigned char type = (*page)[headerAt(number)];
  if (type == kInnerPage) explained_[number] = true;
  if (type == kLeafPage) scanLeaf(number, *page);
}

void Salvage::scanLeaf(std::uint32_t number, const Page& page) {
  explained_[number] = true;
  const std::size_t header = headerAt(number);
  const std::size_t cells = bigEndian16(&page[header + 3]);
  const std::size_t first = header + kLeafHeader;
  if (first + 2 * cells > kPageSize) return lose(number, "cannot be read");

  std::size_t used = freeBytes(page, header);
  for (std::size_t i = 0; i < cells; ++i) {
    const auto cell = readCell(page, bigEndian16(&page[first + 2 * i]));
    takeCell(number, page, cell);
    if (cell) used += std::max<std::size_t>(4, cell->size);
  }
  const std::size_t content = bigEndian16(&page[header + 5]);
  if (content + used != kPageSize) lose(number, "is damaged and may have held more records");
}

void Salvage::takeCell(std::uint32_t number, const Page& page, const std::optional<Cell>& cell) {
  if (!cell) return lose(number, "holds a record that cannot be read");
  const std::vector<unsigned char> row = payload(page, *cell);
  std::optional<StoredRecord> record;
  const auto id = static_cast<std::uint32_t>(cell->id);
  const bool isMarker = cell->id == static_cast<std::uint64_t>(kMarkerId);
  if (cell->id == id || isMarker) record = decodeRecord(id, recordIn(row));
  if (record && isMarker)
    stores_.emplace(record->store);
  else if (record)
    take_(id, *record);
  else if (auto table = tableRowIn(row))
    tables_.push_back(std::move(*table));
  else
    lose(number, isMarker ? "held the mark of a store, which is damaged"
                          : "held record " + std::to_string(cell->id) + ", which is damaged");
}

std::optional<Salvage::Cell> Salvage::readCell(const Page& page, std::size_t offset) {
  Cursor cursor(page, offset);
  const auto length = cursor.varint(), id = cursor.varint();
  if (!id) return std::nullopt;
  Cell cell{*id, *length, cursor.at(), payloadHere(*length), 0, 0};
  std::size_t end = cell.at + cell.here;
  if (cell.here < cell.length) {
    if (end + 4 > kPageSize) return std::nullopt;
    cell.overflow = bigEndian32(&page[end]);
    end += 4;
  }
  if (end > kPageSize) return std::nullopt;
  cell.size = end - offset;
  return cell;
}

// Ends early, and the record is then refused, where the chain of pages is broken.
std::vector<unsigned char> Salvage::payload(const Page& page, const Cell& cell) {
  const auto start = page.begin() + static_cast<std::ptrdiff_t>(cell.at);
  std::vector<unsigned char> bytes(start, start + static_cast<std::ptrdiff_t>(cell.here));
  std::uint32_t next = cell.overflow;
  for (std::uint32_t steps = 0; bytes.size() < cell.length && steps < pages_.count(); ++steps) {
    const std::optional<Page> more = pages_.read(next);
    if (!more) break;
    explained_[next] = true;
    const auto left = std::min<std::uint64_t>(cell.length - bytes.size(), kOverflowRoom);
    bytes.insert(bytes.end(), more->begin() + 4, more->begin() + 4 + static_cast<int>(left));
    next = bigEndian32(more->data());
  }
  return bytes;
}

// Free pages are listed in trunk pages: the next trunk, a count, so many page numbers.
void Salvage::markFreePages() {
  const std::optional<Page> first = pages_.read(1);
  std::uint32_t trunk = first ? bigEndian32(first->data() + 32) : 0;
  for (std::uint32_t steps = 0; steps < pages_.count(); ++steps) {
    const std::optional<Page> page = pages_.read(trunk);
    if (!page) return;
    explained_[trunk] = true;
    const std::uint32_t listed = std::min(bigEndian32(page->data() + 4), kPageSize / 4 - 2);
    for (std::uint32_t i = 0; i < listed; ++i) {
      const std::uint32_t free = bigEndian32(page->data() + 8 + 4 * i);
      if (free <= pages_.count()) explained_[free] = true;
    }
    trunk = bigEndian32(page->data());
  }
}

void Salvage::reportPages() {
  const std::optional<Page> first = pages_.read(1);
  for (std::uint32_t page = 1; page <= pages_.count(); ++page)
    if (!explained_[page]) lose(page, "cannot be read");
  const std::uint32_t expected = first ? bigEndian32(first->data() + 28) : 0;
  if (expected > pages_.count())
    losses_.push_back("pages " + std::to_string(pages_.count() + 1) + " to " +
                      std::to_string(expected) + " are missing");
}

void Salvage::lose(std::uint32_t page, const std::string& what) {
  losses_.push_back("page " + std::to_string(page) + ' ' + what);
}

}  // namespace nv
