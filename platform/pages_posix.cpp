#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/pages.h"

namespace cinebar_platform {

void* ReserveUntouched(std::size_t bytes) {
  if (bytes == 0) return nullptr;
  void* start =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return start == MAP_FAILED ? nullptr : start;
}

void ReleaseUntouched(void* start, std::size_t bytes) {
  if (start != nullptr) munmap(start, bytes);
}

void PrefaultForWriting(void* start, std::size_t bytes) {
#if defined(MADV_POPULATE_WRITE)
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const std::uintptr_t from = (reinterpret_cast<std::uintptr_t>(start) + page - 1) / page * page;
  const std::uintptr_t to = (reinterpret_cast<std::uintptr_t>(start) + bytes) / page * page;
  if (to > from) madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);
#else
  (void)start, (void)bytes;
#endif
}

bool AnyPageTouched(const void* start, std::size_t bytes) {
  if (start == nullptr || bytes == 0) return false;
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  // A page read maps the shared zero page, which counts as present too.
  constexpr std::size_t kPagesAtOnce = 1 << 16;
  std::vector<unsigned char> present(kPagesAtOnce);
  const auto first = reinterpret_cast<std::uintptr_t>(start) / page * page;
  const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(start) + bytes;
  for (std::uintptr_t at = first; at < end; at += kPagesAtOnce * page) {
    const std::size_t length = std::min<std::uintptr_t>(end - at, kPagesAtOnce * page);
    if (mincore(reinterpret_cast<void*>(at), length, present.data()) != 0)
      return true;  // unknown: say touched
    for (std::size_t i = 0; i < (length + page - 1) / page; ++i)
      if ((present[i] & 1) != 0) return true;
  }
  return false;
}

}  // namespace cinebar_platform
