// Seeded random sequences: sizes that come back to earlier ones, 1- to
// 16-bit samples, every colour type, interlacing and text chunks, rendered
// with one and with two jobs. Each output is judged pixel by pixel against
// the input as libpng decodes it and the picture rectangle of the independent
// model. CINEBAR_RANDOM_SEQUENCES=N runs N seeds instead of a few.
#include <gtest/gtest.h>
#include <png.h>

#include <array>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "tests/effect/picture_model.h"
#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

namespace fs = std::filesystem;

struct InputForm {
  int color_type, depth;
  bool trns;  // a palette with transparent entries
};
constexpr InputForm kForms[] = {
    {PNG_COLOR_TYPE_GRAY, 8, false},       {PNG_COLOR_TYPE_GRAY, 16, false},
    {PNG_COLOR_TYPE_GRAY, 4, false},       {PNG_COLOR_TYPE_GRAY, 1, false},
    {PNG_COLOR_TYPE_GRAY_ALPHA, 8, false}, {PNG_COLOR_TYPE_GRAY_ALPHA, 16, false},
    {PNG_COLOR_TYPE_RGB, 8, false},        {PNG_COLOR_TYPE_RGB, 16, false},
    {PNG_COLOR_TYPE_RGBA, 8, false},       {PNG_COLOR_TYPE_RGBA, 16, false},
    {PNG_COLOR_TYPE_PALETTE, 8, false},    {PNG_COLOR_TYPE_PALETTE, 2, true},
};

