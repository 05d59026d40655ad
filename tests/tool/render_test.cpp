// Renders through the tool and the built module: the options reach the host
// (bars where the settings put them, in the chosen colour), the picture area
// is the input in every channel layout and depth, 16 bits stay 16 bits, the
// file's form and chunks are kept; the demo.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

struct RenderCase {
  const char* name;
  const char* layout;
  bool deep;
  int width, height;
  unsigned bar;  // the colour, 0xRRGGBB
  const char* options;
  int left, top, right, bottom;  // the picture area; bars elsewhere
  bool transparent;              // the picture area is cleared instead of kept
  int channels;                  // of the output
};
void PrintTo(const RenderCase& c, std::ostream* out) { *out << c.name; }

// A pixel as red, green, blue, alpha (grey spread, opaque without alpha).
std::array<int, 4> Rgba(const std::uint16_t* p, int channels, int full) {
  const bool color = channels >= 3;
  return {p[0], p[color ? 1 : 0], p[color ? 2 : 0], channels % 2 == 0 ? p[channels - 1] : full};
}

class Renders : public ToolTest, public ::testing::WithParamInterface<RenderCase> {};

TEST_P(Renders, PictureBitForBitAndBarsAsDocumented) {
  const RenderCase& c = GetParam();
  WritePattern("in.png", c.width, c.height, c.layout, c.deep);
  char color[16];
  std::snprintf(color, sizeof color, "#%06X", c.bar);
  const Outcome outcome = Run(Words(std::string("render in.png out.png --color ") + color + " " + c.options));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Decoded in = Decode("in.png"), out = Decode("out.png");
  ASSERT_EQ(out.depth, in.depth);
  ASSERT_EQ(out.channels, c.channels);
  ASSERT_EQ(out.width, c.width);
  ASSERT_EQ(out.height, c.height);
  // Bars: the 8-bit colour as it stands, or in 16 bits the module's colour
  // (times 128 of the host's 32768) at file scale; opaque bars at full scale.
  const int full = c.deep ? 65535 : 255;
  const bool opaque = std::string(c.options).find("--opaque-bars") != std::string::npos;
  std::array<int, 4> bar{};
  for (int ch = 0; ch < 4; ++ch) {
    const int v = ch == 3 ? 255 : static_cast<int>(c.bar >> (16 - 8 * ch) & 0xFF);
    bar[ch] = !c.deep ? v : opaque ? v * 257 : static_cast<int>(std::lround(v * 128 * 65535.0 / 32768));
  }
  if (opaque) bar[3] = full;
  int wrong = 0;
  for (int y = 0; y < out.height; ++y) {
    for (int x = 0; x < out.width; ++x) {
      const bool picture = x >= c.left && x < c.right && y >= c.top && y < c.bottom;
      const std::array<int, 4> want = !picture        ? bar
                                      : c.transparent ? std::array<int, 4>{0, 0, 0, 0}
                                                      : Rgba(in.at(x, y), in.channels, full);
      if (Rgba(out.at(x, y), out.channels, full) != want && ++wrong <= 4)
        ADD_FAILURE() << "pixel " << x << "," << y << " is not " << want[0] << " " << want[1] << " "
                      << want[2] << " " << want[3];
    }
  }
  EXPECT_EQ(wrong, 0);
}

