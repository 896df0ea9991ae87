/// How much memory a process has asked for and not given back.
#pragma once

#include <cstdint>

#include <malloc.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CONFKIT_COUNTS_HEAP
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define CONFKIT_COUNTS_HEAP
#endif

#ifdef CONFKIT_COUNTS_HEAP
#include <sanitizer/allocator_interface.h>
#endif

namespace nv::testkit {

/// Counted by the allocator itself: the size of the process would tell of an emulator's translated
/// code and of freed memory that is kept for diagnosis as well.
inline std::uint64_t heapInUse() {
#ifdef CONFKIT_COUNTS_HEAP
  return __sanitizer_get_current_allocated_bytes();
#else
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

}  // namespace nv::testkit
