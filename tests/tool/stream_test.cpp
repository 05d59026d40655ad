// Frames through pipes: "-" as IN reads PNGs concatenated on standard input,
// "-" as OUT writes them to standard output, sizes and depths mixed; a stream
// that ends inside a frame fails after the frames before it. With ffmpeg
// present, a video's frames letterboxed on their way from one ffmpeg to another.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

namespace fs = std::filesystem;

const struct {
  int width, height;
  const char* layout;
  bool deep;
} kFrames[] = {{320, 180, "rgb", false},
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
      const auto& f = kFrames[i];
      const std::string name = "in/" + std::to_string(i + 1) + ".png";
      WritePattern(name, f.width, f.height, f.layout, f.deep);
      stream += Contents(name);
    }
    std::ofstream("stream", std::ios::binary) << stream;
    ASSERT_EQ(Run(Words("render in ref --preset 2.35 --color #204060")).code, 0);
  }
};

// Each way through: from a stream or files, to a stream or files, frame for
// frame what the render of files writes; messages leave stdout to the frames.
// A stream that ends inside its second frame, or holds none, fails after
// writing the whole frames before.
TEST_F(Streams, EveryWayFrameForFrameAsFiles_ACutOneFailsAfterTheWholeFrames) {
  std::string refs, stream = Contents("stream");
  for (std::size_t i = 1; i <= std::size(kFrames); ++i) refs += Contents("ref/" + std::to_string(i) + ".png");
  const std::size_t second = Contents("in/1.png").size() + 100;
  std::ofstream("cut", std::ios::binary) << stream.substr(0, second);
  std::ofstream("empty");
  struct Way {
    const char *from, *stdin_file, *to, *says;
    std::string sent;  // to stdout
  };
  for (const Way& way :
       {Way{"-", "stream", "-", "", refs}, Way{"-", "stream", "out/%d.png", "", ""},
        Way{"in", "empty", "-", "", refs},
        Way{"-", "cut", "-", "frame 2 of standard input: it ends inside", Contents("ref/1.png")},
        Way{"-", "empty", "-", "no frames on standard input", ""}}) {
    std::FILE* in = std::fopen(way.stdin_file, "rb");
    std::FILE* frames = std::fopen("stream.out", "wb");
    const Outcome outcome =
        Run({"render", way.from, way.to, "--preset", "2.35", "--color", "#204060"}, in, frames);
    std::fclose(in);
    std::fclose(frames);
    const std::string what = std::string(way.from) + " " + way.stdin_file + " " + way.to;
    EXPECT_EQ(outcome.code, *way.says != '\0' ? 3 : 0) << what << ": " << outcome.err;
    EXPECT_NE(outcome.err.find(way.says), std::string::npos) << what << ": " << outcome.err;
    EXPECT_EQ(outcome.out.empty(), std::string(way.to) == "-") << what;
    EXPECT_TRUE(Contents("stream.out") == way.sent) << what;
  }
  for (std::size_t i = 1; i <= std::size(kFrames); ++i)
    EXPECT_EQ(Contents("out/" + std::to_string(i) + ".png"), Contents("ref/" + std::to_string(i) + ".png"));
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
    const Reading back = Decode("back/" + name), want = Decode("ref-video/" + name);
    EXPECT_TRUE(back.samples == want.samples && back.channels == want.channels) << name;
  }
}

}  // namespace
}  // namespace cinebar_tool_test
