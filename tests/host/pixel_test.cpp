// Worlds and the host's drawing functions: every pixel is checked against an
// independent expectation, padding bytes must keep their guard pattern.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <ostream>

#include "host/pixel_ops.h"
#include "host/world.h"
#include "hostapi/ae_constants.h"

namespace cinebar_simhost {
namespace {

bool Same(PF_Pixel a, PF_Pixel b) { return std::memcmp(&a, &b, sizeof a) == 0; }
bool Same(PF_Pixel16 a, PF_Pixel16 b) { return std::memcmp(&a, &b, sizeof a) == 0; }
bool Inside(A_long x, A_long y, const PF_Rect& r) {
  return x >= r.left && x < r.right && y >= r.top && y < r.bottom;
}

struct FillCase {
  const char* name;
  bool deep;
  A_long padding;
  std::optional<PF_Rect> rect;  // nullopt: the whole world
};

void PrintTo(const FillCase& c, std::ostream* out) { *out << c.name; }

class FillTest : public ::testing::TestWithParam<FillCase> {};

TEST_P(FillTest, SetsExactlyTheClippedRectangle) {
  const FillCase& c = GetParam();
  World world(7, 5, c.deep, c.padding);
  world.FillPattern(3);
  const PF_Pixel color{11, 22, 33, 44};
  const PF_Pixel16 color16{1000, 32768, 7, 12345};
  const PF_Rect* rect = c.rect ? &*c.rect : nullptr;
  const PixelProblem problem =
      c.deep ? FillRect16(color16, rect, *world.layer()) : FillRect8(color, rect, *world.layer());
  ASSERT_EQ(problem, "");
  const PF_Rect area = c.rect ? *c.rect : PF_Rect{0, 0, 7, 5};
  for (A_long y = 0; y < 5; ++y) {
    for (A_long x = 0; x < 7; ++x) {
      const bool in = Inside(x, y, area);
      if (c.deep) {
        EXPECT_TRUE(Same(world.Get16(x, y), in ? color16 : World::Pattern16(x, y, 3))) << x << "," << y;
      } else {
        EXPECT_TRUE(Same(world.Get8(x, y), in ? color : World::Pattern8(x, y, 3))) << x << "," << y;
      }
    }
  }
  EXPECT_TRUE(world.GuardsIntact());
}

INSTANTIATE_TEST_SUITE_P(Rects, FillTest,
                         ::testing::Values(FillCase{"whole8", false, 0, std::nullopt},
                                           FillCase{"whole16_padded", true, 6, std::nullopt},
                                           FillCase{"inner8_padded", false, 3, PF_Rect{1, 2, 4, 3}},
                                           FillCase{"inner16", true, 0, PF_Rect{2, 0, 7, 5}},
                                           FillCase{"clipped8", false, 5, PF_Rect{-3, -2, 30, 2}},
                                           FillCase{"clipped16", true, 2, PF_Rect{5, 3, 9, 8}},
                                           FillCase{"outside8", false, 4, PF_Rect{7, 0, 9, 5}},
                                           FillCase{"inverted8", false, 4, PF_Rect{4, 3, 2, 1}},
                                           FillCase{"empty16", true, 8, PF_Rect{3, 3, 3, 5}}),
                         [](const auto& test) { return std::string(test.param.name); });

struct CopyCase {
  const char* name;
  bool deep;
  A_long src_padding, dst_padding;
  std::optional<PF_Rect> src_rect, dst_rect;
  bool refused;
};

void PrintTo(const CopyCase& c, std::ostream* out) { *out << c.name; }

class CopyTest : public ::testing::TestWithParam<CopyCase> {};

TEST_P(CopyTest, MovesSourcePixelsIntoTheClippedDestination) {
  const CopyCase& c = GetParam();
  World src(6, 4, c.deep, c.src_padding), dst(5, 5, c.deep, c.dst_padding);
  src.FillPattern(1);
  dst.FillPattern(2);
  const PF_Rect* sr = c.src_rect ? &*c.src_rect : nullptr;
  const PF_Rect* dr = c.dst_rect ? &*c.dst_rect : nullptr;
  const PixelProblem problem = CopyRect(*src.layer(), *dst.layer(), sr, dr);
  EXPECT_EQ(!problem.empty(), c.refused) << problem;
  const PF_Rect s = c.src_rect ? *c.src_rect : PF_Rect{0, 0, 6, 4};
  const PF_Rect d = c.dst_rect ? *c.dst_rect : PF_Rect{0, 0, 5, 5};
  for (A_long y = 0; y < 5; ++y) {
    for (A_long x = 0; x < 5; ++x) {
      const A_long sx = x - d.left + s.left, sy = y - d.top + s.top;
      const bool copied = !c.refused && Inside(x, y, d) && sx >= 0 && sx < 6 && sy >= 0 && sy < 4;
      if (c.deep) {
        EXPECT_TRUE(Same(dst.Get16(x, y), copied ? World::Pattern16(sx, sy, 1) : World::Pattern16(x, y, 2)))
            << x << "," << y;
      } else {
        EXPECT_TRUE(Same(dst.Get8(x, y), copied ? World::Pattern8(sx, sy, 1) : World::Pattern8(x, y, 2)))
            << x << "," << y;
      }
    }
  }
  EXPECT_TRUE(src.GuardsIntact());
  EXPECT_TRUE(dst.GuardsIntact());
}

INSTANTIATE_TEST_SUITE_P(
    Rects, CopyTest,
    ::testing::Values(CopyCase{"same_place8", false, 0, 4, PF_Rect{1, 1, 4, 3}, PF_Rect{1, 1, 4, 3}, false},
                      CopyCase{"same_place16", true, 8, 0, PF_Rect{0, 0, 5, 4}, PF_Rect{0, 0, 5, 4}, false},
                      CopyCase{"moved8", false, 3, 1, PF_Rect{3, 0, 6, 2}, PF_Rect{0, 3, 3, 5}, false},
                      CopyCase{"clip_source16", true, 0, 6, PF_Rect{4, 2, 8, 6}, PF_Rect{0, 0, 4, 4}, false},
                      CopyCase{"clip_dest8", false, 2, 2, PF_Rect{0, 0, 4, 4}, PF_Rect{3, 3, 7, 7}, false},
                      CopyCase{"negative8", false, 0, 0, PF_Rect{-2, -1, 2, 3}, PF_Rect{0, 0, 4, 4}, false},
                      CopyCase{"sizes_differ8", false, 0, 0, PF_Rect{0, 0, 2, 2}, PF_Rect{0, 0, 3, 2}, true},
                      CopyCase{"inverted16", true, 0, 0, PF_Rect{3, 3, 1, 1}, PF_Rect{3, 3, 1, 1}, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(CopyTest, WithinOneWorldReadsOriginalPixels) {
  World world(6, 3, false, 2);
  world.FillPattern(9);
  const PF_Rect src{0, 0, 5, 3}, dst{1, 0, 6, 3};
  ASSERT_EQ(CopyRect(*world.layer(), *world.layer(), &src, &dst), "");
  for (A_long y = 0; y < 3; ++y) {
    EXPECT_TRUE(Same(world.Get8(0, y), World::Pattern8(0, y, 9)));
    for (A_long x = 1; x < 6; ++x) EXPECT_TRUE(Same(world.Get8(x, y), World::Pattern8(x - 1, y, 9)));
  }
}

TEST(DrawRefusal, BadWorldsAreRefusedWithoutDrawing) {
  World deep(3, 3, true), flat(3, 3, false);
  PF_LayerDef no_pixels = *flat.layer();
  no_pixels.data = nullptr;
  PF_LayerDef short_rows = *flat.layer();
  short_rows.rowbytes = 8;
  const PF_Pixel px{1, 2, 3, 4};
  const PF_Pixel16 px16{1, 2, 3, 4};
  EXPECT_NE(FillRect8(px, nullptr, *deep.layer()), "");
  EXPECT_NE(FillRect16(px16, nullptr, *flat.layer()), "");
  EXPECT_NE(FillRect8(px, nullptr, no_pixels), "");
  EXPECT_NE(FillRect8(px, nullptr, short_rows), "");
  EXPECT_NE(CopyRect(*deep.layer(), *flat.layer(), nullptr, nullptr), "");
  EXPECT_TRUE(Same(flat.Get8(0, 0), PF_Pixel{0, 0, 0, 0}));
}

TEST(WorldTest, LayerViewDescribesTheBuffer) {
  World world(4, 2, true, 6);
  world.set_pixel_aspect(PF_RationalScale{10, 11});
  const PF_LayerDef* layer = world.layer();
  EXPECT_EQ(layer->width, 4);
  EXPECT_EQ(layer->height, 2);
  EXPECT_EQ(layer->rowbytes, 4 * 8 + 6);
  EXPECT_EQ(layer->world_flags, PF_WorldFlag_DEEP);
  EXPECT_EQ(layer->extent_hint.right, 4);
  EXPECT_EQ(layer->extent_hint.bottom, 2);
  EXPECT_EQ(layer->pix_aspect_ratio.num, 10);
  world.Set16(3, 1, PF_Pixel16{1, 2, 3, 4});
  PF_Pixel16 raw;
  std::memcpy(&raw, reinterpret_cast<const char*>(layer->data) + layer->rowbytes + 3 * 8, sizeof raw);
  EXPECT_TRUE(Same(raw, PF_Pixel16{1, 2, 3, 4}));
}

TEST(WorldTest, GuardCheckNoticesWritesIntoPaddingAndTail) {
  // 3x2 8-bit rows of 16 bytes: padding of row 0, of row 1, and the tail.
  for (const std::size_t offset : {std::size_t{12}, std::size_t{31}, std::size_t{37}}) {
    World world(3, 2, false, 4);
    EXPECT_TRUE(world.GuardsIntact());
    reinterpret_cast<char*>(world.layer()->data)[offset] = 0;
    EXPECT_FALSE(world.GuardsIntact()) << offset;
  }
}

TEST(WorldTest, BadSizesAndCoordinatesThrow) {
  EXPECT_THROW(World(-1, 2), std::invalid_argument);
  EXPECT_THROW(World(2, 2, false, -4), std::invalid_argument);
  EXPECT_THROW(World(1 << 20, 1 << 20), std::invalid_argument);
  World world(2, 2);
  EXPECT_THROW(world.Get8(2, 0), std::out_of_range);
  EXPECT_THROW(world.Set8(0, -1, PF_Pixel{}), std::out_of_range);
  EXPECT_THROW(world.Get16(0, 0), std::logic_error);
}

}  // namespace
}  // namespace cinebar_simhost
