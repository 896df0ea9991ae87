#include "examples/support/kept_file.h"

#include <iostream>
#include <utility>

#include "examples/support/replace_file.h"
#include "platform/runner.h"

namespace examples {

KeptFile::KeptFile(std::string service, std::filesystem::path file,
                   std::function<std::string()> text)
    : service_(std::move(service)), file_(std::move(file)), text_(std::move(text)) {
  nv::getRunner().addBeforeSleep([self = std::weak_ptr(self_)] {
    if (const auto kept = self.lock()) (*kept)->write();
  });
}

void KeptFile::write() {
  if (!std::exchange(isOutdated_, false)) return;
  const auto fault = replaceFile(file_, text_(), check);
  if (!fault.empty() && fault != fault_) std::cerr << service_ << ": " << fault << std::endl;
  fault_ = fault;
  if (!fault.empty())
    retry_ = nv::Timer(kRetryInterval, [this] { isOutdated_ = true; });
  else if (written)
    written();
}

}  // namespace examples