// Writes random samples in the given form with libpng's full interface.
void WriteRandom(const std::string& path, int width, int height, const InputForm& form, bool interlace,
                 bool text, std::mt19937& random) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr) << path;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  ASSERT_EQ(setjmp(png_jmpbuf(png)), 0) << "libpng failed to write " << path;
  png_init_io(png, file);
  png_set_IHDR(png, info, width, height, form.depth, form.color_type,
               interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  const int entries = 1 << std::min(form.depth, 8);
  std::vector<png_color> palette(entries);
  std::vector<png_byte> alpha(entries);
  for (int i = 0; i < entries; ++i) {
    palette[i] = {png_byte(random()), png_byte(random()), png_byte(random())};
    alpha[i] = png_byte(random());
  }
  if (form.color_type == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png, info, palette.data(), entries);
  if (form.trns) png_set_tRNS(png, info, alpha.data(), entries, nullptr);
  png_text comment{};
  comment.compression = PNG_TEXT_COMPRESSION_NONE;
  comment.key = const_cast<char*>("Comment");
  comment.text = const_cast<char*>("random sequence");
  if (text) png_set_text(png, info, &comment, 1);
  png_write_info(png, info);
  png_set_interlace_handling(png);
  const std::size_t stride = png_get_rowbytes(png, info);
  std::vector<png_byte> samples(stride * static_cast<std::size_t>(height));
  for (png_byte& b : samples) b = png_byte(random());
  std::vector<png_bytep> rows(height);
  for (int y = 0; y < height; ++y) rows[y] = samples.data() + stride * static_cast<std::size_t>(y);
  png_write_image(png, rows.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  ASSERT_EQ(std::fclose(file), 0);
}

// The input as RGBA in its own depth (8 or 16 bits), palette and low bit
// depths expanded by libpng.
std::vector<std::array<int, 4>> Expanded(const std::string& path, int* depth) {
  std::vector<std::array<int, 4>> pixels;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (file != nullptr && !setjmp(png_jmpbuf(png))) {
    png_init_io(png, file);
    png_read_png(png, info, PNG_TRANSFORM_EXPAND | PNG_TRANSFORM_GRAY_TO_RGB, nullptr);
    *depth = png_get_bit_depth(png, info);
    const int channels = png_get_channels(png, info), full = *depth == 16 ? 65535 : 255;
    const png_bytepp rows = png_get_rows(png, info);
    for (png_uint_32 y = 0; y < png_get_image_height(png, info); ++y)
      for (png_uint_32 x = 0; x < png_get_image_width(png, info); ++x) {
        std::array<int, 4> p{0, 0, 0, full};
        for (int c = 0; c < channels; ++c) {
          const png_bytep s = rows[y] + (x * channels + c) * (*depth / 8);
          p[c] = *depth == 16 ? s[0] << 8 | s[1] : s[0];
        }
        pixels.push_back(p);
      }
  }
  png_destroy_read_struct(&png, &info, nullptr);
  if (file != nullptr) std::fclose(file);
  return pixels;
}

struct Look {  // the options of one sequence's render
  float ratio;
  PF_RationalScale aspect;
  std::array<int, 3> color;
  bool opaque, cleared;
};

std::array<int, 4> Bar(const Look& look, bool deep) {
  std::array<int, 4> bar{look.color[0], look.color[1], look.color[2], 255};
  for (int& v : bar)  // the host's 16-bit scale (x128 of 32768) at file scale; opaque bars at full
    v = !deep ? v : look.opaque ? v * 257 : static_cast<int>(std::lround(v * 128 * 65535.0 / 32768));
  if (look.opaque) bar[3] = deep ? 65535 : 255;
  return bar;
}

// Counts the pixels of `out` that are neither the input inside the model's
// rectangle nor the bar outside it; reports the first few.
int WrongPixels(const std::string& in, const std::string& out, const Look& look) {
  int depth = 0;
  const std::vector<std::array<int, 4>> want = Expanded(in, &depth);
  const Decoded got = Decode(out);
  if (got.depth != depth || got.samples.size() / std::max(got.channels, 1) != want.size()) {
    ADD_FAILURE() << out << ": " << got.width << "x" << got.height << " depth " << got.depth;
    return -1;
  }
  const PF_Rect r = picture_model::Model(got.width, got.height, look.ratio, {1, 1}, {1, 1}, look.aspect);
  const std::array<int, 4> bar = Bar(look, depth == 16), clear{0, 0, 0, 0};
  const int full = depth == 16 ? 65535 : 255;
  int wrong = 0;
  for (int y = 0; y < got.height; ++y)
    for (int x = 0; x < got.width; ++x) {
      const bool inside = x >= r.left && x < r.right && y >= r.top && y < r.bottom;
      const std::array<int, 4>& expected = !inside        ? bar
                                           : look.cleared ? clear
                                                          : want[static_cast<std::size_t>(y * got.width + x)];
      const std::uint16_t* p = got.at(x, y);
      const bool color = got.channels >= 3;
      const std::array<int, 4> pixel{p[0], p[color ? 1 : 0], p[color ? 2 : 0],
                                     got.channels % 2 == 0 ? p[got.channels - 1] : full};
      if (pixel != expected && ++wrong <= 3)
        ADD_FAILURE() << out << " pixel " << x << "," << y << (inside ? " (picture)" : " (bar)") << " is "
                      << pixel[0] << " " << pixel[1] << " " << pixel[2] << " " << pixel[3];
    }
  return wrong;
}

int Seeds() {
  const char* n = std::getenv("CINEBAR_RANDOM_SEQUENCES");
  return n != nullptr ? std::max(1, std::atoi(n)) : 3;
}

TEST_F(ToolTest, RandomSequencesEveryFrameExactAtOneAndTwoJobs) {
  constexpr float kRatios[] = {1.0f, 1.333f, 1.85f, 2.35f, 0.5f, 4.0f};
  constexpr PF_RationalScale kAspects[] = {{1, 1}, {10, 11}, {40, 33}, {2, 1}};
  for (int seed = 1; seed <= Seeds(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    std::vector<std::pair<int, int>> sizes(3);
    for (auto& [w, h] : sizes) w = 1 + pick(300), h = 1 + pick(200);
    fs::remove_all("in"), fs::create_directory("in");
    const int frames = 4 + pick(4);
    std::vector<bool> texts;
    for (int i = 0; i < frames; ++i) {
      texts.push_back(pick(2) == 1);
      const auto [w, h] = sizes[static_cast<std::size_t>(pick(3))];
      WriteRandom("in/" + std::to_string(i) + ".png", w, h, kForms[pick(std::size(kForms))], pick(2) == 1,
                  texts.back(), random);
    }
    const Look look{
        kRatios[pick(6)], kAspects[pick(4)], {pick(256), pick(256), pick(256)}, pick(3) == 0, pick(3) == 0};
    char options[160];
    std::snprintf(options, sizeof options, "--ratio %g --pixel-aspect %d/%u --color #%02X%02X%02X%s%s",
                  look.ratio, look.aspect.num, look.aspect.den, look.color[0], look.color[1], look.color[2],
                  look.opaque ? " --opaque-bars" : "", look.cleared ? " --render on-transparent" : "");
    SCOPED_TRACE(options);
    for (const char* jobs : {"1", "2"}) {
      fs::remove_all("out");
      const Outcome outcome = Run(Words(std::string("render in out --jobs ") + jobs + " " + options));
      ASSERT_EQ(outcome.code, 0) << outcome.err;
      ASSERT_EQ(Files("out").size(), static_cast<std::size_t>(frames));
      for (int i = 0; i < frames; ++i) {
        const std::string name = std::to_string(i) + ".png";
        EXPECT_EQ(WrongPixels("in/" + name, "out/" + name, look), 0) << "jobs " << jobs;
        EXPECT_EQ(Contents("out/" + name).find("tEXtComment") != std::string::npos, texts[i]) << name;
      }
    }
  }
}

// README's folder of photographs: sizes and depths that come back, judged as the random ones.
TEST_F(ToolTest, FolderOfPhotographsEveryFrameExact) {
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
  const Outcome outcome = Run(Words("render shots rendered --preset 2.35 --pixel-aspect 1/1 --jobs 2"));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const Look look{2.35f, {1, 1}, {0, 0, 0}, false, false};
  for (const auto& [name, size, format] : kShots)
    EXPECT_EQ(
        WrongPixels(std::string("shots/") + name + ".png", std::string("rendered/") + name + ".png", look),
        0);
}

}  // namespace
}  // namespace cinebar_tool_test
