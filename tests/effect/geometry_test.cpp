// The picture rectangle: many generated cases, degenerate worlds among them,
// against the independent model of picture_model.h (which the geometry
// fuzzer also holds it to, over any input). What the model means for a
// picture (centred, the odd pixel at the bottom or right) the worked frames
// of the render test show.
#include "effect/geometry.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/effect/picture_model.h"

namespace {

using picture_model::Model;
using picture_model::Text;

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
