// Seeded random sequences: sizes that come back to earlier ones, every colour
// type and depth (tRNS too), interlacing and text chunks, rendered from a
// folder with two jobs and from a pipe with one, each at a random deflate
// level. Each output is judged pixel by pixel against the input as libpng
// decodes it and the picture rectangle of the independent model, and its form
// must be the smallest that holds the input's and the bars'. Photographs and
// a video through ffmpeg are judged the same way. CINEBAR_RANDOM_SEQUENCES=N
// runs N seeds instead of a few.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "tests/effect/picture_model.h"
#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

namespace fs = std::filesystem;

struct Look {  // the options of one sequence's render
  float ratio;
  PF_RationalScale aspect;
  std::array<int, 3> color;
  bool opaque, cleared;
};

// Counts the pixels of `out` that are neither the input inside the model's
// rectangle nor the bar outside it; reports the first few.
int WrongPixels(const std::string& in, const std::string& out, const Look& look) {
  const Reading want = Decode(in), got = Decode(out);
  if (got.depth != want.depth || got.width != want.width || got.height != want.height)
    return ADD_FAILURE() << out << ": " << got.width << "x" << got.height << "x" << got.depth << got.error,
           -1;
  const PF_Rect r = picture_model::Model(got.width, got.height, look.ratio, {1, 1}, {1, 1}, look.aspect);
  const bool deep = want.depth == 16;
  const int full = deep ? 65535 : 255;
  std::array<int, 4> bar{look.color[0], look.color[1], look.color[2], 255};
  // The host's 16-bit scale (x128 of 32768) at file scale; opaque bars at full.
  for (int c = 0; c < 4 && deep; ++c)
    bar[c] = look.opaque ? bar[c] * 257 : static_cast<int>(std::lround(bar[c] * 128 * 65535.0 / 32768));
  if (look.opaque) bar[3] = full;
  bool color = want.channels >= 3, alpha = want.channels % 2 == 0;
  int wrong = 0;
  for (int y = 0; y < got.height; ++y)
    for (int x = 0; x < got.width; ++x) {
      const bool inside = x >= r.left && x < r.right && y >= r.top && y < r.bottom;
      const std::array<int, 4> expected = !inside        ? bar
                                          : look.cleared ? std::array<int, 4>{}
                                                         : want.Rgba(x, y);
      color = color || expected[0] != expected[1] || expected[1] != expected[2];
      alpha = alpha || expected[3] != full;
      const std::array<int, 4> pixel = got.Rgba(x, y);
      if (pixel != expected && ++wrong <= 3)
        ADD_FAILURE() << out << " pixel " << x << "," << y << (inside ? " (picture)" : " (bar)") << " is "
                      << pixel[0] << " " << pixel[1] << " " << pixel[2] << " " << pixel[3];
    }
  EXPECT_EQ(got.channels, (color ? 3 : 1) + (alpha ? 1 : 0)) << out << ": not the smallest form";
  return wrong;
}

// One sequence in in/1.png.. and on "stream": frames of three random sizes in random forms, some with text.
std::vector<bool> WriteSequence(std::mt19937& random) {
  const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  std::pair<int, int> sizes[3];
  for (auto& [w, h] : sizes) w = 1 + pick(300), h = 1 + pick(200);
  fs::remove_all("in"), fs::create_directory("in");
  std::vector<bool> texts(static_cast<std::size_t>(4 + pick(4)));
  std::ofstream stream("stream", std::ios::binary);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const auto [w, h] = sizes[pick(3)];
    std::string file = WriteWithLibpng(RandomPicture(random, 0, w, h));
    if ((texts[i] = pick(2) == 1))
      file = Insert(file, ChunkBytes("tEXt", std::string("Comment\0hi", 10)), "IEND");
    std::ofstream("in/" + std::to_string(i + 1) + ".png", std::ios::binary) << file;
    stream << file;
  }
  return texts;
}

