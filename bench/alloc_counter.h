// Counts heap allocations made by anyone in the process (the module
// included) while counting is switched on: malloc, calloc, realloc and the
// global operator new are interposed by this program. Under AddressSanitizer,
// which owns malloc, only operator new is counted.
#pragma once

#include <cstdint>

namespace cinebar_bench {

struct AllocationCount {
  static void Start();
  static std::uint64_t Stop();  // allocations since Start
  static bool CountsMalloc();   // false when only operator new is seen
};

}  // namespace cinebar_bench
