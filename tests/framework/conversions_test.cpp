// Narrowing a double to single precision beyond FLT_MAX, where a plain cast
// is undefined: the processor rounds to nearest, ties to even. FLT_MAX's
// significand is odd, so the tie at FLT_MAX plus half a unit (2^103) goes
// up to infinity, and anything below it comes down to FLT_MAX.
#include "framework/conversions.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>

namespace {

constexpr double kHalfUnit = 0x1p103;  // half of FLT_MAX's unit in the last place, 2^104
constexpr double kMax = FLT_MAX;
constexpr float kInf = std::numeric_limits<float>::infinity();

TEST(NarrowToFloat, RoundsBeyondTheRangeAsTheProcessorDoes) {
  const struct {
    double value;
    float narrowed;
  } kCases[] = {
      {kMax, FLT_MAX},
      {std::nextafter(kMax, 0.0), FLT_MAX},  // an ordinary rounding inside the range
      {kMax + kHalfUnit, kInf},              // the tie itself
      {std::nextafter(kMax + kHalfUnit, 0.0), FLT_MAX},
      {std::nextafter(kMax + kHalfUnit, INFINITY), kInf},
      {DBL_MAX, kInf},
      {INFINITY, kInf},
  };
  for (const auto& c : kCases) {
    for (const double sign : {1.0, -1.0}) {
      SCOPED_TRACE(testing::Message() << sign * c.value);
      EXPECT_EQ(sign * c.narrowed, DAE::NarrowToFloat(sign * c.value));
    }
  }
  EXPECT_TRUE(std::isnan(DAE::NarrowToFloat(NAN)));
}

}  // namespace
