// Frames through pipes: "-" as IN reads PNGs concatenated on standard input,
// "-" as OUT writes them to standard output; frame for frame what the same
// render of files writes, sizes and depths mixed; a stream that ends inside a
// frame fails after the frames before it. With ffmpeg present, a video's
// frames letterboxed on their way from one ffmpeg to another.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

namespace fs = std::filesystem;

// The PNGs of a stream, split after each IEND chunk.
std::vector<std::string> SplitStream(const std::string& bytes) {
  std::vector<std::string> frames;
  std::size_t start = 0;
  for (std::size_t at = 8; at + 12 <= bytes.size();) {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data() + at);
    const std::size_t length = std::size_t{p[0]} << 24 | p[1] << 16 | p[2] << 8 | p[3];
    const bool end = bytes.compare(at + 4, 4, "IEND") == 0;
    at += 12 + length;
    if (!end) continue;
    frames.push_back(bytes.substr(start, at - start));
    start = at;
    at += 8;
  }
  return frames;
}

struct Sizes {
  int width, height;
  const char* layout;
  bool deep;
};
constexpr Sizes kFrames[] = {{320, 180, "rgb", false},
                             {64, 200, "gray", true},
                             {320, 180, "rgba", false},
                             {64, 200, "ga", false},
                             {320, 180, "rgb", true}};

class Streams : public ToolTest {
 protected:
  // Frames 1..5 in in/ and the same frames concatenated in "stream".
  void SetUp() override {
    ToolTest::SetUp();
    fs::create_directory("in");
    std::string stream;
    for (std::size_t i = 0; i < std::size(kFrames); ++i) {
      const Sizes& f = kFrames[i];
      const std::string name = "in/" + std::to_string(i + 1) + ".png";
      WritePattern(name, f.width, f.height, f.layout, f.deep);
      stream += Contents(name);
    }
    std::ofstream("stream", std::ios::binary) << stream;
    ASSERT_EQ(Run(Words("render in ref --preset 2.35 --color #204060")).code, 0);
  }
};

TEST_F(Streams, InAndOutFrameForFrameAsFiles) {
  for (const char* out : {"-", "out/%d.png"}) {
    std::FILE* in = std::fopen("stream", "rb");
    std::FILE* frames = std::fopen("stream.out", "wb");
    const Outcome outcome = Run({"render", "-", out, "--preset", "2.35", "--color", "#204060"}, in, frames);
    std::fclose(in);
    std::fclose(frames);
    ASSERT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.out.empty(), std::string(out) == "-");  // messages leave stdout to the frames
    const std::vector<std::string> got = SplitStream(Contents("stream.out"));
    for (std::size_t i = 0; i < std::size(kFrames); ++i) {
      const std::string name = std::to_string(i + 1) + ".png", want = Contents("ref/" + name);
      EXPECT_EQ(std::string(out) == "-" ? (i < got.size() ? got[i] : "") : Contents("out/" + name), want)
          << name;
    }
    if (std::string(out) == "-") {
      EXPECT_EQ(got.size(), std::size(kFrames));
    }
  }
}

TEST_F(Streams, FilesOutToOneStream) {
  std::FILE* frames = std::fopen("stream.out", "wb");
  const Outcome outcome = Run(Words("render in - --preset 2.35 --color #204060"), nullptr, frames);
  std::fclose(frames);
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  std::string want;
  for (std::size_t i = 1; i <= std::size(kFrames); ++i) want += Contents("ref/" + std::to_string(i) + ".png");
  EXPECT_EQ(Contents("stream.out"), want);
}

TEST_F(Streams, EmptyOrCutStreamFailsAfterTheWholeFrames) {
  const std::string stream = Contents("stream");
  const std::size_t second = SplitStream(stream)[0].size();
  for (const std::size_t cut : {std::size_t{0}, second + 100}) {
    std::ofstream("cut", std::ios::binary) << stream.substr(0, cut);
    std::FILE* in = std::fopen("cut", "rb");
    std::FILE* frames = std::fopen("stream.out", "wb");
    const Outcome outcome = Run(Words("render - - --preset 2.35"), in, frames);
    std::fclose(in);
    std::fclose(frames);
    EXPECT_EQ(outcome.code, 3);
    EXPECT_NE(outcome.err.find(cut == 0 ? "no frames on standard input"
                                        : "frame 2 of standard input: it ends inside"),
              std::string::npos)
        << outcome.err;
    EXPECT_EQ(SplitStream(Contents("stream.out")).size(), cut == 0 ? 0u : 1u);
  }
}

// ffmpeg's frames of a test video, letterboxed through two pipes, come out
// of the second ffmpeg as the render of the same frames as files.
TEST_F(Streams, VideoRoundTripThroughFfmpeg) {
  if (std::system("command -v ffmpeg > /dev/null 2>&1") != 0) GTEST_SKIP() << "ffmpeg is not installed";
  const std::string source = "ffmpeg -loglevel error -f lavfi -i testsrc2=size=320x180:rate=10 -frames:v 12 ";
  ASSERT_EQ(std::system((source + "-c:v png video/%02d.png").insert(0, "mkdir video && ").c_str()), 0);
  ASSERT_EQ(Run(Words("render video/%02d.png ref-video/%02d.png --preset 2.35 --pixel-aspect 1/1")).code, 0);
  const std::string pipeline = source +
                               "-f image2pipe -c:v png - | " CINEBAR_TOOL_PATH " render - - --preset 2.35 " +
                               "--pixel-aspect 1/1 --module " CINEBAR_MODULE_PATH
                               " 2> log | ffmpeg -loglevel error -f image2pipe -i - -c:v png back/%02d.png";
  ASSERT_EQ(std::system(("mkdir back && " + pipeline).c_str()), 0) << Contents("log");
  ASSERT_EQ(Files("back").size(), 12u) << Contents("log");
  for (const std::string& name : Files("back")) {
    const Decoded back = Decode("back/" + name), want = Decode("ref-video/" + name);
    EXPECT_TRUE(back.samples == want.samples && back.channels == want.channels) << name;
  }
}

}  // namespace
}  // namespace cinebar_tool_test
