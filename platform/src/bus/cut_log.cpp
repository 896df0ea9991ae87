#include "platform/src/bus/cut_log.h"

#include <iostream>
#include <utility>

namespace nv {

namespace {
constexpr unsigned kLines = 10;
constexpr unsigned kSecond = 1000;  // milliseconds
}  // namespace

void CutLog::add(std::uint32_t user, const std::string& line) {
  if (!second_.running()) second_ = Timer(kSecond, [this] { tellCounts(); });
  if (++cuts_[user] <= kLines) std::cout << line << std::endl;
}

void CutLog::tellCounts() {
  for (const auto& [user, cuts] : std::exchange(cuts_, {})) {
    if (cuts <= kLines) continue;
    std::cout << "bus: " << cuts - kLines << " more connections of user " << user
              << " were cut within a second" << std::endl;
  }
}

}  // namespace nv
