// The framework's exception family. Deep code throws these (or a host error
// code as a bare int); only EntryPointFunc catches them. All are plain value
// types: no virtual functions, copied bitwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace DAE {

struct DAEXCP {};

// The host could not supply memory; carries the number of bytes asked for.
struct DAEAllocXCP : DAEXCP {
  explicit DAEAllocXCP(int32_t requested) : bytes(requested) {}
  int32_t bytes;
};

struct DAECancelXCP : DAEXCP {};

namespace detail {
template <std::size_t N>
void CopyName(char (&destination)[N], const char* source) {
  std::snprintf(destination, N, "%s", source != nullptr ? source : "");  // cut, always terminated
}
}  // namespace detail

// A host suite the module needs is missing; the name is the first member.
struct DAESuiteXCP : DAEXCP {
  explicit DAESuiteXCP(const char* suite) { detail::CopyName(suite_name, suite); }
  char suite_name[64];
};

// A resource of the module's own is unusable. Six bytes that nothing here
// reads lead the name.
struct DAEResourceXCP : DAEXCP {
  explicit DAEResourceXCP(const char* resource) { detail::CopyName(resource_name, resource); }
  uint8_t leading[6] = {};
  char resource_name[64];
};

struct DAEMissingResourceXCP : DAEResourceXCP {
  using DAEResourceXCP::DAEResourceXCP;
};
static_assert(offsetof(DAEResourceXCP, resource_name) == 6 && offsetof(DAESuiteXCP, suite_name) == 0,
              "the name follows six leading bytes; a suite's name comes first");

// A non-zero host error travels as a bare int, not wrapped in a class.
inline void ThrowIfHostError(int32_t error) {
  if (error != 0) throw static_cast<int>(error);
}

}  // namespace DAE
