// The picture rectangle the tool finds by rendering flat frames through the
// module, judged by the picture model: with bars of a third colour (one
// probe), of the first probe's value or transparent black (a second probe
// decides), in both render modes, at both depths.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/effect/picture_model.h"
#include "tools/cinebar/controls.h"
#include "tools/cinebar/layer.h"
#include "tools/cinebar/session.h"

namespace cinebar_tool_test {
namespace {

using cinebar_tool::Edit;

TEST(Probe, FindsThePictureWhateverColourTheBarsAre) {
  cinebar_tool::Session session(CINEBAR_MODULE_PATH);
  cinebar_tool::Layer layer(session);
  const auto& color = session.control(cinebar_tool::kColorControl, PF_Param_COLOR);
  const auto& ratio = session.control(cinebar_tool::kRatioControl, PF_Param_FLOAT_SLIDER);
  const auto& mode = session.control(cinebar_tool::kRenderControl, PF_Param_POPUP);
  const A_long on_image = cinebar_tool::FindItem(mode, "on-image").at(0);
  // alpha, red, green, blue: a third colour, the first probe's bytes, transparent black
  const PF_Pixel bars[] = {{255, 0, 0, 0}, {255, 32, 160, 64}, {0x11, 0x11, 0x11, 0x11}, {0, 0, 0, 0}};
  // Both bars, one row at the bottom, one column at the right, pillarbox, and random sizes.
  struct Size {
    int width, height;
    double ratio;
  };
  std::vector<Size> sizes = {{1920, 1080, 2.35}, {1920, 1080, 1.778}, {1920, 1080, 1.777}, {720, 480, 1.2}};
  std::mt19937 random(24);
  const double low = ratio.def.u.fs_d.valid_min, high = ratio.def.u.fs_d.valid_max;
  for (int i = 0; i < 6; ++i)
    sizes.push_back(
        {1 + int(random() % 300), 1 + int(random() % 300), low + (high - low) * (random() % 1000) / 999});
  for (const Size& s : sizes) {
    layer.Change(Edit{ratio.index, PF_Param_FLOAT_SLIDER, 0, s.ratio, {}});
    const PF_Rect model = picture_model::Model(s.width, s.height, float(s.ratio), {1, 1}, {1, 1}, {1, 1});
    for (const PF_Pixel& bar : bars) {
      layer.Change(Edit{color.index, PF_Param_COLOR, 0, 0.0, bar});
      for (const A_long item : {on_image, cinebar_tool::FindItem(mode, "on-transparent").at(0)}) {
        layer.Change(Edit{mode.index, PF_Param_POPUP, item, 0.0, {}});
        for (const bool deep : {false, true}) {
          const cinebar_tool::Picture p = layer.Find(s.width, s.height, deep);
          SCOPED_TRACE(std::to_string(s.width) + "x" + std::to_string(s.height) + " at " +
                       std::to_string(s.ratio) + (deep ? " 16-bit" : " 8-bit") + ", bars " +
                       std::to_string(bar.alpha) + "/" + std::to_string(bar.red) +
                       (item == on_image ? ", on image" : ", on transparent"));
          if (bar.alpha == 0 && bar.red == 0 && item != on_image) {  // all of it transparent black
            EXPECT_FALSE(p.image);
          } else if (model.right <= model.left || model.bottom <= model.top) {
            EXPECT_TRUE(p.empty());
          } else {
            EXPECT_EQ(picture_model::Text(PF_Rect{p.left, p.top, p.right, p.bottom}),
                      picture_model::Text(model));
            EXPECT_EQ(p.image, item == on_image);
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace cinebar_tool_test
