#include "examples/neighbours/live_records.h"

#include <iterator>
#include <utility>

#include "examples/neighbours/tables.h"

namespace neighbours {

LiveRecords::LiveRecords(std::filesystem::path directory, std::shared_ptr<void> open)
    : directory_(std::move(directory)), open_(std::move(open)) {}

/// A request that waits is answered also when its client stops the list.
LiveRecords::~LiveRecords() { done(); }

void LiveRecords::more() {
  patience_.stop();
  isAsked_ = true;
  goOn();
}

/// There is room again: what the next request will want is gathered meanwhile.
void LiveRecords::beforeReply(nv::message&) {
  isAsked_ = false;
  if (table_ < std::size(kTables)) goOn();
  patience_ = nv::Timer(kPatience, [this] { delete this; });
}

void LiveRecords::goOn() {
  next_ = nv::Timer(0, [this] { gather(); });
}

/// A record may complete a reply, and that may end this.
void LiveRecords::gather() {
  const auto life = token_.watch();
  std::string line;
  for (unsigned k = 0; k < kLinesPerPass; ++k) {
    if (full()) return;
    if (!nextLine(line)) return finish();
    const auto record = recordOf(kTables[table_], line);
    if (record) add(record->flat());
    if (life.gone()) return;
  }
  goOn();
}

/// Where a client was told to ask on, its next request is waited for: the list would be gone when
/// it comes.
void LiveRecords::finish() {
  if (!isAsked_) return;
  open_.reset();
  done();
}

bool LiveRecords::nextLine(std::string& line) {
  for (; table_ < std::size(kTables); ++table_) {
    if (!reader_) reader_.emplace(directory_ / kTables[table_]);
    if (auto next = reader_->next()) return line = std::move(*next), true;
    reader_.reset();
  }
  return false;
}

}  // namespace neighbours
