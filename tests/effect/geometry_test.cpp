// The picture rectangle: many generated cases, degenerate worlds among them,
// against an independent model that computes each step in double precision and rounds
// it to single precision (exact for + - * /). Its properties over any input
// (inside, centred, bars on one axis) are the geometry fuzzer's.
#include "effect/geometry.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>

namespace {

std::string Text(const PF_Rect& r) {
  return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
         std::to_string(r.bottom);
}

// ---- the independent model ----------------------------------------------------

float Single(double exact) {  // rounding as the hardware does, without an out-of-range cast
  const double limit = static_cast<double>(FLT_MAX) + std::ldexp(1.0, 103);
  if (std::isnan(exact) || std::fabs(exact) >= limit)
    return static_cast<float>(exact > 0 ? INFINITY : exact < 0 ? -INFINITY : NAN);
  if (std::fabs(exact) > static_cast<double>(FLT_MAX))
    return std::copysign(FLT_MAX, static_cast<float>(exact));
  return static_cast<float>(exact);
}
float Mul(float a, float b) { return Single(static_cast<double>(a) * b); }
float Div(float a, float b) {
  if (b == 0.0f || !std::isfinite(a) || !std::isfinite(b)) return a / b;
  return Single(static_cast<double>(a) / b);
}
int64_t Low(int64_t value, int bits) {  // the low bits, sign-extended
  const int64_t span = int64_t{1} << bits, low = ((value % span) + span) % span;
  return low >= span / 2 ? low - span : low;
}
int64_t Truncated16(float value) {
  const double t = std::trunc(static_cast<double>(value));
  return Low(std::isnan(t) || t < -2147483648.0 || t > 2147483647.0 ? INT32_MIN : static_cast<int64_t>(t),
             16);
}

PF_Rect Model(A_long width, A_long height, float ratio, PF_RationalScale dx, PF_RationalScale dy,
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

TEST(PictureRect, MatchesTheSinglePrecisionModelOverGeneratedInputs) {
  std::mt19937 rng(20261121);
  const auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
  const float kRatios[] = {0.0f,    -0.0f,   -1.5f,  NAN,   INFINITY, -INFINITY,
                           FLT_MAX, FLT_MIN, 1e-30f, 12.0f, 2.35f,    1e30f};
  const A_long kExtents[] = {0, 1, 2, 32767, 32768, 65535, 65536, INT32_MAX, INT32_MIN, -1, -32768};
  const auto extent = [&] { return pick(5) == 0 ? kExtents[pick(11)] : A_long(pick(8193)); };
  const auto scale = [&] {
    if (pick(6) != 0) return PF_RationalScale{1 + pick(4), A_u_long(1 + pick(4))};
    return PF_RationalScale{A_long(rng()), A_u_long(rng())};
  };
  for (int i = 0; i < 200000; ++i) {
    const A_long width = extent(), height = extent();
    const float ratio =
        pick(4) == 0 ? kRatios[pick(12)] : std::uniform_real_distribution<float>(0.0f, 12.0f)(rng);
    const PF_RationalScale dx = scale(), dy = scale(), par = scale();
    const PF_Rect want = Model(width, height, ratio, dx, dy, par);
    const PF_Rect got = ComputePictureRect(width, height, ratio, dx, dy, par);
    ASSERT_EQ(Text(want), Text(got)) << width << "x" << height << " ratio " << ratio << " ds " << dx.num
                                     << "/" << dx.den << "," << dy.num << "/" << dy.den << " par " << par.num
                                     << "/" << par.den;
  }
}

}  // namespace