TEST_F(ToolTest, RandomSequencesEveryFrameExactFromAFolderAndAPipe) {
  constexpr float kRatios[] = {1.0f, 1.333f, 1.85f, 2.35f, 0.5f, 4.0f};
  constexpr PF_RationalScale kAspects[] = {{1, 1}, {10, 11}, {40, 33}, {2, 1}};
  const char* seeds = std::getenv("CINEBAR_RANDOM_SEQUENCES");
  for (int seed = 1; seed <= (seeds != nullptr ? std::max(1, std::atoi(seeds)) : 4); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    const std::vector<bool> texts = WriteSequence(random);
    const int grey = pick(256);  // grey bars in half the sequences, so that grey inputs stay grey
    const std::array<int, 3> color = pick(2) == 0 ? std::array<int, 3>{grey, grey, grey}
                                                  : std::array<int, 3>{pick(256), pick(256), pick(256)};
    const Look look{kRatios[pick(6)], kAspects[pick(4)], color, pick(3) == 0, pick(3) == 0};
    char options[160];
    std::snprintf(options, sizeof options, "--ratio %g --pixel-aspect %d/%u --color #%02X%02X%02X%s%s",
                  look.ratio, look.aspect.num, look.aspect.den, look.color[0], look.color[1], look.color[2],
                  look.opaque ? " --opaque-bars" : "", look.cleared ? " --render on-transparent" : "");
    for (const char* from :
         {"in out --jobs 2", "- out/%d.png --jobs 1"}) {  // deflate levels 0 (stored) to 12
      const std::string run =
          "render " + std::string(from) + " --compression " + std::to_string(pick(13)) + " " + options;
      SCOPED_TRACE(run);
      fs::remove_all("out");
      const File pipe(popen("cat stream", "r"), &pclose);
      const Outcome outcome = Run(Words(run), pipe.get());
      ASSERT_EQ(outcome.code, 0) << outcome.err;
      ASSERT_EQ(Files("out").size(), texts.size());
      for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string name = std::to_string(i + 1) + ".png";
        EXPECT_EQ(WrongPixels("in/" + name, "out/" + name, look), 0);
        EXPECT_EQ(Contents("out/" + name).find("tEXtComment") != std::string::npos, texts[i]) << name;
      }
    }
  }
}

// README's folder of photographs (sizes and depths that come back), and a
// video's frames letterboxed between two ffmpeg processes through pipes.
TEST_F(ToolTest, PhotographsAndAVideoThroughFfmpegEveryFrameExact) {
  const std::string photos = "/usr/share/backgrounds/mate/nature/";
  if (std::system("command -v ffmpeg > /dev/null 2>&1") != 0 || !fs::exists(photos))
    GTEST_SKIP() << "needs ffmpeg and mate-backgrounds (" << photos << ")";
  const char* const kShots[][3] = {{"Aqua", "321:181", "rgb24"},
                                   {"Dune", "720:480", "rgb48be"},
                                   {"Garden", "321:181", "rgb24"},
                                   {"Storm", "1280:720", "rgba"},
                                   {"Wood", "720:480", "gray16be"}};
  fs::create_directory("shots");
  for (const auto& [name, size, format] : kShots) {
    const std::string convert = "ffmpeg -loglevel error -i " + photos + name + ".jpg -vf scale=" + size +
                                " -pix_fmt " + format + " shots/" + name + ".png";
    ASSERT_EQ(std::system(convert.c_str()), 0) << convert;
  }
  const std::string video = "ffmpeg -loglevel error -f lavfi -i testsrc2=size=320x180:rate=10 -frames:v 12 ";
  ASSERT_EQ(std::system((video + "-c:v png shots/video%02d.png").c_str()), 0);
  const std::string pipeline =
      video + "-f image2pipe -c:v png - | " CINEBAR_TOOL_PATH " render - - --preset 2.35 " +
      "--pixel-aspect 1/1 --module " CINEBAR_MODULE_PATH
      " 2> log | ffmpeg -loglevel error -f image2pipe -i - -c:v png back/video%02d.png";
  ASSERT_EQ(std::system(("mkdir back && " + pipeline).c_str()), 0) << Contents("log");
  const Outcome outcome = Run(Words("render shots rendered --preset 2.35 --pixel-aspect 1/1 --jobs 2"));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  ASSERT_EQ(Files("back").size(), 12u) << Contents("log");
  const Look look{2.35f, {1, 1}, {0, 0, 0}, false, false};
  for (const std::string& name : Files("shots")) {
    EXPECT_EQ(WrongPixels("shots/" + name, "rendered/" + name, look), 0);
    EXPECT_EQ(name.starts_with("video") ? WrongPixels("shots/" + name, "back/" + name, look) : 0, 0);
  }
}

}  // namespace
}  // namespace cinebar_tool_test
