// Address space without memory behind it: a range the system reserves but
// backs with no page until one is read or written, and a way to learn
// afterwards whether any page was; and memory faulted in ahead of writing.
// POSIX only; elsewhere nothing is reserved and nothing faulted ahead.
#pragma once

#include <cstddef>

namespace cinebar_platform {

// `bytes` of address space that take no memory until touched; null when the
// system refuses or has no such thing (Windows).
void* ReserveUntouched(std::size_t bytes);
void ReleaseUntouched(void* start, std::size_t bytes);

// Asks the system to back a range about to be written whole with memory now,
// in one call rather than one fault a page. Advice: nothing changes on failure.
void PrefaultForWriting(void* start, std::size_t bytes);

// Whether any page of the range is in memory: read or written since reserved.
// False for null or an empty range.
bool AnyPageTouched(const void* start, std::size_t bytes);

}  // namespace cinebar_platform
