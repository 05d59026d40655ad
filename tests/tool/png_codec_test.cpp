// The PNG reader and writer against libpng: seeded random pictures of every
// form read from memory and from a pipe of concatenated frames, random frames
// written at every level, each judged by libpng on the same bytes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "png_oracle.h"
#include "tools/cinebar/png/png_reader.h"
#include "tools/cinebar/png/png_writer.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_png_test {
namespace {

using cinebar_tool::Frame;
using cinebar_tool::ReadPng;

unsigned Seed() {
  return std::getenv("CINEBAR_PNG_SEED") ? unsigned(std::atoi(std::getenv("CINEBAR_PNG_SEED"))) : 2024;
}
int Rounds(int quick) {
  return std::getenv("CINEBAR_PNG_ROUNDS") ? std::atoi(std::getenv("CINEBAR_PNG_ROUNDS")) : quick;
}

// The bytes through `cat`: a stream that cannot seek.
File Piped(const std::string& bytes) {
  const std::string path = ::testing::TempDir() + "cinebar-png-stream";
  std::ofstream(path, std::ios::binary) << bytes;
  return File(popen(("cat '" + path + "'").c_str(), "r"), &pclose);
}

void ExpectSame(const Reading& libpng, const Frame& frame, const std::string& what) {
  ASSERT_FALSE(libpng.objects()) << what << ": " << libpng.objection();
  EXPECT_EQ(frame.width, libpng.width) << what;
  EXPECT_EQ(frame.height, libpng.height) << what;
  EXPECT_EQ(frame.channels, libpng.channels) << what;
  EXPECT_EQ(frame.deep ? 16 : 8, libpng.depth) << what;
  EXPECT_TRUE(frame.samples == libpng.samples) << what;
}

std::string Describe(const Picture& p) {
  return std::to_string(p.width) + "x" + std::to_string(p.height) + " depth " + std::to_string(p.depth) +
         " type " + std::to_string(p.color_type) + (p.interlaced ? " interlaced" : "") +
         (p.trns.empty() ? "" : " tRNS");
}

TEST(PngReader, EveryFormAsLibpngReadsIt_AlsoAsHeaderAlone) {
  std::mt19937 random(Seed());
  for (int round = 0; round < Rounds(300); ++round) {
    const Picture picture = RandomPicture(random, 40);
    const std::string bytes = Insert(WriteWithLibpng(picture), ChunkBytes("tEXt", "a"), "IEND");
    Frame frame, header;
    ASSERT_TRUE(ReadPng(ReadFrom(bytes).get(), "picture", frame));
    ExpectSame(ReadWithLibpng(bytes), frame, Describe(picture));
    ASSERT_TRUE(ReadPng(ReadFrom(bytes).get(), "picture", header, cinebar_tool::ReadPart::kHeader));
    EXPECT_TRUE(header.samples.empty() && header.width == frame.width && header.height == frame.height &&
                header.channels == frame.channels && header.deep == frame.deep && header.chunks.size() == 1)
        << Describe(picture);
  }
}

TEST(PngReader, FramesOnAPipeOneAfterAnotherThenACleanEnd_OrACutRefused) {
  std::mt19937 random(Seed() + 1);
  for (int round = 0; round < Rounds(30); ++round) {
    std::vector<std::string> files(random() % 4);
    std::string stream;
    for (std::string& file : files) stream += file = WriteWithLibpng(RandomPicture(random, 30));
    const std::size_t end = round % 2 && !stream.empty() ? random() % stream.size() : stream.size();
    const File pipe = Piped(stream.substr(0, end));
    Frame frame;  // its memory reused across sizes and forms
    bool cut = false;
    for (std::size_t i = 0, at = 0; i < files.size() && at < end && !cut; at += files[i++].size()) {
      cut = at + files[i].size() > end;
      if (cut) {
        EXPECT_THROW(ReadPng(pipe.get(), "-", frame), cinebar_tool::ToolError)
            << "cut " << end - at << " bytes in";
      } else {
        ASSERT_TRUE(ReadPng(pipe.get(), "-", frame));
        ExpectSame(ReadWithLibpng(files[i]), frame, "frame on a pipe");
      }
    }
    if (!cut) {
      EXPECT_FALSE(ReadPng(pipe.get(), "-", frame) || ReadPng(pipe.get(), "-", frame))
          << "a clean end, twice";
    }
  }
}

std::string Written(const Frame& f, int level, std::vector<std::uint8_t>* buffer = nullptr) {
  const cinebar_tool::PngImage image{f.width, f.height, f.channels, f.deep, &f.chunks};
  // With `buffer`, the rows come from the picture at the front of the buffer being filled.
  const auto rows = [&](int y, std::uint8_t* row) {
    const std::uint8_t* from = (buffer ? buffer->data() : f.samples.data()) + f.stride() * std::size_t(y);
    std::memmove(row, from, f.stride());  // row y lies over its source at the same or a later address
  };
  return Capture([&](std::FILE* out) {
    EXPECT_EQ(cinebar_tool::WritePng(out, image, rows, cinebar_tool::WriteSettings{level}, buffer), "");
  });
}

TEST(PngWriter, EveryFormAtEveryLevelAsLibpngReadsIt_AlsoFromTheBufferItFills) {
  std::mt19937 random(Seed() + 2);
  for (int round = 0; round < Rounds(150); ++round) {
    Frame f;
    f.Resize(1 + int(random() % 50), 1 + int(random() % 50), 1 + int(random() % 4), random() % 2);
    const unsigned spread = random() % 2 ? 3 : 256;  // runs or noise
    for (auto& s : f.samples) s = std::uint8_t(random() % spread);
    f.chunks.assign(random() % 2, {"tEXt", "x"});
    const int level = int(random() % 13);
    std::vector<std::uint8_t> buffer = f.samples;
    buffer.reserve((f.stride() + 1) * std::size_t(f.height));  // filled in place, never moved
    const std::string what = "level " + std::to_string(level) + ", " + std::to_string(f.width) + "x" +
                             std::to_string(f.height) + "x" + std::to_string(f.channels);
    for (const std::string& file : {Written(f, level), Written(f, level, round % 2 ? &buffer : nullptr)}) {
      ExpectSame(ReadWithLibpng(file), f, what);
      EXPECT_EQ(ChunksOf(file, "tEXt").size(), f.chunks.size()) << what;
    }
  }
}

TEST(PngWriter, AFailedWriteSaysWhy) {
  Frame f;
  f.Resize(300, 300, 4, true);  // more than a stdio buffer
  const File full(std::fopen("/dev/full", "wb"), &std::fclose);
  ASSERT_NE(full, nullptr);
  EXPECT_NE(cinebar_tool::WriteFrame(full.get(), f, cinebar_tool::WriteSettings{1}), "");
}

}  // namespace
}  // namespace cinebar_png_test
