// Frames rendered by the real module through the simulated host: for each
// worked rectangle, the drawing calls the host received and every byte of
// the output (padded rows included), in 8 and 16 bits, on image and on
// transparent, the slider read as the processor rounds it. Failing drawing
// calls are the fault matrix's.
#include <gtest/gtest.h>

#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "tests/fixtures/effect_host.h"

namespace {

using namespace cinebar_simhost;

// Frames whose picture rectangle is worked out by hand.
struct WorkedFrame {
  A_long width, height;
  PF_RationalScale ds_x, ds_y, par;
  double ratio;  // as the slider holds it
  PF_Rect picture;
};

const WorkedFrame kWorkedFrames[] = {
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 2.35f, {0, 131, 1920, 948}},
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 2.76f, {0, 192, 1920, 887}},
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 1.85f, {0, 21, 1920, 1058}},
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 16.0f / 9.0f, {0, 0, 1920, 1080}},  // ratio equals the frame's
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 1.66f, {64, 0, 1856, 1080}},
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 4.0f / 3.0f, {240, 0, 1680, 1080}},
    {1920, 1081, {1, 1}, {1, 1}, {1, 1}, 2.35f, {0, 132, 1920, 949}},  // the odd row goes to the bottom
    {960, 540, {1, 2}, {1, 2}, {1, 1}, 2.35f, {0, 66, 960, 474}},
    {640, 360, {1, 3}, {1, 3}, {1, 1}, 2.35f, {0, 44, 640, 316}},
    {480, 270, {1, 4}, {1, 4}, {1, 1}, 2.35f, {0, 33, 480, 237}},
    {1920, 540, {1, 1}, {1, 2}, {1, 1}, 2.35f, {0, 66, 1920, 474}},
    {1920, 540, {1, 1}, {1, 2}, {1, 1}, 16.0f / 9.0f, {0, 0, 1920, 540}},
    {720, 480, {1, 1}, {1, 1}, {10, 11}, 4.0f / 3.0f, {8, 0, 712, 480}},
    {720, 480, {1, 1}, {1, 1}, {9, 10}, 4.0f / 3.0f, {4, 0, 715, 480}},
    {720, 480, {1, 1}, {1, 1}, {40, 33}, 16.0f / 9.0f, {8, 0, 712, 480}},
    {720, 480, {1, 1}, {1, 1}, {40, 33}, 2.35f, {0, 54, 720, 425}},
    {720, 480, {1, 1}, {1, 1}, {121, 100}, 2.35f, {0, 55, 720, 425}},
    {1440, 1080, {1, 1}, {1, 1}, {4, 3}, 16.0f / 9.0f, {0, 0, 1440, 1080}},
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 1.778f, {0, 0, 1920, 1079}},  // one row short: at the bottom
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 1.777f, {0, 0, 1919, 1080}},  // one column short: at the right
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 12.0f, {0, 460, 1920, 620}},
    {1920, 1080, {1, 1}, {1, 1}, {1, 1}, 0.0f, {960, 0, 960, 1080}},
    // Beyond single precision the slider is read as the processor rounds it: from FLT_MAX plus half a
    // unit an infinity, below that FLT_MAX; a world of no height tells them apart.
    {32, 0, {1, 1}, {1, 1}, {1, 1}, double(FLT_MAX) + 0x1p103, {0, 0, 32, 0}},
    {32, 0, {1, 1}, {1, 1}, {1, 1}, double(FLT_MAX) + 0x1p103 - 0x1p75, {16, 0, 16, 0}},
    {32, 18, {1, 1}, {1, 1}, {1, 1}, NAN, {0, 9, 32, 9}},
};

template <typename Pixel>
std::array<int, 4> Channels(const Pixel& p) {
  return {p.alpha, p.red, p.green, p.blue};
}

