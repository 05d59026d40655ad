// Frames rendered by the real module through the simulated host: the
// rectangle the host received and the pixels that came out, in 8 and 16 bits,
// on padded rows, for the worked rectangles; then failing drawing calls.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "host/sim_host.h"
#include "tests/effect/worked_frames.h"
#include "tests/fixtures/the_module.h"

namespace {

using cinebar_simhost::Fault;
using cinebar_simhost::Host;
using cinebar_simhost::Instance;
using cinebar_simhost::World;

constexpr A_long kRender = 2, kRatio = 4, kColor = 5;
constexpr A_long kRowPadding = 12;  // bytes beyond each row, guarded by the host

using Frame = WorkedFrame;

bool Inside(const PF_Rect& r, A_long x, A_long y) {
  return x >= r.left && x < r.right && y >= r.top && y < r.bottom;
}

template <typename Pixel>
bool SamePixel(const Pixel& a, const Pixel& b) {
  return a.alpha == b.alpha && a.red == b.red && a.green == b.green && a.blue == b.blue;
}

std::string Text(const PF_Rect& r) {
  return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
         std::to_string(r.bottom);
}

// The pixels worth looking at: every row and column on either side of each
// edge of the picture, the frame's own edges, and a random sample.
std::vector<std::pair<A_long, A_long>> ProbePoints(const Frame& f) {
  std::vector<std::pair<A_long, A_long>> points;
  const PF_Rect& r = f.picture;
  for (A_long y : {r.top - 1, r.top, r.bottom - 1, r.bottom, A_long{0}, f.height - 1}) {
    if (y < 0 || y >= f.height) continue;
    for (A_long x = 0; x < f.width; ++x) points.emplace_back(x, y);
  }
  for (A_long x : {r.left - 1, r.left, r.right - 1, r.right, A_long{0}, f.width - 1}) {
    if (x < 0 || x >= f.width) continue;
    for (A_long y = 0; y < f.height; ++y) points.emplace_back(x, y);
  }
  std::mt19937 rng(static_cast<unsigned>(f.width * 31 + f.height));
  for (int i = 0; i < 4000; ++i) {
    points.emplace_back(std::uniform_int_distribution<A_long>(0, f.width - 1)(rng),
                        std::uniform_int_distribution<A_long>(0, f.height - 1)(rng));
  }
  return points;
}

class Render : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
    ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  }

  Instance& Layer(const Frame& f, bool deep, A_long mode, PF_Pixel color) {
    host.SetDownsample(f.ds_x, f.ds_y);
    host.SetPixelAspect(f.par);
    World input(f.width, f.height, deep, kRowPadding);
    input.FillPattern(7);
    auto applied = host.Apply(std::move(input));
    EXPECT_EQ(PF_Err_NONE, applied.err);
    applied.instance.param(kRatio).u.fs_d.value = static_cast<double>(f.ratio);
    applied.instance.param(kRender).u.pd.value = mode;
    applied.instance.param(kColor).u.cd.value = color;
    return applied.instance;
  }

  Host host{TheModule()};
};

TEST_F(Render, WorkedRectanglesAsReceivedAndAsDrawn) {
  const PF_Pixel kBar{200, 10, 128, 255};
  const PF_Pixel16 kBar16{200 << 7, 10 << 7, 128 << 7, 255 << 7};
  bool alternate = false;
  for (const Frame& f : kWorkedFrames) {
    // Each depth meets each mode over the table, two renders a frame.
    alternate = !alternate;
    for (const bool deep : {alternate, !alternate}) {
      for (const A_long mode : {deep == alternate ? 1 : 2}) {
        SCOPED_TRACE(::testing::Message()
                     << f.width << "x" << f.height << " ratio " << f.ratio << " ds " << f.ds_y.den << " par "
                     << f.par.num << "/" << f.par.den << (deep ? " 16-bit" : " 8-bit") << " mode " << mode);
        Instance& layer = Layer(f, deep, mode, kBar);
        World output(f.width, f.height, deep, kRowPadding);
        host.log().Clear();
        ASSERT_EQ(PF_Err_NONE, host.Render(layer, output));

        const std::string fill = deep ? "fill16" : "fill";
        const auto fills = host.log().Named(fill);
        ASSERT_FALSE(fills.empty());
        EXPECT_FALSE(fills[0]->rect.has_value()) << "first the whole frame";
        if (mode == 1) {
          ASSERT_EQ(2u, fills.size());
          ASSERT_TRUE(fills[1]->rect.has_value());
          EXPECT_EQ(Text(f.picture), Text(*fills[1]->rect));
          EXPECT_EQ(0, host.log().Count("copy"));
        } else {
          ASSERT_EQ(1u, fills.size());
          const auto* copy = host.log().Last("copy");
          ASSERT_NE(nullptr, copy);
          EXPECT_EQ(Text(f.picture), Text(*copy->rect));
          EXPECT_EQ(Text(f.picture), Text(*copy->src_rect));
        }
        EXPECT_EQ(0, host.SuitesOutstanding());
        EXPECT_TRUE(output.GuardsIntact());

        for (const auto& [x, y] : ProbePoints(f)) {
          const bool picture = Inside(f.picture, x, y);
          const bool same = deep ? SamePixel(output.Get16(x, y), !picture    ? kBar16
                                                                 : mode == 1 ? PF_Pixel16{0, 0, 0, 0}
                                                                             : World::Pattern16(x, y, 7))
                                 : SamePixel(output.Get8(x, y), !picture    ? kBar
                                                                : mode == 1 ? PF_Pixel{0, 0, 0, 0}
                                                                            : World::Pattern8(x, y, 7));
          ASSERT_TRUE(same) << "pixel " << x << "," << y;
        }
        host.Remove(layer);
      }
    }
  }
}

