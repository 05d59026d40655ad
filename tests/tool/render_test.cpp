// Renders through the tool and the built module: the options reach the host
// (bars where the settings put them, in the chosen colour), the picture area
// is the input in every channel layout and depth, 16 bits stay 16 bits; the
// module's description and the demo.
#include <cinebar_identity.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>

#include "tool_fixture.h"
#include "tools/cinebar/image.h"

namespace cinebar_tool_test {
namespace {

using cinebar_tool::Image;
using cinebar_tool::ReadPng;

struct RenderCase {
  const char* name;
  const char* layout;
  bool deep;
  int width, height;
  const char* options;
  int left, top, right, bottom;  // the picture area; bars elsewhere
  bool transparent;              // the picture area is cleared instead of kept
};
void PrintTo(const RenderCase& c, std::ostream* out) { *out << c.name; }

class Renders : public ToolTest, public ::testing::WithParamInterface<RenderCase> {};

TEST_P(Renders, BarsInTheChosenColourAroundTheInputsPicture) {
  const RenderCase& c = GetParam();
  WritePattern("in.png", c.width, c.height, c.layout, c.deep);
  const Outcome outcome = Run(Words(std::string("render in.png out.png --color #20A040 ") + c.options));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Image out = ReadPng("out.png");
  ASSERT_EQ(out.deep, c.deep);
  ASSERT_EQ(out.width, c.width);
  ASSERT_EQ(out.height, c.height);
  const std::string layout = c.layout;
  const int bar[4] = {0x20, 0xA0, 0x40, 0xFF};
  int wrong = 0;
  for (int y = 0; y < out.height; ++y) {
    for (int x = 0; x < out.width; ++x) {
      const bool picture = x >= c.left && x < c.right && y >= c.top && y < c.bottom;
      for (int ch = 0; ch < 4; ++ch) {
        // The bar colour is given in 8 bits; a 16-bit picture may move by one on the way through the host.
        int want = c.deep ? bar[ch] * 257 : bar[ch], slack = c.deep ? 257 : 0;
        if (picture) {
          want = c.transparent                 ? 0
                 : ch == 3 && layout != "rgba" ? out.max_value()
                                               : Sample(x, y, layout == "gray" ? 0 : ch, c.deep);
          slack = c.deep ? 1 : 0;
        }
        if (std::abs(out.at(x, y)[ch] - want) > slack && ++wrong <= 4)
          ADD_FAILURE() << "pixel " << x << "," << y << " channel " << ch << ": " << out.at(x, y)[ch];
      }
    }
  }
  EXPECT_EQ(wrong, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, Renders,
    ::testing::Values(RenderCase{"letterbox", "rgb", false, 1920, 1080, "--preset 2.35", 0, 131, 1920, 948,
                                 false},
                      RenderCase{"pillarbox_cleared", "rgb", false, 1920, 1080,
                                 "--preset 4:3 --render on-transparent", 240, 0, 1680, 1080, true},
                      RenderCase{"ntsc_pixels", "rgba", false, 720, 480, "--preset 4:3 --pixel-aspect 10/11",
                                 8, 0, 712, 480, false},
                      RenderCase{"typed_ratio_after_preset", "gray", false, 1920, 1080,
                                 "--preset 4:3 --ratio 2.76", 0, 192, 1920, 887, false},
                      RenderCase{"half_resolution_16", "rgb", true, 960, 540,
                                 "--preset 2.35 --downsample 1/2", 0, 66, 960, 474, false},
                      RenderCase{"half_height_only_16", "gray", true, 1920, 540,
                                 "--ratio 2.35 --downsample 1/1,1/2", 0, 66, 1920, 474, false}));

TEST_F(ToolTest, InfoShowsTheModulesIdentityAndControls) {
  const Outcome outcome = Run({"info"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const std::string version = std::to_string(cinebar_identity::kVersionMajor) + "." +
                              std::to_string(cinebar_identity::kVersionMinor) + "." +
                              std::to_string(cinebar_identity::kVersionBugfix);
  for (const std::string& expected :
       {std::string("Name:        ") + cinebar_identity::kEffectName,
        std::string("Category:    ") + cinebar_identity::kCategory,
        std::string("Match name:  ") + cinebar_identity::kMatchName, "Version:     " + version,
        std::string("\"Aspect Ratio\" number"), std::string("\"Preset\" popup")}) {
    EXPECT_NE(outcome.out.find(expected), std::string::npos) << expected << "\n" << outcome.out;
  }
}

TEST_F(ToolTest, DemoWritesEveryPresetInBothModesAndTheSheet) {
  const Outcome outcome = Run({"demo", "--out", "previews"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Files("previews").size(), 6u * 2u + 2u);  // six presets, two modes, the chart and the sheet
  const Image academy = ReadPng("previews/preset-4x3-on-image.png");
  const Image chart = ReadPng("previews/test-chart.png");
  for (int x : {0, 239, 240, 960, 1679, 1680, 1919}) {
    const bool bar = x < 240 || x >= 1680;
    for (int ch = 0; ch < 4; ++ch)
      EXPECT_EQ(academy.at(x, 540)[ch], bar ? (ch == 3 ? 255 : 0) : chart.at(x, 540)[ch]) << x;
  }
  EXPECT_GT(ReadPng("previews/contact-sheet.png").width, 1920);
}

}  // namespace
}  // namespace cinebar_tool_test
