// Number conversions as the processor performs them, written out so that no
// input is undefined behaviour: out-of-range float-to-int casts and signed
// wrap-around are spelled as the hardware's results.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

namespace DAE {

// Truncation toward zero into 32 bits. NaN and values outside the range give
// the processor's "integer indefinite", INT32_MIN.
constexpr int32_t TruncateToInt32(float value) {
  if (!(value > -2147483904.0f && value < 2147483648.0f)) return INT32_MIN;
  return static_cast<int32_t>(value);
}

// The low 16 bits, sign-extended: what a 16-bit field keeps of a 32-bit value
// (a conversion that C++20 defines as modular).
constexpr int16_t LowInt16(int32_t value) { return static_cast<int16_t>(value); }

// A 32-bit pattern read as two's complement (modular, as C++20 defines it).
constexpr int32_t AsInt32(uint32_t bits) { return static_cast<int32_t>(bits); }

// The edges of the 32-bit range: a cast that overflowed here would not compile.
static_assert(TruncateToInt32(2147483520.0f) == 2147483520 && TruncateToInt32(2147483648.0f) == INT32_MIN &&
                  TruncateToInt32(-2147483648.0f) == INT32_MIN &&
                  TruncateToInt32(-2147483904.0f) == INT32_MIN &&
                  TruncateToInt32(__builtin_nanf("")) == INT32_MIN && TruncateToInt32(-0.9f) == 0,
              "truncation as the processor does it");
static_assert(LowInt16(40000) == -25536 && LowInt16(-10) == -10 && LowInt16(INT32_MIN) == 0 &&
                  AsInt32(0xFFFFFFFFu) == -1,
              "what 16 and 32 bits keep");

// Nearest single-precision value of a double, as the hardware rounds it;
// huge values become infinities instead of undefined behaviour.
inline float NarrowToFloat(double value) {
  // Beyond FLT_MAX plus half a unit in the last place the hardware rounds to
  // infinity; below that it rounds to FLT_MAX.
  constexpr double kOverflowThreshold = static_cast<double>(FLT_MAX) + 0x1p103;
  if (std::fabs(value) <= static_cast<double>(FLT_MAX)) return static_cast<float>(value);  // the usual case
  if (std::isnan(value)) return std::numeric_limits<float>::quiet_NaN();
  const float magnitude =
      std::fabs(value) >= kOverflowThreshold ? std::numeric_limits<float>::infinity() : FLT_MAX;
  return std::signbit(value) ? -magnitude : magnitude;
}

}  // namespace DAE
