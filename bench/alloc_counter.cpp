#include "bench/alloc_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define CINEBAR_COUNT_MALLOC 0
#else
#define CINEBAR_COUNT_MALLOC 1
#endif

namespace {
std::atomic<bool> g_counting{false};
std::atomic<std::uint64_t> g_count{0};

inline void Note() {
  if (g_counting.load(std::memory_order_relaxed)) g_count.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

namespace cinebar_bench {
void AllocationCount::Start() {
  g_count = 0;
  g_counting = true;
}
std::uint64_t AllocationCount::Stop() {
  g_counting = false;
  return g_count.load();
}
bool AllocationCount::CountsMalloc() { return CINEBAR_COUNT_MALLOC != 0; }
}  // namespace cinebar_bench

#define CINEBAR_EXPORT __attribute__((visibility("default")))

#if CINEBAR_COUNT_MALLOC
// glibc's own allocator under its internal names; the module and the C++
// runtime reach these wrappers because the program's definitions come first.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

CINEBAR_EXPORT void* malloc(std::size_t size) {
  Note();
  return __libc_malloc(size);
}
CINEBAR_EXPORT void* calloc(std::size_t count, std::size_t size) {
  Note();
  return __libc_calloc(count, size);
}
CINEBAR_EXPORT void* realloc(void* block, std::size_t size) {
  Note();
  return __libc_realloc(block, size);
}
}
#endif

// operator new reaches malloc above as well; counted here only when malloc is not.
CINEBAR_EXPORT void* operator new(std::size_t size) {
  if (!CINEBAR_COUNT_MALLOC) Note();
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}
CINEBAR_EXPORT void* operator new[](std::size_t size) { return operator new(size); }
CINEBAR_EXPORT void operator delete(void* block) noexcept { std::free(block); }
CINEBAR_EXPORT void operator delete[](void* block) noexcept { std::free(block); }
CINEBAR_EXPORT void operator delete(void* block, std::size_t) noexcept { std::free(block); }
CINEBAR_EXPORT void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
