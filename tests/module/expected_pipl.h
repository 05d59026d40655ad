// The property list the host must find in the module, written out field by
// field as the host reads it, and a walker that splits a property list into
// its properties. Shared by the Windows and the native module tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace module_test {

// Four-character codes are stored with their characters reversed.
#define PIPL_CODE(a, b, c, d) d, c, b, a
#define PIPL_HEAD(a, b, c, d, len) \
  PIPL_CODE('8', 'B', 'I', 'M'), PIPL_CODE(a, b, c, d), 0, 0, 0, 0, len, 0, 0, 0

inline const std::vector<uint8_t>& ExpectedPiPL() {
  // clang-format off
  static const std::vector<uint8_t> bytes = {
      // Header: format version 1, reserved 0, 13 properties.
      1, 0,  0, 0, 0, 0,  13, 0, 0, 0,
      // 1 'kind': an After Effects effect, 'eFKT'.
      PIPL_HEAD('k', 'i', 'n', 'd', 4), PIPL_CODE('e', 'F', 'K', 'T'),
      // 2 'name': length byte 7, "Cinebar", no padding.
      PIPL_HEAD('n', 'a', 'm', 'e', 8), 7, 'C', 'i', 'n', 'e', 'b', 'a', 'r',
      // 3 'catg': length byte 18, "TW Lenscraft Suite", one zero of padding.
      PIPL_HEAD('c', 'a', 't', 'g', 20), 18,
      'T', 'W', ' ', 'L', 'e', 'n', 's', 'c', 'r', 'a', 'f', 't', ' ', 'S', 'u', 'i', 't', 'e', 0,
      // 4 '8664': "EntryPointFunc", terminator, one zero of padding.
      PIPL_HEAD('8', '6', '6', '4', 16),
      'E', 'n', 't', 'r', 'y', 'P', 'o', 'i', 'n', 't', 'F', 'u', 'n', 'c', 0, 0,
      // 5 'ePVR': property list version 2.0.
      PIPL_HEAD('e', 'P', 'V', 'R', 4), 2, 0, 0, 0,
      // 6 'eSVR': effect API version 13.0.
      PIPL_HEAD('e', 'S', 'V', 'R', 4), 13, 0, 0, 0,
      // 7 'eVER': module version 0x0008E600 (1.1.12, release, build 0).
      PIPL_HEAD('e', 'V', 'E', 'R', 4), 0x00, 0xE6, 0x08, 0x00,
      // 8 'eINF': two bytes of info flags, two padding bytes not counted.
      PIPL_HEAD('e', 'I', 'N', 'F', 2), 0, 0,  0, 0,
      // 9 'eGLO': out-flags 0x02008401.
      PIPL_HEAD('e', 'G', 'L', 'O', 4), 0x01, 0x84, 0x00, 0x02,
      // 10 'eGL2': second out-flag word 0.
      PIPL_HEAD('e', 'G', 'L', '2', 4), 0, 0, 0, 0,
      // 11 'eMNA': length byte 15, "ADBE KS Cinebar".
      PIPL_HEAD('e', 'M', 'N', 'A', 16), 15,
      'A', 'D', 'B', 'E', ' ', 'K', 'S', ' ', 'C', 'i', 'n', 'e', 'b', 'a', 'r',
      // 12, 13 'aeFL': reserved host information, 8 and then 0.
      PIPL_HEAD('a', 'e', 'F', 'L', 4), 8, 0, 0, 0,
      PIPL_HEAD('a', 'e', 'F', 'L', 4), 0, 0, 0, 0,
  };
  // clang-format on
  return bytes;
}

#undef PIPL_HEAD
#undef PIPL_CODE

constexpr size_t kExpectedPiPLSize = 314;
constexpr uint32_t kExpectedPropertyCount = 13;

struct Property {
  std::string vendor;  // in reading order, e.g. "8BIM"
  std::string key;     // in reading order, e.g. "kind"
  uint32_t id = 0;
  uint32_t length = 0;         // the length field as stored
  size_t offset = 0;           // of the value within the list
  std::vector<uint8_t> value;  // `length` bytes
};

struct WalkResult {
  uint32_t declared_count = 0;
  std::vector<Property> properties;
  size_t end = 0;     // offset just past the last value (with padding)
  std::string error;  // empty when the list is well formed
};

inline uint32_t ReadU32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

inline std::string ReadCode(const uint8_t* p) {
  return std::string{char(p[3]), char(p[2]), char(p[1]), char(p[0])};
}

// Walks a property list as the host does. With `round_to_4` every value is
// taken to occupy its length rounded up to a multiple of 4; without it the
// walk trusts the length fields alone, which goes wrong after 'eINF'.
inline WalkResult WalkPiPL(const std::vector<uint8_t>& bytes, bool round_to_4 = true) {
  WalkResult r;
  if (bytes.size() < 10) {
    r.error = "shorter than the 10-byte header";
    return r;
  }
  if (bytes[0] != 1 || bytes[1] != 0) r.error = "format version is not 1";
  r.declared_count = ReadU32(&bytes[6]);
  size_t pos = 10;
  for (uint32_t i = 0; i < r.declared_count; ++i) {
    if (bytes.size() - pos < 16) {
      r.error = "property " + std::to_string(i + 1) + " head runs past the end";
      break;
    }
    Property p;
    p.vendor = ReadCode(&bytes[pos]);
    p.key = ReadCode(&bytes[pos + 4]);
    p.id = ReadU32(&bytes[pos + 8]);
    p.length = ReadU32(&bytes[pos + 12]);
    p.offset = pos + 16;
    const size_t occupied = round_to_4 ? (size_t(p.length) + 3) / 4 * 4 : p.length;
    if (bytes.size() - p.offset < occupied) {
      r.error = "property " + std::to_string(i + 1) + " value runs past the end";
      break;
    }
    p.value.assign(bytes.begin() + std::ptrdiff_t(p.offset),
                   bytes.begin() + std::ptrdiff_t(p.offset + p.length));
    pos = p.offset + occupied;
    r.properties.push_back(std::move(p));
  }
  r.end = pos;
  if (r.error.empty() && r.end != bytes.size()) r.error = "bytes left after the last property";
  return r;
}

}  // namespace module_test
