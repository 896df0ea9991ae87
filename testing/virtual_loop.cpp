#include "testing/virtual_loop.h"

namespace nv::testkit {

void VirtualLoop::wait(std::optional<std::chrono::microseconds>) {
  if (deliver_) deliver_();
}

}  // namespace nv::testkit
