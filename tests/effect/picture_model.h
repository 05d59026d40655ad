// An independent model of the picture rectangle: each step computed in double
// precision and rounded to single precision (exact for + - * /), with the
// hardware's rounding and no out-of-range cast. The geometry test and the
// geometry fuzzer hold ComputePictureRect to it.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <string>

#include "hostapi/ae_effect.h"

namespace picture_model {

inline std::string Text(const PF_Rect& r) {
  return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
         std::to_string(r.bottom);
}

inline float Single(double exact) {  // rounding as the hardware does, without an out-of-range cast
  const double limit = static_cast<double>(FLT_MAX) + std::ldexp(1.0, 103);
  if (std::isnan(exact) || std::fabs(exact) >= limit)
    return static_cast<float>(exact > 0 ? INFINITY : exact < 0 ? -INFINITY : NAN);
  if (std::fabs(exact) > static_cast<double>(FLT_MAX))
    return std::copysign(FLT_MAX, static_cast<float>(exact));
  return static_cast<float>(exact);
}
inline float Mul(float a, float b) { return Single(static_cast<double>(a) * b); }
inline float Div(float a, float b) {
  if (b == 0.0f || !std::isfinite(a) || !std::isfinite(b)) return a / b;
  return Single(static_cast<double>(a) / b);
}
inline int64_t Low(int64_t value, int bits) {  // the low bits, sign-extended
  const int64_t span = int64_t{1} << bits, low = ((value % span) + span) % span;
  return low >= span / 2 ? low - span : low;
}
inline int64_t Truncated16(float value) {
  const double t = std::trunc(static_cast<double>(value));
  return Low(std::isnan(t) || t < -2147483648.0 || t > 2147483647.0 ? INT32_MIN : static_cast<int64_t>(t),
             16);
}

inline PF_Rect Model(A_long width, A_long height, float ratio, PF_RationalScale dx, PF_RationalScale dy,
                     PF_RationalScale par) {
  const uint32_t p1 = static_cast<uint32_t>(dx.num) * dy.den, p2 = dx.den * static_cast<uint32_t>(dy.num);
  const float d = Div(Single(p1), Single(p2));
  const float t = Div(Mul(ratio, Single(par.den)), Single(par.num));
  const float r = Div(Div(Single(width), Single(height)), d);
  if (r > t) {
    const int64_t w = Truncated16(Mul(Mul(d, Single(height)), t)), left = Low(Low(width - w, 32) / 2, 16);
    return PF_Rect{A_long(left), 0, A_long(left + w), A_long(Low(height, 16))};
  }
  const int64_t h = Truncated16(Div(Div(Single(width), t), d)), top = Low(Low(height - h, 32) / 2, 16);
  return PF_Rect{0, A_long(top), A_long(Low(width, 16)), A_long(top + h)};
}

}  // namespace picture_model
