// Renders through the tool and the built module: the picture area is the
// input bit for bit in every channel layout and depth, the bars as documented
// for each depth, the file's form and chunks kept; the demo.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

// Frames of 720x480 at 10/11 pixels (NTSC) under the 4:3 preset: the picture
// is columns 8 to 711, the bars left and right.
struct RenderCase {
  const char* layout;
  bool deep;
  const char* bar;      // the colour, RRGGBB
  const char* options;  // "--render on-transparent" clears the picture area
  int channels;         // of the output
};
void PrintTo(const RenderCase& c, std::ostream* out) {
  *out << c.layout << (c.deep ? 16 : 8) << " " << c.options;
}

// A pixel as red, green, blue, alpha (grey spread, opaque without alpha).
std::array<int, 4> Rgba(const std::uint16_t* p, int channels, int full) {
  const bool color = channels >= 3;
  return {p[0], p[color ? 1 : 0], p[color ? 2 : 0], channels % 2 == 0 ? p[channels - 1] : full};
}

class Renders : public ToolTest, public ::testing::WithParamInterface<RenderCase> {};

TEST_P(Renders, PictureBitForBitAndBarsAsDocumented) {
  const RenderCase& c = GetParam();
  WritePattern("in.png", 720, 480, c.layout, c.deep);
  const Outcome outcome =
      Run(Words(std::string("render in.png out.png --preset 4:3 --pixel-aspect 10/11 --color #") + c.bar +
                " " + c.options));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Decoded in = Decode("in.png"), out = Decode("out.png");
  ASSERT_EQ(out.depth, in.depth);
  ASSERT_EQ(out.channels, c.channels);
  ASSERT_EQ(out.samples.size(), in.samples.size() / in.channels * out.channels);
  // Bars: the 8-bit colour as it stands, or in 16 bits the module's colour
  // (times 128 of the host's 32768) at file scale; opaque bars at full scale.
  const int full = c.deep ? 65535 : 255;
  const bool opaque = std::string(c.options).find("--opaque-bars") != std::string::npos;
  const bool cleared = std::string(c.options).find("on-transparent") != std::string::npos;
  std::array<int, 4> bar{};
  for (int ch = 0; ch < 4; ++ch) {
    const int v =
        ch == 3 ? 255 : static_cast<int>(std::stoul(std::string(c.bar), nullptr, 16) >> (16 - 8 * ch) & 0xFF);
    bar[ch] = opaque && ch == 3 ? full
              : !c.deep         ? v
              : opaque          ? v * 257
                                : static_cast<int>(std::lround(v * 128 * 65535.0 / 32768));
  }
  int wrong = 0;
  for (int y = 0; y < out.height; ++y) {
    for (int x = 0; x < out.width; ++x) {
      const std::array<int, 4> want = x < 8 || x >= 712 ? bar
                                      : cleared         ? std::array<int, 4>{0, 0, 0, 0}
                                                        : Rgba(in.at(x, y), in.channels, full);
      if (Rgba(out.at(x, y), out.channels, full) != want && ++wrong <= 4)
        ADD_FAILURE() << "pixel " << x << "," << y << " is not " << want[0] << " " << want[1] << " "
                      << want[2] << " " << want[3];
    }
  }
  EXPECT_EQ(wrong, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, Renders,
    ::testing::Values(RenderCase{"rgb", false, "20A040", "--render on-transparent", 4},
                      RenderCase{"rgba", false, "20A040", "", 4}, RenderCase{"gray", false, "404040", "", 1},
                      RenderCase{"rgb", true, "20A040", "", 4},
                      RenderCase{"rgb", true, "102030", "--opaque-bars", 3},
                      RenderCase{"gray", true, "404040", "", 2},
                      RenderCase{"gray", true, "404040", "--opaque-bars", 1},
                      RenderCase{"ga", true, "404040", "", 2},
                      RenderCase{"rgba", true, "102030", "--opaque-bars --render on-transparent", 4}));

// A picture with square-inch pixel counts 11 across, 10 down (10/11 pixels,
// as NTSC), a comment and a time: the chunks that stay true carry over, the
// time is dropped and named, and the pHYs chunk sets the pixel aspect.
TEST_F(ToolTest, ChunksThatStayTrueCarryOver) {
  WritePattern("in.png", 720, 480, "gray");
  const std::string kept[] = {PngChunk("pHYs", std::string("\0\0\0\x0b\0\0\0\x0a\0", 9)),
                              PngChunk("tEXt", std::string("Comment\0kept", 12))};
  const std::string time = PngChunk("tIME", std::string("\x07\xea\x0b\x18\x06\x28\x00", 7));
  std::string png = Contents("in.png");
  std::ofstream("in.png", std::ios::binary) << png.insert(33, kept[0] + kept[1] + time);
  const Outcome outcome = Run(Words("render in.png out.png --preset 4:3 --color #404040"));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const std::string out = Contents("out.png");
  for (const std::string& chunk : kept) EXPECT_NE(out.find(chunk), std::string::npos) << chunk.substr(4, 4);
  EXPECT_EQ(out.find("tIME"), std::string::npos);
  EXPECT_NE(outcome.err.find("not copied to the outputs: tIME"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.out.find("pixel aspect 10/11 (pHYs of in.png"), std::string::npos) << outcome.out;
}

TEST_F(ToolTest, DemoWritesEveryPresetInBothModesAndTheSheetAndReplacesOnlyWhenAsked) {
  const Outcome outcome = Run({"demo", "--out", "previews"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Files("previews").size(), 6u * 2u + 2u);  // six presets, two modes, the chart and the sheet
  EXPECT_EQ(Decode("previews/preset-4x3-on-image.png").at(239, 540)[1], 0);  // a bar
  EXPECT_EQ(Run({"demo", "--out", "previews"}).code, 5);
  EXPECT_EQ(Run({"demo", "--out", "previews", "--overwrite"}).code, 0);
}

}  // namespace
}  // namespace cinebar_tool_test
