// Renders through the tool and the built module where the random sequences
// do not reach: chunks carried, dropped and named, pHYs as the pixel aspect;
// the demo. Pixels of every form are judged in random_sequence_test.cpp.
#include <gtest/gtest.h>

#include <fstream>

#include "tests/effect/picture_model.h"
#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

// A picture with square-inch pixel counts 11 across, 10 down (10/11 pixels,
// as NTSC), a comment and a time: the chunks that stay true carry over, the
// time is dropped and named, and the pHYs chunk sets the pixel aspect.
TEST_F(ToolTest, ChunksThatStayTrueCarryOver) {
  WritePattern("in.png", 72, 48, "gray");
  const std::string kept[] = {ChunkBytes("pHYs", std::string("\0\0\0\x0b\0\0\0\x0a\0", 9)),
                              ChunkBytes("tEXt", std::string("Comment\0kept", 12))};
  const std::string time = ChunkBytes("tIME", std::string("\x07\xea\x0b\x18\x06\x28\x00", 7));
  const std::string png = Insert(Contents("in.png"), kept[0] + kept[1] + time, "IDAT");
  std::ofstream("in.png", std::ios::binary) << png;
  const Outcome outcome = Run(Words("render in.png out.png --preset 4:3 --color #404040"));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const std::string out = Contents("out.png");
  for (const std::string& chunk : kept) EXPECT_NE(out.find(chunk), std::string::npos) << chunk.substr(4, 4);
  EXPECT_EQ(out.find("tIME"), std::string::npos);
  EXPECT_NE(outcome.err.find("not copied to the outputs: tIME"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.out.find("pixel aspect 10/11 (pHYs of in.png"), std::string::npos) << outcome.out;
  const PF_Rect r = picture_model::Model(72, 48, 4.0f / 3, {1, 1}, {1, 1}, {10, 11});
  const std::string rect = "from (" + std::to_string(r.left) + "," + std::to_string(r.top) + ") to (" +
                           std::to_string(r.right) + "," + std::to_string(r.bottom) + ")";
  EXPECT_NE(outcome.out.find(rect), std::string::npos) << rect << "\n" << outcome.out;
}

TEST_F(ToolTest, DemoWritesEveryPresetInBothModesAndTheSheetAndReplacesOnlyWhenAsked) {
  const Outcome outcome = Run({"demo", "--out", "previews"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Files("previews").size(), 6u * 2u + 2u);  // six presets, two modes, the chart and the sheet
  EXPECT_EQ(Decode("previews/preset-4x3-on-image.png").Rgba(239, 540)[1], 0);  // a bar
  EXPECT_EQ(Run({"demo", "--out", "previews"}).code, 5);
  EXPECT_EQ(Run({"demo", "--out", "previews", "--overwrite"}).code, 0);
}

}  // namespace
}  // namespace cinebar_tool_test
