#include "tools/confctl/progress.h"

#include <utility>

namespace confctl {

namespace {
constexpr const char* kClearLine = "\r\x1b[K";
}  // namespace

Progress::Progress(std::ostream& terminal, bool isTerminal, std::function<std::uint64_t()> now)
    : out_(terminal), isTerminal_(isTerminal), now_(std::move(now)), begin_(now_()) {}

void Progress::hide() {
  if (std::exchange(isShown_, false)) out_ << kClearLine << std::flush;
}

void Progress::show(std::size_t objects) {
  const auto passed = now_() - begin_;
  if (!isTerminal_ || passed < kPatience) return;
  hide();
  out_ << objects << " objects after " << passed / 1000 << " s..." << std::flush;
  isShown_ = true;
}

}  // namespace confctl