TEST_F(Render, OpaqueWhiteAndBlackInSixteenBitsStopAt32640) {
  const Frame f{64, 36, {1, 1}, {1, 1}, {1, 1}, 2.35f, {0, 4, 64, 31}};
  for (const PF_Pixel color : {PF_Pixel{255, 255, 255, 255}, PF_Pixel{255, 0, 0, 0}}) {
    Instance& layer = Layer(f, true, 2, color);
    World output(f.width, f.height, true);
    ASSERT_EQ(PF_Err_NONE, host.Render(layer, output));
    const PF_Pixel16 bar = output.Get16(0, 0);
    EXPECT_EQ(32640, bar.alpha);
    EXPECT_EQ(color.red == 255 ? 32640 : 0, bar.red);
    EXPECT_EQ(color.blue == 255 ? 32640 : 0, bar.blue);
  }
}

TEST_F(Render, EveryModeButOneDrawsTheImage) {
  const Frame f{32, 18, {1, 1}, {1, 1}, {1, 1}, 2.35f, {0, 2, 32, 15}};
  for (const A_long mode : {0, 2, 3, -1, 1000}) {
    SCOPED_TRACE(mode);
    Instance& layer = Layer(f, false, mode, PF_Pixel{255, 0, 0, 0});
    World output(f.width, f.height);
    host.log().Clear();
    ASSERT_EQ(PF_Err_NONE, host.Render(layer, output));
    EXPECT_EQ(1, host.log().Count("copy"));
  }
}

TEST_F(Render, FailingDrawingCallReturnsItsCodeAndDrawsNothingFurther) {
  const Frame f{48, 27, {1, 1}, {1, 1}, {1, 1}, 2.35f, {0, 3, 48, 23}};
  const PF_Pixel kMarker{1, 2, 3, 4};
  const struct {
    const char* function;
    int on_call;
    A_long mode;
    bool frame_filled;  // whether the first full-frame fill had happened
  } kFaults[] = {
      {"fill", 1, 2, false},   {"fill", 2, 1, true},   {"copy", 1, 2, true},
      {"fill16", 1, 1, false}, {"fill16", 2, 1, true},
  };
  for (const auto& fault : kFaults) {
    SCOPED_TRACE(::testing::Message() << fault.function << " call " << fault.on_call);
    const bool deep = std::string(fault.function) == "fill16";
    Instance& layer = Layer(f, deep, fault.mode, PF_Pixel{255, 90, 90, 90});
    World output(f.width, f.height, deep, kRowPadding);
    if (deep) {
      output.Fill16(PF_Pixel16{1, 2, 3, 4});
    } else {
      output.Fill8(kMarker);
    }
    host.faults().Clear();
    host.faults().Fail(fault.function, Fault::Error(PF_Err_INVALID_CALLBACK).OnCall(fault.on_call));
    EXPECT_EQ(PF_Err_INVALID_CALLBACK, host.Render(layer, output));
    EXPECT_STREQ("", host.out_data().return_msg);
    EXPECT_EQ(0, host.SuitesOutstanding());
    // Inside the picture: neither cleared nor copied.
    if (deep) {
      EXPECT_EQ(fault.frame_filled ? 90 << 7 : 2, output.Get16(10, 10).red);
    } else {
      EXPECT_EQ(fault.frame_filled ? 90 : 2, output.Get8(10, 10).red);
    }
  }
}

}  // namespace
