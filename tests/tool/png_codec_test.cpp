// The PNG reader against libpng: seeded random pictures of every form, with a
// text chunk, concatenated on a pipe that cannot seek and read one after
// another, each judged by libpng on the same bytes, its header alone too; a
// stream cut anywhere is refused, a whole one ends cleanly. The writer is
// judged by libpng in random_sequence_test.cpp and png_chunks_test.cpp.
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

// The bytes through `cat`.
File Piped(const std::string& bytes) {
  const std::string path = ::testing::TempDir() + "cinebar-png-stream";
  std::ofstream(path, std::ios::binary) << bytes;
  return File(popen(("cat '" + path + "'").c_str(), "r"), &pclose);
}

void ExpectSame(const Reading& libpng, const Frame& frame, const std::string& what, bool header = false) {
  ASSERT_FALSE(libpng.objects()) << what << ": " << libpng.objection();
  EXPECT_EQ(frame.width, libpng.width) << what;
  EXPECT_EQ(frame.height, libpng.height) << what;
  EXPECT_EQ(frame.channels, libpng.channels) << what;
  EXPECT_EQ(frame.deep ? 16 : 8, libpng.depth) << what;
  EXPECT_TRUE(header ? frame.samples.empty() : frame.samples == libpng.samples) << what;
  EXPECT_EQ(frame.chunks.size(), 1u) << what;
}

// CINEBAR_PNG_SEED and CINEBAR_PNG_ROUNDS choose other pictures, or more.
TEST(PngReader, EveryFormAsLibpngReadsIt_OnAPipeOneAfterAnother_ACutRefused) {
  const char *seed = std::getenv("CINEBAR_PNG_SEED"), *rounds = std::getenv("CINEBAR_PNG_ROUNDS");
  std::mt19937 random(seed ? unsigned(std::atoi(seed)) : 2024);
  for (int round = 0; round < (rounds ? std::atoi(rounds) : 200); ++round) {
    std::vector<std::string> files(random() % 4);
    std::string stream;
    for (std::string& file : files)
      stream += file = Insert(WriteWithLibpng(RandomPicture(random, 40)), ChunkBytes("tEXt", "a"), "IEND");
    const std::size_t end = round % 2 && !stream.empty() ? random() % stream.size() : stream.size();
    const File pipe = Piped(stream.substr(0, end));
    Frame frame, header;  // the frame's memory reused across sizes and forms
    bool cut = false;
    for (std::size_t i = 0, at = 0; i < files.size() && at < end && !cut; at += files[i++].size()) {
      const std::string what = "frame " + std::to_string(i) + " of round " + std::to_string(round);
      if ((cut = at + files[i].size() > end)) {
        EXPECT_THROW(ReadPng(pipe.get(), "-", frame), cinebar_tool::ToolError) << "cut " << end - at;
        continue;
      }
      ASSERT_TRUE(ReadPng(pipe.get(), "-", frame));
      ExpectSame(ReadWithLibpng(files[i]), frame, what);
      ASSERT_TRUE(ReadPng(ReadFrom(files[i]).get(), "picture", header, cinebar_tool::ReadPart::kHeader));
      ExpectSame(ReadWithLibpng(files[i]), header, what + ", header alone", true);
    }
    if (!cut) {
      EXPECT_FALSE(ReadPng(pipe.get(), "-", frame) || ReadPng(pipe.get(), "-", frame))
          << "a clean end, twice";
    }
  }
}

}  // namespace
}  // namespace cinebar_png_test
