// The PNG reader against libpng: seeded random pictures of every form read
// from files and from a pipe of concatenated frames, judged by libpng's own
// reading of the same bytes.
#include "tools/cinebar/png/png_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "png_oracle.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_png_test {
namespace {

using cinebar_tool::Frame;
using cinebar_tool::ReadPart;
using cinebar_tool::ReadPng;
using cinebar_tool::ToolError;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// Bytes on a pipe, written by a thread: a stream that cannot seek.
class Pipe {
 public:
  explicit Pipe(std::string bytes) {
    int fds[2];
    if (pipe(fds) != 0) std::abort();
    writer_ = std::thread([fd = fds[1], bytes = std::move(bytes)] {
      for (std::size_t at = 0; at < bytes.size();) {
        const ssize_t n = write(fd, bytes.data() + at, bytes.size() - at);
        if (n <= 0) break;
        at += static_cast<std::size_t>(n);
      }
      close(fd);
    });
    in_ = fdopen(fds[0], "rb");
  }
  ~Pipe() {
    std::fclose(in_);
    writer_.join();
  }
  std::FILE* in() const { return in_; }

 private:
  std::thread writer_;
  std::FILE* in_ = nullptr;
};

unsigned Seed() {
  const char* seed = std::getenv("CINEBAR_PNG_SEED");
  return seed != nullptr ? static_cast<unsigned>(std::strtoul(seed, nullptr, 10)) : 2024u;
}

int Rounds(int quick) {
  const char* rounds = std::getenv("CINEBAR_PNG_ROUNDS");
  return rounds != nullptr ? std::atoi(rounds) : quick;
}

std::string Describe(const Picture& p) {
  return std::to_string(p.width) + "x" + std::to_string(p.height) + " depth " + std::to_string(p.depth) +
         " type " + std::to_string(p.color_type) + (p.interlaced ? " interlaced" : "") +
         (p.trns.empty() ? "" : " tRNS") + " palette " + std::to_string(p.palette.size() / 3);
}

// The frame holds what libpng's expanded reading holds, sample for sample.
void ExpectSame(const Reading& libpng, const Frame& frame, const std::string& what) {
  ASSERT_FALSE(libpng.objects()) << what << ": " << libpng.error;
  EXPECT_EQ(frame.width, libpng.width) << what;
  EXPECT_EQ(frame.height, libpng.height) << what;
  EXPECT_EQ(frame.channels, libpng.channels) << what;
  EXPECT_EQ(frame.deep ? 16 : 8, libpng.depth) << what;
  EXPECT_TRUE(frame.samples == libpng.samples) << what;
}

TEST(PngReader, EveryFormReadFromAFileAsLibpngReadsIt) {
  std::mt19937 random(Seed());
  for (int round = 0; round < Rounds(300); ++round) {
    const Picture picture = RandomPicture(random, 40);
    const std::string bytes = WriteWithLibpng(picture);
    ASSERT_FALSE(bytes.empty()) << Describe(picture);
    const File file(fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"), &std::fclose);
    Frame frame;
    ASSERT_TRUE(ReadPng(file.get(), "picture", frame));
    ExpectSame(ReadWithLibpng(bytes), frame, Describe(picture));
  }
}

TEST(PngReader, FramesOnAPipeOneAfterAnotherThenACleanEnd) {
  std::mt19937 random(Seed() + 1);
  for (int round = 0; round < Rounds(12); ++round) {
    std::vector<std::string> files;
    std::string stream;
    for (int i = 0, n = static_cast<int>(random() % 5); i < n; ++i) {
      files.push_back(WriteWithLibpng(RandomPicture(random, 30)));
      stream += files.back();
    }
    const Pipe pipe(stream);
    Frame frame;  // one frame's memory reused across sizes and forms
    for (const std::string& file : files) {
      ASSERT_TRUE(ReadPng(pipe.in(), "-", frame));
      ExpectSame(ReadWithLibpng(file), frame, "frame on a pipe");
    }
    EXPECT_FALSE(ReadPng(pipe.in(), "-", frame));
    EXPECT_FALSE(ReadPng(pipe.in(), "-", frame)) << "an ended stream stays ended";
  }
}

TEST(PngReader, AStreamCutAnywhereInsideAFrameIsRefused) {
  std::mt19937 random(Seed() + 2);
  for (int round = 0; round < Rounds(40); ++round) {
    const std::string first = WriteWithLibpng(RandomPicture(random, 20));
    const std::string second = WriteWithLibpng(RandomPicture(random, 20));
    const std::size_t cut = 1 + random() % (second.size() - 1);
    const Pipe pipe(first + second.substr(0, cut));
    Frame frame;
    ASSERT_TRUE(ReadPng(pipe.in(), "-", frame));
    try {
      ReadPng(pipe.in(), "-", frame);
      ADD_FAILURE() << "a frame cut after " << cut << " of " << second.size() << " bytes was read";
    } catch (const ToolError& e) {
      EXPECT_EQ(e.code(), cinebar_tool::kExitInput);
      EXPECT_NE(std::string(e.what()).find("-"), std::string::npos) << e.what();
    }
  }
}

TEST(PngReader, TheHeaderAloneSaysWhatTheWholeReadSays) {
  std::mt19937 random(Seed() + 3);
  for (int round = 0; round < Rounds(60); ++round) {
    Picture picture = RandomPicture(random, 30);
    const std::string bytes = Insert(WriteWithLibpng(picture), ChunkBytes("tEXt", "Title\0x"), "IEND");
    Frame header, whole;
    const File a(fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"), &std::fclose);
    const File b(fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"), &std::fclose);
    ASSERT_TRUE(ReadPng(a.get(), "h", header, ReadPart::kHeader));
    ASSERT_TRUE(ReadPng(b.get(), "w", whole));
    EXPECT_EQ(header.width, whole.width);
    EXPECT_EQ(header.height, whole.height);
    EXPECT_EQ(header.channels, whole.channels) << Describe(picture);
    EXPECT_EQ(header.deep, whole.deep);
    EXPECT_TRUE(header.samples.empty()) << "the header takes no memory the size of the picture";
    ASSERT_EQ(header.chunks.size(), 1u);
    EXPECT_EQ(header.chunks[0].data, whole.chunks[0].data);
  }
}

}  // namespace
}  // namespace cinebar_png_test
