#include "platform/pages.h"

namespace cinebar_platform {

// The simulated host's worlds without pixels serve the native tool only.
void* ReserveUntouched(std::size_t) { return nullptr; }
void ReleaseUntouched(void*, std::size_t) {}
void PrefaultForWriting(void*, std::size_t) {}
bool AnyPageTouched(const void*, std::size_t) { return false; }

}  // namespace cinebar_platform
