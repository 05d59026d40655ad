// The PNG reader against libpng: seeded random pictures of every form read
// from memory and from a pipe of concatenated frames, each judged by libpng
// on the same bytes. The writer, at every level and over the buffer being
// filled, is judged by libpng in random_sequence_test.cpp and
// png_chunks_test.cpp; a failed write in processes_test.cpp.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "png_oracle.h"
#include "tools/cinebar/png/png_reader.h"
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

}  // namespace
}  // namespace cinebar_png_test
