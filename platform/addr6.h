/// A network address of 16 bytes, in network order. All zero by default.
#pragma once

#include <array>

namespace nv {

struct addr6 {
  std::array<unsigned char, 16> bytes{};

  friend bool operator==(const addr6&, const addr6&) = default;
};

}  // namespace nv
