// The picture rectangle the tool finds by rendering flat frames through the
// module, judged by the picture model: with bars of a third colour (one
// probe), of the first probe's value or transparent black (a second probe
// decides), in both render modes, at both depths.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/effect/picture_model.h"
#include "tools/cinebar/controls.h"
#include "tools/cinebar/layer.h"
#include "tools/cinebar/replay.h"
#include "tools/cinebar/session.h"

namespace cinebar_tool_test {
namespace {

using cinebar_tool::Edit;
using cinebar_tool::Layer;
using cinebar_tool::Picture;
using cinebar_tool::Session;

struct Size {
  int width, height;
  double ratio;
};

TEST(Probe, FindsThePictureWhateverColourTheBarsAre) {
  Session session(CINEBAR_MODULE_PATH);
  Layer layer(session);
  const auto& color = session.control(cinebar_tool::kColorControl, PF_Param_COLOR);
  const auto& ratio = session.control(cinebar_tool::kRatioControl, PF_Param_FLOAT_SLIDER);
  const auto& mode = session.control(cinebar_tool::kRenderControl, PF_Param_POPUP);
  const A_long on_image = cinebar_tool::FindItem(mode, "on-image").at(0);
  const A_long on_transparent = cinebar_tool::FindItem(mode, "on-transparent").at(0);
  // alpha, red, green, blue: a third colour, the first probe's bytes, transparent black
  const PF_Pixel bars[] = {{255, 0, 0, 0}, {255, 32, 160, 64}, {0x11, 0x11, 0x11, 0x11}, {0, 0, 0, 0}};
  // Both bars, one row at the bottom, one column at the right, pillarbox, and random sizes.
  std::vector<Size> sizes = {{1920, 1080, 2.35}, {1920, 1080, 1.778}, {1920, 1080, 1.777}, {720, 480, 1.2}};
  std::mt19937 random(24);
  const double low = ratio.def.u.fs_d.valid_min, high = ratio.def.u.fs_d.valid_max;
  for (int i = 0; i < 6; ++i)
    sizes.push_back(
        {1 + int(random() % 300), 1 + int(random() % 300), low + (high - low) * (random() % 1000) / 999});
  for (const Size& s : sizes) {
    layer.Change(Edit{ratio.index, PF_Param_FLOAT_SLIDER, 0, s.ratio, {}});
    const PF_Rect model =
        picture_model::Model(s.width, s.height, static_cast<float>(s.ratio), {1, 1}, {1, 1}, {1, 1});
    const bool empty = model.right <= model.left || model.bottom <= model.top;
    for (const PF_Pixel& bar : bars) {
      layer.Change(Edit{color.index, PF_Param_COLOR, 0, 0.0, bar});
      for (const A_long item : {on_image, on_transparent}) {
        layer.Change(Edit{mode.index, PF_Param_POPUP, item, 0.0, {}});
        for (const bool deep : {false, true}) {
          const Picture p = layer.Find(s.width, s.height, deep);
          const std::string what = std::to_string(s.width) + "x" + std::to_string(s.height) + " at " +
                                   std::to_string(s.ratio) + (deep ? " 16-bit" : " 8-bit") + ", bars " +
                                   std::to_string(bar.alpha) + "/" + std::to_string(bar.red) + ", " +
                                   (item == on_image ? "on image" : "on transparent");
          if (bar.alpha == 0 && bar.red == 0 && item == on_transparent) {  // all of it transparent black
            EXPECT_FALSE(p.image) << what;
            continue;
          }
          if (empty) {
            EXPECT_TRUE(p.empty()) << what;
            continue;
          }
          EXPECT_EQ(picture_model::Text(PF_Rect{p.left, p.top, p.right, p.bottom}),
                    picture_model::Text(model))
              << what;
          EXPECT_EQ(p.image, item == on_image) << what;
        }
      }
    }
  }
}

// The dry run's picture, replayed from the host's record of one render in
// worlds without pixels, is the pixel probe's: over random sizes (a row, a
// column, pictures that vanish), depths, ratios, pixel aspects, render modes
// and bars of a third colour, of the probe's value and transparent black.
TEST(Probe, ReplayFindsWhatThePixelProbeFinds) {
  std::mt19937 random(31);
  int vanished = 0;
  for (const PF_RationalScale aspect : {PF_RationalScale{1, 1}, {2, 1}, {10, 11}}) {
    Session session(CINEBAR_MODULE_PATH, aspect);
    Layer layer(session);
    const auto& color = session.control(cinebar_tool::kColorControl, PF_Param_COLOR);
    const auto& ratio = session.control(cinebar_tool::kRatioControl, PF_Param_FLOAT_SLIDER);
    const auto& mode = session.control(cinebar_tool::kRenderControl, PF_Param_POPUP);
    const double low = ratio.def.u.fs_d.valid_min, high = ratio.def.u.fs_d.valid_max;
    const PF_Pixel bars[] = {{255, 32, 160, 64}, {0x11, 0x11, 0x11, 0x11}, {0, 0, 0, 0}};
    for (int i = 0; i < 24; ++i) {
      const int width = i % 4 == 0 ? 1 : 1 + int(random() % 400),
                height = i % 4 == 1 ? 1 : 1 + int(random() % 400);
      layer.Change(
          Edit{ratio.index, PF_Param_FLOAT_SLIDER, 0, low + (high - low) * (random() % 1000) / 999, {}});
      layer.Change(Edit{color.index, PF_Param_COLOR, 0, 0.0, bars[i % 3]});
      const char* item = i / 3 % 2 == 0 ? "on-image" : "on-transparent";
      layer.Change(Edit{mode.index, PF_Param_POPUP, cinebar_tool::FindItem(mode, item).at(0), 0.0, {}});
      for (const bool deep : {false, true}) {
        bool replayed = false;
        const Picture m = layer.Measure(width, height, deep, &replayed);
        cinebar_tool::Worlds worlds;
        const Picture p = layer.Find(width, height, deep, worlds);
        const auto fields = [](const Picture& q) {
          return std::tuple(q.left, q.top, q.right, q.bottom, q.image);
        };
        EXPECT_TRUE(replayed);
        EXPECT_EQ(fields(m), fields(p)) << width << "x" << height << (deep ? " deep " : " ") << item
                                        << " bars " << i % 3 << " aspect " << aspect.num << "/" << aspect.den;
        vanished += p.empty() ? 1 : 0;
      }
    }
  }
  EXPECT_GT(vanished, 0);  // the draw reached sizes whose picture vanishes
}

// The replay over hand-made records: later calls over earlier ones in two
// dimensions, refused calls passed over, no answer for what it cannot follow.
TEST(Probe, ReplayFollowsTheCallsOrGivesUp) {
  using cinebar_simhost::CallRecord;
  std::uint8_t bytes[3];
  const auto world = [&](int at, A_long rowbytes = 40) {
    PF_LayerDef w{};
    w.data = reinterpret_cast<PF_PixelPtr>(&bytes[at]), w.rowbytes = rowbytes, w.width = 10, w.height = 8;
    return w;
  };
  const auto fill = [](const PF_LayerDef& w, PF_Rect r, A_u_char v, long long result = PF_Err_NONE) {
    CallRecord c;
    c.fn = cinebar_simhost::HostFn::kFill, c.result = result, c.rect = r, c.color = PF_Pixel{v, v, v, v},
    c.world = w;
    return c;
  };
  const auto copy = [](const PF_LayerDef& src, const PF_LayerDef& dst, PF_Rect r) {
    CallRecord c;
    c.fn = cinebar_simhost::HostFn::kCopy, c.rect = c.src_rect = r, c.world = dst, c.src_world = src;
    return c;
  };
  const PF_LayerDef in = world(0), out = world(1);
  const PF_Rect all{0, 0, 10, 8}, mid{2, 1, 7, 5}, none{10, 8, 0, 0};
  const struct {
    std::vector<CallRecord> calls;
    std::optional<std::pair<PF_Rect, PF_Rect>> shown_cleared;  // after a flat input of 0x11
  } kCases[] = {
      {{}, {{none, all}}},
      {{fill(out, all, 9), copy(in, out, mid)}, {{mid, none}}},
      {{fill(out, all, 9), fill(out, mid, 0), fill(out, {0, 0, 1, 1}, 0, PF_Err_BAD_CALLBACK_PARAM)},
       {{none, mid}}},
      {{fill(out, all, 0x11)}, {{all, none}}},
      {{fill(in, all, 9)}, {}},
      {{copy(out, out, mid)}, {}},
      {{copy(world(2), out, mid)}, {}},
      {{fill(world(1, 44), all, 9)}, {}},
  };
  const auto text = [](int l, int t, int r, int b) { return picture_model::Text(PF_Rect{l, t, r, b}); };
  for (const auto& c : kCases) {
    const std::optional<cinebar_tool::Drawing> drawing = cinebar_tool::Drawing::Replay(c.calls, 0, in, out);
    ASSERT_EQ(drawing.has_value(), c.shown_cleared.has_value()) << c.calls.size() << " calls";
    if (!drawing) continue;
    const cinebar_tool::Looked seen = drawing->Look(0x11);
    for (const auto& [got, want] :
         {std::pair{seen.shown, c.shown_cleared->first}, {seen.cleared, c.shown_cleared->second}})
      EXPECT_EQ(text(got.left, got.top, got.right, got.bottom),
                text(want.left, want.top, want.right, want.bottom));
  }
}

}  // namespace
}  // namespace cinebar_tool_test
