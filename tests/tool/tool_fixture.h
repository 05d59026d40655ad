// Runs `cinebar` in-process against the built module, inside a fresh folder
// per test; inputs are written and outputs judged by libpng (png_oracle.h).
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "png_oracle.h"

namespace cinebar_tool_test {

using namespace cinebar_png_test;
namespace fs = std::filesystem;

struct Outcome {
  int code = 0;
  std::string out, err;
};

// Each test runs in its own empty folder: paths are relative to it.
struct ToolTest : ::testing::Test {
  void SetUp() override;
  void TearDown() override;
  // Adds --module naming the built module; IN "-" reads `in` and OUT "-" writes `out`.
  Outcome Run(std::vector<std::string> args, std::FILE* in = nullptr, std::FILE* out = nullptr);
  static std::vector<std::string> Files(const std::string& folder = ".");  // sorted names
  std::string home, temp;  // where the test started, and its own folder
};

inline void WritePattern(const std::string& path, int width, int height, int color_type = 6, int depth = 8) {
  std::ofstream(path, std::ios::binary) << WriteWithLibpng(Pattern(width, height, color_type, depth));
}
inline Reading Decode(const std::string& path) { return ReadWithLibpng(Contents(path)); }
std::vector<std::string> Words(const std::string& text, char separator = ' ');  // empty parts left out

}  // namespace cinebar_tool_test
