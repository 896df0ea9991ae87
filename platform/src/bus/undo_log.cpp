#include "platform/undo_log.h"

#include <algorithm>

#include "platform/keys.h"
#include "platform/src/bus/envelope.h"
#include "platform/src/bus/undo_log.h"

namespace nv {

namespace {
constexpr std::size_t kPageBytes = 61440;
constexpr std::size_t kMaxRequestBytes = 16384;
}  // namespace

message UndoLog::record(const std::vector<std::uint32_t>& route, const message& request,
                        const message& undo, const std::string& description) {
  auto bareRequest = request;
  stripEnvelope(bareRequest);
  bareRequest.insert(key::command, request.get(key::command));
  message record;
  record.insert(undo_key::description, description);
  record.insert(undo_key::command, undo.flat());
  if (bareRequest.bytes().size() <= kMaxRequestBytes)
    record.insert(undo_key::request, bareRequest.flat());
  record.insert(undo_key::route, route);
  return record;
}

void UndoLog::add(message record) {
  record.insert(undo_key::number, ++lastNumber_);
  bytes_ += record.bytes().size();
  records_.push_front(std::move(record));
  while (records_.size() > capacity_ || (bytes_ > maxBytes_ && records_.size() > 1)) {
    bytes_ -= records_.back().bytes().size();
    records_.pop_back();
  }
}

message UndoLog::page(const message& request, const std::vector<std::uint32_t>& route) const {
  const auto start = request.get(key::startId, kNoId);
  const auto most = request.get(key::maxCount, kNoId);
  message reply;
  std::size_t bytes = 0;
  std::vector<flat_message> page;
  for (const auto& record : records_) {
    if (record.get(undo_key::number) > start || record.get(undo_key::route) != route) continue;
    auto entry = record.flat();
    bytes += entry.size();
    if (page.size() == most || (!page.empty() && bytes > kPageBytes)) {
      reply.insert(key::startId, record.get(undo_key::number));
      break;
    }
    page.push_back(std::move(entry));
  }
  reply.insert(key::objects, page);
  return reply;
}

}  // namespace nv
