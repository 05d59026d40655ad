// The PNG writer judged by libpng: seeded random frames of every form and
// level, rows from a callback, into a buffer of its own or one the picture
// itself fills; a write that fails says why.
#include "tools/cinebar/png/png_writer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

#include "png_oracle.h"

namespace cinebar_png_test {
namespace {

using cinebar_tool::Frame;

Frame RandomFrame(std::mt19937& random) {
  Frame f;
  f.Resize(1 + static_cast<int>(random() % 50), 1 + static_cast<int>(random() % 50),
           1 + static_cast<int>(random() % 4), random() % 2 == 0);
  const unsigned spread = random() % 2 == 0 ? 3 : 256;  // runs or noise
  for (auto& s : f.samples) s = static_cast<std::uint8_t>(random() % spread);
  if (random() % 2 == 0) f.chunks.push_back({"tEXt", std::string("Title\0x", 7)});
  return f;
}

std::string Written(const Frame& f, int level, std::vector<std::uint8_t>* buffer) {
  char* bytes = nullptr;
  std::size_t size = 0;
  std::FILE* memory = open_memstream(&bytes, &size);
  const cinebar_tool::PngImage image{f.width, f.height, f.channels, f.deep, &f.chunks};
  const std::string why = cinebar_tool::WritePng(
      memory, image, [&](int y, std::uint8_t* row) { std::copy(f.row(y), f.row(y) + f.stride(), row); },
      cinebar_tool::WriteSettings{level}, buffer);
  std::fclose(memory);
  std::string file(bytes, size);
  std::free(bytes);
  EXPECT_EQ(why, "");
  return file;
}

void ExpectRead(const std::string& file, const Frame& f, const std::string& what) {
  const Reading libpng = ReadWithLibpng(file);
  ASSERT_FALSE(libpng.objects()) << what << ": " << libpng.error;
  EXPECT_EQ(libpng.width, f.width) << what;
  EXPECT_EQ(libpng.height, f.height) << what;
  EXPECT_EQ(libpng.channels, f.channels) << what;
  EXPECT_EQ(libpng.depth, f.deep ? 16 : 8) << what;
  EXPECT_TRUE(libpng.samples == f.samples) << what;
  EXPECT_EQ(ChunksOf(file, "tEXt"),
            std::vector<std::string>(f.chunks.empty() ? 0 : 1, std::string("Title\0x", 7)));
}

TEST(PngWriter, EveryFormAtEveryLevelAsLibpngReadsIt) {
  std::mt19937 random(77);
  for (int round = 0; round < 120; ++round) {
    const Frame f = RandomFrame(random);
    const int level = static_cast<int>(random() % 13);
    ExpectRead(Written(f, level, nullptr), f,
               "level " + std::to_string(level) + ", " + std::to_string(f.width) + "x" +
                   std::to_string(f.height) + "x" + std::to_string(f.channels));
  }
}

// The picture at the front of the buffer the writer fills: rows come from
// it bottom up while the filtered rows grow over it from the top.
TEST(PngWriter, RowsTakenFromThePictureInTheBufferItself) {
  std::mt19937 random(78);
  for (int round = 0; round < 60; ++round) {
    const Frame f = RandomFrame(random);
    std::vector<std::uint8_t> buffer = f.samples;
    buffer.reserve((f.stride() + 1) * static_cast<std::size_t>(f.height));  // filled in place, never moved
    Frame view = f;
    const std::string file = [&] {
      char* bytes = nullptr;
      std::size_t size = 0;
      std::FILE* memory = open_memstream(&bytes, &size);
      const cinebar_tool::PngImage image{f.width, f.height, f.channels, f.deep, nullptr};
      const auto rows = [&](int y, std::uint8_t* row) {
        const std::uint8_t* source = buffer.data() + f.stride() * static_cast<std::size_t>(y);
        std::copy(source, source + f.stride(), row);
      };
      EXPECT_EQ(cinebar_tool::WritePng(memory, image, rows, cinebar_tool::WriteSettings{1}, &buffer), "");
      std::fclose(memory);
      std::string out(bytes, size);
      std::free(bytes);
      return out;
    }();
    view.chunks.clear();
    ExpectRead(file, view, "shared buffer");
  }
}

TEST(PngWriter, AFailedWriteSaysWhy) {
  std::mt19937 random(79);
  Frame f = RandomFrame(random);
  f.Resize(300, 300, 4, true);  // more than a stdio buffer
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> full(std::fopen("/dev/full", "wb"), &std::fclose);
  ASSERT_NE(full, nullptr);
  EXPECT_NE(cinebar_tool::WriteFrame(full.get(), f, cinebar_tool::WriteSettings{1}), "");
}

}  // namespace
}  // namespace cinebar_png_test
