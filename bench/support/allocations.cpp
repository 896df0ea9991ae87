#include "bench/support/allocations.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::uint64_t count = 0;
}

namespace bench {
std::uint64_t allocations() { return count; }
}  // namespace bench

void* operator new(std::size_t size) {
  ++count;
  if (void* p = std::malloc(size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
