// Number conversions as the processor performs them, written out so that no
// input is undefined behaviour: out-of-range float-to-int casts and signed
// wrap-around are spelled as the hardware's results.
#pragma once

#include <cstdint>

namespace DAE {

// Truncation toward zero into 32 bits. NaN and values outside the range give
// the processor's "integer indefinite", INT32_MIN.
constexpr int32_t TruncateToInt32(float value) {
  if (!(value > -2147483904.0f && value < 2147483648.0f)) return INT32_MIN;
  return static_cast<int32_t>(value);
}

// The low 16 bits, sign-extended: what a 16-bit field keeps of a 32-bit value.
constexpr int16_t LowInt16(int32_t value) {
  const int32_t low = static_cast<int32_t>(static_cast<uint32_t>(value) & 0xFFFFu);
  return static_cast<int16_t>(low >= 0x8000 ? low - 0x10000 : low);
}

// A 32-bit pattern read as two's complement.
constexpr int32_t AsInt32(uint32_t bits) {
  return bits >= 0x80000000u ? static_cast<int32_t>(bits - 0x80000000u) + INT32_MIN
                             : static_cast<int32_t>(bits);
}

static_assert(LowInt16(TruncateToInt32(40000.9f)) == -25536 && LowInt16(TruncateToInt32(-10.5f)) == -10 &&
                  LowInt16(TruncateToInt32(1e10f)) == 0 && AsInt32(0xFFFFFFFFu) == -1,
              "conversions as the processor does them");

}  // namespace DAE
