#include "Memory.hpp"

#ifdef TAVLO_SANITIZED
#include <sanitizer/allocator_interface.h>
#else
#include <malloc.h>
#endif

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>

namespace {

std::atomic<bool> counting = false;
std::atomic<std::int64_t> current = 0, peak = 0;

void count(std::int64_t change) {
  const std::int64_t now = current += change;
  for (std::int64_t seen = peak; seen < now && !peak.compare_exchange_weak(seen, now);) continue;
}

#ifndef TAVLO_SANITIZED
std::int64_t sizeOf(void* block) {
  return static_cast<std::int64_t>(malloc_usable_size(block));
}

void* counted(void* block) {
  if (counting.load(std::memory_order_relaxed)) count(sizeOf(block));
  return block;
}
#endif

}  // namespace

#ifndef TAVLO_SANITIZED
// glibc's own functions under the names that it keeps for programs which replace malloc; operator new ends here too.
extern "C" {
void* __libc_malloc(std::size_t size);                           // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, std::size_t size);             // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT(bugprone-reserved-identifier)
void __libc_free(void* block);                                   // NOLINT(bugprone-reserved-identifier)

void* malloc(std::size_t size) {
  return counted(__libc_malloc(size));
}
void* calloc(std::size_t number, std::size_t size) {
  return counted(__libc_calloc(number, size));
}
void* realloc(void* block, std::size_t size) {
  const std::int64_t before = sizeOf(block);
  void* const moved = __libc_realloc(block, size);
  if (counting.load(std::memory_order_relaxed)) count((moved != nullptr ? sizeOf(moved) : 0) - before);
  return moved;
}
void* memalign(std::size_t alignment, std::size_t size) {
  return counted(__libc_memalign(alignment, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}
void free(void* block) {
  if (counting.load(std::memory_order_relaxed)) count(-sizeOf(block));
  __libc_free(block);
}
}
#endif

namespace tavlo::bench {

void startCounting() {
#ifdef TAVLO_SANITIZED  // sanitizers have malloc for themselves
  [[maybe_unused]] static const int hooks = __sanitizer_install_malloc_and_free_hooks(
      [](const volatile void* /*block*/, std::size_t size) {
        if (counting.load(std::memory_order_relaxed)) count(static_cast<std::int64_t>(size));
      },
      [](const volatile void* block) {
        if (!counting.load(std::memory_order_relaxed)) return;
        count(-static_cast<std::int64_t>(__sanitizer_get_allocated_size(const_cast<const void*>(block))));
      });
#endif
  current = peak = 0;
  counting = true;
}

std::size_t stopCounting() {
  counting = false;
  return static_cast<std::size_t>(peak.load());
}

}  // namespace tavlo::bench
