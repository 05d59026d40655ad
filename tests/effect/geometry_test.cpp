// The picture rectangle: the worked table, then many generated cases against
// an independent model that computes each step in double precision and rounds
// it to single precision (exact for + - * /). Its properties over any input
// (inside, centred, bars on one axis) are the geometry fuzzer's.
#include "effect/geometry.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <random>
#include <vector>

#include "tests/effect/worked_frames.h"

namespace {

PF_RationalScale Scale(A_long num, A_u_long den) { return PF_RationalScale{num, den}; }

// Degenerate worlds: height 0 pillarboxes, 0×0 letterboxes, both empty.
const WorkedFrame kDegenerate[] = {
    {1920, 0, {1, 1}, {1, 1}, {1, 1}, 2.35f, {960, 0, 960, 0}},
    {0, 0, {1, 1}, {1, 1}, {1, 1}, 2.35f, {0, 0, 0, 0}},
};

void ExpectRect(const PF_Rect& expected, const PF_Rect& actual) {
  EXPECT_EQ(expected.left, actual.left);
  EXPECT_EQ(expected.top, actual.top);
  EXPECT_EQ(expected.right, actual.right);
  EXPECT_EQ(expected.bottom, actual.bottom);
}

TEST(PictureRect, WorkedTable) {
  std::vector<WorkedFrame> frames(std::begin(kWorkedFrames), std::end(kWorkedFrames));
  frames.insert(frames.end(), std::begin(kDegenerate), std::end(kDegenerate));
  for (const WorkedFrame& c : frames) {
    SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << " ratio " << c.ratio << " ds "
                                      << c.ds_x.num << "/" << c.ds_x.den << "," << c.ds_y.num << "/"
                                      << c.ds_y.den << " par " << c.par.num << "/" << c.par.den);
    ExpectRect(c.picture, ComputePictureRect(c.width, c.height, c.ratio, c.ds_x, c.ds_y, c.par));
  }
}

// ---- the independent model ----------------------------------------------------

float ToSingle(double exact) {
  if (std::isnan(exact)) return NAN;
  const double limit = static_cast<double>(FLT_MAX) + std::ldexp(1.0, 103);
  if (exact >= limit) return INFINITY;
  if (exact <= -limit) return -INFINITY;
  if (std::fabs(exact) > static_cast<double>(FLT_MAX))
    return std::copysign(FLT_MAX, static_cast<float>(exact > 0 ? 1 : -1));
  return static_cast<float>(exact);
}
float Mul(float a, float b) { return ToSingle(static_cast<double>(a) * static_cast<double>(b)); }
float Div(float a, float b) {
  if (b == 0.0f || std::isinf(a) || std::isinf(b) || std::isnan(a) || std::isnan(b)) return a / b;
  return ToSingle(static_cast<double>(a) / static_cast<double>(b));
}
int64_t Truncated(float value) {
  const double t = std::trunc(static_cast<double>(value));
  if (std::isnan(t) || t < -2147483648.0 || t > 2147483647.0) return INT32_MIN;
  return static_cast<int64_t>(t);
}
int64_t Low16(int64_t value) {
  int64_t low = ((value % 65536) + 65536) % 65536;
  return low >= 32768 ? low - 65536 : low;
}
int64_t Wrap32(int64_t value) {
  int64_t low = ((value % 4294967296LL) + 4294967296LL) % 4294967296LL;
  return low >= 2147483648LL ? low - 4294967296LL : low;
}

PF_Rect ModelRect(A_long width, A_long height, float ratio, PF_RationalScale dx, PF_RationalScale dy,
                  PF_RationalScale par) {
  const uint64_t p1 = (static_cast<uint64_t>(static_cast<uint32_t>(dx.num)) * dy.den) % 4294967296ULL;
  const uint64_t p2 = (static_cast<uint64_t>(dx.den) * static_cast<uint32_t>(dy.num)) % 4294967296ULL;
  const float d = Div(ToSingle(static_cast<double>(p1)), ToSingle(static_cast<double>(p2)));
  const float t =
      Div(Mul(ratio, ToSingle(static_cast<double>(par.den))), ToSingle(static_cast<double>(par.num)));
  const float r = Div(Div(ToSingle(width), ToSingle(height)), d);
  int64_t left = 0, top = 0, right, bottom;
  if (r > t) {
    const int64_t w = Low16(Truncated(Mul(Mul(d, ToSingle(height)), t)));
    left = Low16(Wrap32(width - w) / 2);
    right = left + w;
    bottom = Low16(height);
  } else {
    const int64_t h = Low16(Truncated(Div(Div(ToSingle(width), t), d)));
    top = Low16(Wrap32(height - h) / 2);
    right = Low16(width);
    bottom = top + h;
  }
  return PF_Rect{static_cast<A_long>(left), static_cast<A_long>(top), static_cast<A_long>(right),
                 static_cast<A_long>(bottom)};
}

float RandomRatio(std::mt19937& rng) {
  static const float kSpecial[] = {0.0f,         -0.0f,       -1.5f,  NAN,   INFINITY, -INFINITY,
                                   FLT_MAX,      FLT_MIN,     1e-30f, 12.0f, 2.35f,    1.85f,
                                   16.0f / 9.0f, 4.0f / 3.0f, 2.76f,  1.66f, 1e30f};
  std::uniform_int_distribution<int> pick(0, 3);
  if (pick(rng) == 0) return kSpecial[std::uniform_int_distribution<size_t>(0, std::size(kSpecial) - 1)(rng)];
  return std::uniform_real_distribution<float>(0.0f, 12.0f)(rng);
}

A_long RandomExtent(std::mt19937& rng) {
  static const A_long kSpecial[] = {0, 1, 2, 32767, 32768, 65535, 65536, INT32_MAX, INT32_MIN, -1, -32768};
  if (std::uniform_int_distribution<int>(0, 4)(rng) == 0) {
    return kSpecial[std::uniform_int_distribution<size_t>(0, std::size(kSpecial) - 1)(rng)];
  }
  return std::uniform_int_distribution<A_long>(0, 8192)(rng);
}

PF_RationalScale RandomScale(std::mt19937& rng) {
  if (std::uniform_int_distribution<int>(0, 5)(rng) == 0) {
    return Scale(std::uniform_int_distribution<A_long>(INT32_MIN, INT32_MAX)(rng),
                 std::uniform_int_distribution<A_u_long>(0, UINT32_MAX)(rng));
  }
  return Scale(std::uniform_int_distribution<A_long>(1, 4)(rng),
               std::uniform_int_distribution<A_u_long>(1, 4)(rng));
}

TEST(PictureRect, MatchesSinglePrecisionModelOverGeneratedInputs) {
  std::mt19937 rng(20261121);
  for (int i = 0; i < 200000; ++i) {
    const A_long width = RandomExtent(rng), height = RandomExtent(rng);
    const float ratio = RandomRatio(rng);
    const PF_RationalScale dx = RandomScale(rng), dy = RandomScale(rng), par = RandomScale(rng);
    const PF_Rect expected = ModelRect(width, height, ratio, dx, dy, par);
    const PF_Rect actual = ComputePictureRect(width, height, ratio, dx, dy, par);
    if (std::memcmp(&expected, &actual, sizeof expected) != 0) {
      ADD_FAILURE() << "case " << i << ": " << width << "x" << height << " ratio " << ratio << " ds "
                    << dx.num << "/" << dx.den << "," << dy.num << "/" << dy.den << " par " << par.num << "/"
                    << par.den;
      ExpectRect(expected, actual);
      return;
    }
  }
}

}  // namespace
