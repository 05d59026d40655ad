// The host's drawing functions on its worlds, which the tool's frames and the
// render test's expectations rest on: every destination pixel is checked
// against an independent expectation, and padding bytes must keep their guards.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>

#include "host/pixel_ops.h"
#include "host/world.h"
#include "hostapi/ae_constants.h"

namespace cinebar_simhost {
namespace {

using Channels = std::array<int, 4>;
template <typename Pixel>
Channels Of(const Pixel& p) {
  return {p.alpha, p.red, p.green, p.blue};
}
Channels Read(const World& w, A_long x, A_long y) { return w.deep() ? Of(w.Get16(x, y)) : Of(w.Get8(x, y)); }
Channels Pattern(bool deep, A_long x, A_long y, std::uint32_t seed) {
  return deep ? Of(World::Pattern16(x, y, seed)) : Of(World::Pattern8(x, y, seed));
}
bool Inside(A_long x, A_long y, const PF_Rect& r) {
  return x >= r.left && x < r.right && y >= r.top && y < r.bottom;
}

// How the destination record handed to the drawing function is spoilt.
enum Spoilt { kIntact, kOtherDepth, kNoPixels, kShortRows };
// The destination: 5x5 with 3 bytes less padding than the 6x4 source, a 6x4
// world padded like it, or the source itself.
enum Layout { kApart, kTwin, kOneWorld };

struct DrawCase {
  const char* name;
  bool copy;  // else fill (fill16 on a deep world)
  bool deep;
  A_long padding;                         // the destination's
  std::optional<PF_Rect> rect, src_rect;  // destination, copy's source; nullopt: the whole world
  bool refused = false;
  Spoilt spoilt = kIntact;
  Layout layout = kApart;
};

void PrintTo(const DrawCase& c, std::ostream* out) { *out << c.name; }

class DrawTest : public ::testing::TestWithParam<DrawCase> {};

TEST_P(DrawTest, ChangesExactlyTheClippedDestination) {
  const DrawCase& c = GetParam();
  const bool twin = c.layout == kTwin;
  World src(6, 4, c.deep, twin ? c.padding : c.padding + 3),
      own_dst(twin ? 6 : 5, twin ? 4 : 5, c.deep, c.padding);
  World& dst = c.layout == kOneWorld ? src : own_dst;
  src.FillPattern(1);
  own_dst.FillPattern(2);
  PF_LayerDef layer = *dst.layer();
  if (c.spoilt == kOtherDepth) layer.world_flags ^= PF_WorldFlag_DEEP;
  if (c.spoilt == kNoPixels) layer.data = nullptr;
  if (c.spoilt == kShortRows) layer.rowbytes = 8;
  const PF_Pixel color{44, 11, 22, 33};
  const PF_Pixel16 color16{12345, 1000, 32768, 7};
  const PF_Rect* rect = c.rect ? &*c.rect : nullptr;
  const PixelProblem problem = c.copy
                                   ? CopyRect(*src.layer(), layer, c.src_rect ? &*c.src_rect : nullptr, rect)
                               : c.deep ? FillRect16(color16, rect, layer)
                                        : FillRect8(color, rect, layer);
  EXPECT_EQ(!problem.empty(), c.refused) << problem;
  const PF_Rect s = c.src_rect.value_or(PF_Rect{0, 0, 6, 4});
  const PF_Rect d = c.rect.value_or(PF_Rect{0, 0, dst.width(), dst.height()});
  for (A_long y = 0; y < dst.height(); ++y) {
    for (A_long x = 0; x < dst.width(); ++x) {
      const A_long sx = x - d.left + s.left, sy = y - d.top + s.top;
      Channels want = Pattern(c.deep, x, y, c.layout == kOneWorld ? 1 : 2);
      if (!c.refused && Inside(x, y, d) && !c.copy) want = c.deep ? Of(color16) : Of(color);
      if (!c.refused && Inside(x, y, d) && c.copy && Inside(sx, sy, PF_Rect{0, 0, 6, 4}))
        want = Pattern(c.deep, sx, sy, 1);
      EXPECT_EQ(Read(dst, x, y), want) << x << "," << y;
    }
  }
  EXPECT_TRUE(src.GuardsIntact());
  EXPECT_TRUE(own_dst.GuardsIntact());
}

constexpr bool kFill = false, kCopy = true;
INSTANTIATE_TEST_SUITE_P(
    Rects, DrawTest,
    ::testing::Values(
        DrawCase{"fill_whole16_padded", kFill, true, 6, std::nullopt, std::nullopt},
        DrawCase{"fill_inner8_padded", kFill, false, 3, PF_Rect{1, 2, 4, 3}, std::nullopt},
        DrawCase{"fill_clipped8", kFill, false, 5, PF_Rect{-3, -2, 30, 2}, std::nullopt},
        DrawCase{"fill_clipped16", kFill, true, 2, PF_Rect{3, 3, 9, 8}, std::nullopt},
        DrawCase{"fill_empty16", kFill, true, 8, PF_Rect{3, 3, 3, 5}, std::nullopt},
        DrawCase{"copy_moved8", kCopy, false, 1, PF_Rect{0, 3, 3, 5}, PF_Rect{3, 0, 6, 2}},
        DrawCase{"copy_clip_source16", kCopy, true, 6, PF_Rect{0, 0, 4, 4}, PF_Rect{4, 2, 8, 6}},
        DrawCase{"copy_clip_dest8", kCopy, false, 2, PF_Rect{3, 3, 7, 7}, PF_Rect{0, 0, 4, 4}},
        DrawCase{"copy_overlap8", kCopy, false, 2, PF_Rect{1, 0, 6, 4}, PF_Rect{0, 0, 5, 4}, false, kIntact,
                 kOneWorld},
        DrawCase{"copy_whole_rows16_padded", kCopy, true, 4, PF_Rect{0, 0, 6, 3}, PF_Rect{0, 1, 6, 4}, false,
                 kIntact, kTwin},
        DrawCase{"copy_sizes_differ8", kCopy, false, 0, PF_Rect{0, 0, 3, 2}, PF_Rect{0, 0, 2, 2}, true},
        DrawCase{"copy_other_depth16", kCopy, true, 0, PF_Rect{0, 0, 4, 4}, PF_Rect{0, 0, 4, 4}, true,
                 kOtherDepth},
        DrawCase{"fill_other_depth16", kFill, true, 0, std::nullopt, std::nullopt, true, kOtherDepth},
        DrawCase{"fill_no_pixels8", kFill, false, 0, std::nullopt, std::nullopt, true, kNoPixels},
        DrawCase{"fill_short_rows16", kFill, true, 0, std::nullopt, std::nullopt, true, kShortRows}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(WorldTest, GuardCheckNoticesWritesIntoPaddingAndTail) {
  // 3x2 8-bit rows of 16 bytes: padding of row 0, of row 1, and the tail.
  for (const std::size_t offset : {std::size_t{12}, std::size_t{31}, std::size_t{37}}) {
    World world(3, 2, false, 4);
    EXPECT_TRUE(world.GuardsIntact());
    reinterpret_cast<char*>(world.layer()->data)[offset] = 0;
    EXPECT_FALSE(world.GuardsIntact()) << offset;
  }
}

}  // namespace
}  // namespace cinebar_simhost