TEST(Render, WorkedRectanglesAsReceivedAndAsDrawn) {
  const PF_Pixel kBar{255, 1, 128, 200};
  const PF_Pixel16 kBar16{32640, 128, 16384, 25600};  // each channel times 128: 255 stops short of 32768
  Host host(TheModule());
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  int n = 0;
  for (const WorkedFrame& f : kWorkedFrames) {
    // Every mode value but 1 draws the image, 0 and out-of-range ones included.
    const A_long kImageModes[] = {2, 0, 3, -1, 1000};
    const bool deep = n % 2 == 1;
    const A_long mode = (n / 2) % 2 == 0 ? 1 : kImageModes[(n / 4) % 5];
    ++n;
    SCOPED_TRACE(::testing::Message()
                 << f.width << "x" << f.height << " ratio " << f.ratio << " ds " << f.ds_y.den << " par "
                 << f.par.num << "/" << f.par.den << " deep " << deep << " mode " << mode);
    host.SetDownsample(f.ds_x, f.ds_y);
    host.SetPixelAspect(f.par);
    World input(f.width, f.height, deep, 12);
    input.FillPattern(7);
    Instance& layer = host.Apply(std::move(input)).instance;
    layer.param(PARAM_ASPECT_RATIO).u.fs_d.value = f.ratio;
    layer.param(PARAM_RENDER).u.pd.value = mode;
    layer.param(PARAM_COLOR).u.cd.value = kBar;
    World output(f.width, f.height, deep, 12);
    host.log().Clear();
    ASSERT_EQ(PF_Err_NONE, host.Render(layer, output));

    const auto fills = host.log().Named(deep ? HostFn::kFill16 : HostFn::kFill);
    const auto* copy = host.log().Last(HostFn::kCopy);
    ASSERT_EQ(mode == 1 ? 2u : 1u, fills.size());
    EXPECT_FALSE(fills[0]->rect.has_value()) << "first the whole frame";
    const PF_Rect& got = mode == 1 ? *fills[1]->rect : *copy->rect;
    EXPECT_EQ(0, std::memcmp(&f.picture, &got, sizeof got))
        << got.left << "," << got.top << "," << got.right << "," << got.bottom;
    EXPECT_EQ(mode == 1 ? 0 : 1, host.log().Count(HostFn::kCopy));
    if (mode != 1) {
      EXPECT_EQ(0, std::memcmp(&f.picture, &*copy->src_rect, sizeof got));
    }

    // Every pixel on either side of each edge of the picture and of the frame, and a sample between.
    std::vector<std::pair<A_long, A_long>> probes;
    for (A_long i = 0; f.height > 0 && i < 4000; ++i)
      probes.emplace_back((i * 7919) % f.width, (i * 104729) % f.height);
    for (const A_long y :
         {f.picture.top - 1, f.picture.top, f.picture.bottom - 1, f.picture.bottom, 0, f.height - 1})
      for (A_long x = 0; y >= 0 && y < f.height && x < f.width; ++x) probes.emplace_back(x, y);
    for (const A_long x :
         {f.picture.left - 1, f.picture.left, f.picture.right - 1, f.picture.right, 0, f.width - 1})
      for (A_long y = 0; x >= 0 && x < f.width && y < f.height; ++y) probes.emplace_back(x, y);
    for (const auto& [x, y] : probes) {
      const bool inside =
          x >= f.picture.left && x < f.picture.right && y >= f.picture.top && y < f.picture.bottom;
      const auto want = !inside     ? (deep ? Channels(kBar16) : Channels(kBar))
                        : mode == 1 ? std::array<int, 4>{}
                        : deep      ? Channels(World::Pattern16(x, y, 7))
                                    : Channels(World::Pattern8(x, y, 7));
      ASSERT_EQ(want, deep ? Channels(output.Get16(x, y)) : Channels(output.Get8(x, y))) << x << "," << y;
    }
    EXPECT_TRUE(output.GuardsIntact());
    ASSERT_EQ(PF_Err_NONE, host.Remove(layer));
  }
}

}  // namespace
