// Renders through the tool and the built module: where the bars fall, what
// they and the picture hold, depths and channel layouts, sequences, the demo
// and the module's description.
#include <cinebar_identity.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ostream>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

using cinebar_tool::Image;
using cinebar_tool::ReadPng;
using cinebar_tool::WritePng;

struct Rect {
  int left, top, right, bottom;
  bool operator==(const Rect& o) const {
    return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
  }
};
std::ostream& operator<<(std::ostream& out, const Rect& r) {
  return out << r.left << "," << r.top << "," << r.right << "," << r.bottom;
}

bool Inside(const Rect& r, int x, int y) { return x >= r.left && x < r.right && y >= r.top && y < r.bottom; }

// The bounding box of the fully transparent pixels.
Rect TransparentBox(const Image& image) {
  Rect box{image.width, image.height, 0, 0};
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      if (image.at(x, y)[3] != 0) continue;
      box = Rect{std::min(box.left, x), std::min(box.top, y), std::max(box.right, x + 1),
                 std::max(box.bottom, y + 1)};
    }
  }
  return box;
}

TEST_F(ToolTest, BarsHaveTheChosenColourAndThePictureIsTheInput) {
  const Image input = PatternImage(1920, 1080, false);
  WritePng(Path("in.png"), input);
  const Outcome outcome =
      Run({"render", Path("in.png"), Path("out.png"), "--preset", "2.35", "--color", "#20A040"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Image out = ReadPng(Path("out.png"));
  ASSERT_FALSE(out.deep);
  ASSERT_EQ(out.width, 1920);
  ASSERT_EQ(out.height, 1080);
  const Rect picture{0, 131, 1920, 948};  // 2.35:1 in 1920x1080: rows 131..947
  const std::uint16_t bar[4] = {0x20, 0xA0, 0x40, 0xFF};
  int wrong = 0;
  for (int y = 0; y < out.height; ++y) {
    for (int x = 0; x < out.width; ++x) {
      const std::uint16_t* want = Inside(picture, x, y) ? input.at(x, y) : bar;
      if (!std::equal(want, want + 4, out.at(x, y)) && ++wrong < 5)
        ADD_FAILURE() << "pixel " << x << "," << y;
    }
  }
  EXPECT_EQ(wrong, 0);
}

struct GeometryCase {
  const char* name;
  int width, height;
  std::vector<std::string> options;
  Rect picture;
};
void PrintTo(const GeometryCase& c, std::ostream* out) { *out << c.name; }

class Geometry : public ToolTest, public ::testing::WithParamInterface<GeometryCase> {};

// The settings reach the host: pixel aspect and downsampling move the bars.
TEST_P(Geometry, PictureAreaIsTransparentAndEverythingElseBar) {
  const GeometryCase& c = GetParam();
  WritePng(Path("in.png"), PatternImage(c.width, c.height, false));
  std::vector<std::string> args = {"render",         Path("in.png"), Path("out.png"), "--render",
                                   "on-transparent", "--color",      "#FF8000"};
  args.insert(args.end(), c.options.begin(), c.options.end());
  const Outcome outcome = Run(args);
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Image out = ReadPng(Path("out.png"));
  EXPECT_EQ(TransparentBox(out), c.picture);
  for (int y = 0; y < out.height; ++y) {
    for (int x = 0; x < out.width; ++x) {
      const std::uint16_t* p = out.at(x, y);
      const bool in = Inside(c.picture, x, y);
      ASSERT_EQ(p[3], in ? 0 : 255) << x << "," << y;
      ASSERT_EQ(p[0], in ? 0 : 255) << x << "," << y;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rectangles, Geometry,
    ::testing::Values(
        GeometryCase{"academy_pillarbox", 1920, 1080, {"--preset", "4:3"}, {240, 0, 1680, 1080}},
        GeometryCase{
            "ntsc_pixels", 720, 480, {"--preset", "4:3", "--pixel-aspect", "10/11"}, {8, 0, 712, 480}},
        GeometryCase{
            "half_resolution", 960, 540, {"--preset", "2.35", "--downsample", "1/2"}, {0, 66, 960, 474}},
        GeometryCase{"half_height_only",
                     1920,
                     540,
                     {"--ratio", "2.35", "--downsample", "1/1,1/2"},
                     {0, 66, 1920, 474}},
        GeometryCase{"typed_ratio_after_preset",
                     1920,
                     1080,
                     {"--preset", "4:3", "--ratio", "2.76"},
                     {0, 192, 1920, 887}}));

TEST_F(ToolTest, SixteenBitInputStaysSixteenBit) {
  const auto sample = [](int x, int y, int c) {
    return static_cast<std::uint16_t>((x * 977 + y * 7919 + c * 4099) & 0xFFFF);
  };
  WriteFormatPng(Path("in.png"), 64, 36, "rgb", true, sample);
  const Outcome outcome =
      Run({"render", Path("in.png"), Path("out.png"), "--preset", "2.35", "--color", "#FFFFFF"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Image out = ReadPng(Path("out.png"));
  ASSERT_TRUE(out.deep);
  const int mid = out.height / 2;
  for (int x = 0; x < out.width; ++x) {
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(out.at(x, mid)[c], sample(x, mid, c), 1) << x;
    EXPECT_EQ(out.at(x, mid)[3], 65535);
  }
  // The top row is bar: white at the host's 16-bit scale, beyond anything 8 bits hold.
  const std::uint16_t* bar = out.at(0, 0);
  EXPECT_GT(bar[0], 255);
  EXPECT_TRUE(bar[0] == bar[1] && bar[1] == bar[2] && bar[2] == bar[3]);
}

struct LayoutCase {
  const char* layout;
  bool deep;
};
void PrintTo(const LayoutCase& c, std::ostream* out) { *out << c.layout << (c.deep ? "16" : "8"); }

class Layouts : public ToolTest, public ::testing::WithParamInterface<LayoutCase> {};

TEST_P(Layouts, PictureKeepsTheInputsColoursAsRgba) {
  const LayoutCase& c = GetParam();
  const auto sample = [&](int x, int y, int ch) {
    const int value = (x * 37 + y * 11 + ch * 60) % 256;
    return static_cast<std::uint16_t>(c.deep ? value * 257 : value);
  };
  WriteFormatPng(Path("in.png"), 40, 20, c.layout, c.deep, sample);
  const Outcome outcome = Run({"render", Path("in.png"), Path("out.png"), "--preset", "2.35"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Image out = ReadPng(Path("out.png"));
  EXPECT_EQ(out.deep, c.deep);
  const std::string layout = c.layout;
  const int y = out.height / 2;
  for (int x = 0; x < out.width; ++x) {
    for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(out.at(x, y)[ch], sample(x, y, layout == "gray" ? 0 : ch), 1);
    EXPECT_NEAR(out.at(x, y)[3], layout == "rgba" ? sample(x, y, 3) : out.max_value(), 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, Layouts,
                         ::testing::Values(LayoutCase{"gray", false}, LayoutCase{"rgb", false},
                                           LayoutCase{"rgba", false}, LayoutCase{"gray", true},
                                           LayoutCase{"rgb", true}));

TEST_F(ToolTest, SequenceFolderRendersEveryFrameUnderItsName) {
  ASSERT_EQ(mkdir(Path("frames").c_str(), 0777), 0);
  for (const char* name : {"shot_a.png", "shot_b.png", "shot_c.png"})
    WritePng(Path("frames/") + name, PatternImage(48, 27, false));
  WriteText("frames/notes.txt", "not a frame");
  const Outcome outcome = Run({"render", Path("frames"), Path("rendered"), "--preset", "2.35"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Files("rendered"), (std::vector<std::string>{"shot_a.png", "shot_b.png", "shot_c.png"}));
  for (const char* name : {"shot_a.png", "shot_b.png", "shot_c.png"})
    EXPECT_EQ(ReadPng(Path("rendered/") + name).at(0, 0)[3], 255) << "bar pixel of " << name;
}

TEST_F(ToolTest, NumberedPatternKeepsTheFrameNumbers) {
  for (int n : {7, 8, 10}) {
    char name[32];
    std::snprintf(name, sizeof name, "in_%03d.png", n);
    WritePng(Path(name), PatternImage(16, 9, false));
  }
  WriteText("in_9.png", "does not fit %03d");
  const Outcome outcome = Run({"render", Path("in_%03d.png"), Path("out/frame_%04d.png")});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Files("out"), (std::vector<std::string>{"frame_0007.png", "frame_0008.png", "frame_0010.png"}));
}

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
  const Outcome outcome = Run({"demo", "--out", Path("previews")});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const std::vector<std::string> files = Files("previews");
  EXPECT_EQ(files.size(), 6u * 2u + 2u);  // six presets, two modes, the chart and the sheet
  const Image academy = ReadPng(Path("previews/preset-4x3-on-image.png"));
  const Image chart = ReadPng(Path("previews/test-chart.png"));
  const std::uint16_t black[4] = {0, 0, 0, 255};
  for (int x : {0, 239, 1680, 1919}) EXPECT_TRUE(std::equal(black, black + 4, academy.at(x, 540))) << x;
  for (int x : {240, 960, 1679})
    EXPECT_TRUE(std::equal(chart.at(x, 540), chart.at(x, 540) + 4, academy.at(x, 540))) << x;
  const Image sheet = ReadPng(Path("previews/contact-sheet.png"));
  EXPECT_GT(sheet.width, 4 * 1920 / 4);
}

}  // namespace
}  // namespace cinebar_tool_test
