// The property list the host must find in the module, written out field by
// field as the host reads it.
#pragma once

#include <cstdint>
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

}  // namespace module_test
