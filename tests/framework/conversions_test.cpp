// Narrowing a double to single precision beyond FLT_MAX, where a plain cast
// is undefined: the processor rounds to nearest, ties to even. FLT_MAX's
// significand is odd, so the tie at FLT_MAX plus half a unit (2^103) goes
// up to infinity, and anything below it comes down to FLT_MAX.
#include "framework/conversions.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

namespace {

TEST(NarrowToFloat, RoundsBeyondTheRangeAsTheProcessorDoes) {
  const double tie = static_cast<double>(FLT_MAX) + 0x1p103;
  const struct {
    double value;
    float narrowed;
  } kCases[] = {{tie, INFINITY},
                {std::nextafter(tie, 0.0), FLT_MAX},
                {std::nextafter(FLT_MAX, 0.0), FLT_MAX},
                {std::nextafter(tie, INFINITY), INFINITY},
                {INFINITY, INFINITY}};
  for (const auto& c : kCases) {
    for (const double sign : {1.0, -1.0}) {
      EXPECT_EQ(static_cast<float>(sign) * c.narrowed, DAE::NarrowToFloat(sign * c.value)) << sign * c.value;
    }
  }
  EXPECT_TRUE(std::isnan(DAE::NarrowToFloat(NAN)));
}

}  // namespace
