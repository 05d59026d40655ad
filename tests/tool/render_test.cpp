// Renders through the tool and the built module: the options reach the host
// (bars where the settings put them, in the chosen colour), the picture area
// is the input in every channel layout and depth, 16 bits stay 16 bits, the
// file's form and chunks are kept; the demo.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <fstream>

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

// A grey picture with square-inch pixel counts 11 across, 10 down (10/11
// pixels, as NTSC) and a comment: grey bars keep it grey, the chunks carry
// over and the pHYs chunk sets the pixel aspect.
TEST_F(ToolTest, GreyStaysGreyAndChunksCarryOver) {
  WritePattern("in.png", 720, 480, "gray");
  std::string png = Contents("in.png");
  std::string chunks;
  const std::string bodies[] = {std::string("pHYs\0\0\0\x0b\0\0\0\x0a\0", 13),
                                std::string("tEXtComment\0kept", 16)};
  for (const std::string& body : bodies) {
    const uLong crc = crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()));
    for (const uLong v : {uLong(body.size() - 4), crc})
      for (int shift = 24; shift >= 0; shift -= 8) chunks += static_cast<char>(v >> shift);
    chunks.insert(chunks.size() - 4, body);
  }
  std::ofstream("in.png", std::ios::binary) << png.insert(33, chunks);  // after the header chunk
  ASSERT_EQ(Run(Words("render in.png out.png --preset 4:3 --color #404040")).code, 0);
  const std::string out = Contents("out.png");
  EXPECT_EQ(out[25], 0);  // colour type grey
  for (const std::string& body : bodies) EXPECT_NE(out.find(body), std::string::npos) << body;
  const Image image = ReadPng("out.png");
  for (int x : {7, 8, 711, 712})
    EXPECT_EQ(image.at(x, 0)[0], x < 8 || x >= 712 ? 0x40 : Sample(x, 0, 0, false)) << x;
}

TEST_F(ToolTest, DemoWritesEveryPresetInBothModesAndTheSheet) {
  const Outcome outcome = Run({"demo", "--out", "previews"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Files("previews").size(), 6u * 2u + 2u);  // six presets, two modes, the chart and the sheet
  const Image academy = ReadPng("previews/preset-4x3-on-image.png");
  const Image chart = ReadPng("previews/test-chart.png");
  for (int x : {239, 240, 1679, 1680})
    EXPECT_EQ(academy.at(x, 540)[1], x < 240 || x >= 1680 ? 0 : chart.at(x, 540)[1]) << x;
}

}  // namespace
}  // namespace cinebar_tool_test
