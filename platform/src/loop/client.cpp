#include "platform/client.h"

#include <memory>

#include "platform/looper.h"
#include "platform/src/bus/unix_transport.h"
#include "platform/src/loop/uv_loop.h"

namespace nv {

void connectBus(const std::filesystem::path& busDirectory) {
  auto loop = std::make_unique<UvLoop>();
  auto transport = std::make_unique<UnixTransport>(*loop, busDirectory, 0);
  getLooper()->assemble({.loop = std::move(loop), .transport = std::move(transport)});
}

}  // namespace nv
