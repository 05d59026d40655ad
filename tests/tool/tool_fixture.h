// Runs `cinebar` in-process against the built module, inside a fresh folder
// per test, and writes input PNGs independently of the tool's own writer.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace cinebar_tool_test {

struct Outcome {
  int code = 0;
  std::string out, err;
};

// Each test runs in its own empty folder: paths are relative to it.
class ToolTest : public ::testing::Test {
 public:
  void SetUp() override;
  void TearDown() override;
  Outcome Run(std::vector<std::string> args);  // adds --module naming the built module
  // With IN "-" read from `in` and OUT "-" written to `out`.
  Outcome Run(std::vector<std::string> args, std::FILE* in, std::FILE* out);
  static std::vector<std::string> Files(const std::string& folder = ".");  // sorted names

 private:
  std::string home_, dir_;
};

// Writes, with libpng's simplified interface, a picture as "gray", "ga", "rgb"
// or "rgba" whose samples depend on position and channel over the depth's
// whole range, so moved pixels and lost bits show.
void WritePattern(const std::string& path, int width, int height, const std::string& layout = "rgba",
                  bool deep = false);

std::string Contents(const std::string& path);  // a file's bytes

// A PNG file as its samples, read by libpng without transformations (not by
// the tool's reader): 8 or 16 bits, `channels` samples a pixel.
struct Decoded {
  int width = 0, height = 0, channels = 0, depth = 0;
  std::vector<std::uint16_t> samples;
  const std::uint16_t* at(int x, int y) const {
    return &samples[static_cast<std::size_t>((y * width + x) * channels)];
  }
};
Decoded Decode(const std::string& path);

// A PNG chunk: length, type, data and CRC; a PNG file of a 10-byte header
// (width, height, depth, colour type) and image data.
std::string PngChunk(const std::string& type, const std::string& data);
std::string Png(const std::string& header, const std::string& idat);

// The words of a text separated by spaces.
std::vector<std::string> Words(const std::string& text);

}  // namespace cinebar_tool_test
