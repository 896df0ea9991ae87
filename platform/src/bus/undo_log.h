/// The last undo records of this process.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "platform/message.h"

namespace nv {

/// A bounded list of undo records, numbered from 1; the oldest make room for new ones.
class UndoLog {
 public:
  UndoLog(std::size_t capacity, std::size_t maxBytes) : capacity_(capacity), maxBytes_(maxBytes) {}

  /// A record as clients read it (see undo_log.h of the platform), still without a number.
  static message record(const std::vector<std::uint32_t>& route, const message& request,
                        const message& undo, const std::string& description);
  void add(message record);
  /// The answer to cmd::getUndo by the handler at `route`: its own records newest first, from
  /// number key::startId downwards, at most key::maxCount of them; key::startId of the reply says
  /// where to go on.
  message page(const message& request, const std::vector<std::uint32_t>& route) const;

 private:
  std::size_t capacity_, maxBytes_;
  std::size_t bytes_ = 0;
  std::uint32_t lastNumber_ = 0;
  std::deque<message> records_;  // newest first
};

}  // namespace nv