// 720x480 at 10/11 pixels: pillarbox 8..712 for 4:3; 960x540 at half resolution, or
// 1920x540 at half height: letterbox 66..474 for 2.35.
INSTANTIATE_TEST_SUITE_P(
    Settings, Renders,
    ::testing::Values(RenderCase{"cleared_8", "rgb", false, 1920, 1080, 0x20A040,
                                 "--preset 4:3 --render on-transparent", 240, 0, 1680, 1080, true, 4},
                      RenderCase{"rgba_8", "rgba", false, 720, 480, 0x20A040,
                                 "--preset 4:3 --pixel-aspect 10/11", 8, 0, 712, 480, false, 4},
                      RenderCase{"rgb16", "rgb", true, 960, 540, 0x20A040, "--preset 2.35 --downsample 1/2",
                                 0, 66, 960, 474, false, 4},
                      RenderCase{"rgb16_opaque", "rgb", true, 960, 540, 0x102030,
                                 "--preset Anamorphic --opaque-bars --downsample 1/2", 0, 66, 960, 474, false,
                                 3},
                      RenderCase{"grey16", "gray", true, 1920, 540, 0x404040,
                                 "--ratio 2.35 --downsample 1/1,1/2", 0, 66, 1920, 474, false, 2},
                      RenderCase{"grey16_opaque", "gray", true, 720, 480, 0x404040,
                                 "--preset 4:3 --pixel-aspect 10/11 --opaque-bars", 8, 0, 712, 480, false, 1},
                      RenderCase{"grey_alpha16", "ga", true, 720, 480, 0x404040,
                                 "--preset 4:3 --pixel-aspect 10/11", 8, 0, 712, 480, false, 2},
                      RenderCase{"rgba16_opaque_cleared", "rgba", true, 720, 480, 0x102030,
                                 "--preset 4:3 --pixel-aspect 10/11 --opaque-bars --render on-transparent", 8,
                                 0, 712, 480, true, 4}));

// A grey picture with square-inch pixel counts 11 across, 10 down (10/11
// pixels, as NTSC), a comment and a time: grey bars keep it grey, the
// chunks that stay true carry over, the time is dropped and named, and the
// pHYs chunk sets the pixel aspect.
TEST_F(ToolTest, GreyStaysGreyAndChunksCarryOver) {
  WritePattern("in.png", 720, 480, "gray");
  const std::string kept[] = {PngChunk("pHYs", std::string("\0\0\0\x0b\0\0\0\x0a\0", 9)),
                              PngChunk("tEXt", std::string("Comment\0kept", 12))};
  const std::string time = PngChunk("tIME", std::string("\x07\xea\x0b\x18\x06\x28\x00", 7));
  std::string png = Contents("in.png");
  std::ofstream("in.png", std::ios::binary) << png.insert(33, kept[0] + kept[1] + time);
  const Outcome outcome = Run(Words("render in.png out.png --preset 4:3 --color #404040"));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const std::string out = Contents("out.png");
  EXPECT_EQ(out[25], 0);  // colour type grey
  for (const std::string& chunk : kept) EXPECT_NE(out.find(chunk), std::string::npos) << chunk.substr(4, 4);
  EXPECT_EQ(out.find("tIME"), std::string::npos);
  EXPECT_NE(outcome.err.find("not copied to the outputs: tIME"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.out.find("pixel aspect 10/11 (pHYs of in.png"), std::string::npos) << outcome.out;
  const Decoded image = Decode("out.png");
  for (int x : {7, 8, 711, 712})
    EXPECT_EQ(image.at(x, 0)[0], x < 8 || x >= 712 ? 0x40 : Sample(x, 0, 0, false)) << x;
}

TEST_F(ToolTest, DemoWritesEveryPresetInBothModesAndTheSheetAndReplacesOnlyWhenAsked) {
  const Outcome outcome = Run({"demo", "--out", "previews"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Files("previews").size(), 6u * 2u + 2u);  // six presets, two modes, the chart and the sheet
  const Decoded academy = Decode("previews/preset-4x3-on-image.png");
  const Decoded chart = Decode("previews/test-chart.png");
  for (int x : {239, 240, 1679, 1680})
    EXPECT_EQ(academy.at(x, 540)[1], x < 240 || x >= 1680 ? 0 : chart.at(x, 540)[1]) << x;
  EXPECT_EQ(Run({"demo", "--out", "previews"}).code, 5);
  EXPECT_EQ(Run({"demo", "--out", "previews", "--overwrite"}).code, 0);
}

}  // namespace
}  // namespace cinebar_tool_test
