// Runs `cinebar` in-process against the built module, in a fresh folder per
// test, and reads and writes the PNG files the tests need.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/cinebar/image.h"

namespace cinebar_tool_test {

struct Outcome {
  int code = 0;
  std::string out, err;
};

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The command line with --module naming the built module.
  Outcome Run(std::vector<std::string> args);
  std::string Path(const std::string& name) const { return dir_ + "/" + name; }
  // The names in the test's folder (or a folder in it), sorted.
  std::vector<std::string> Files(const std::string& sub = "") const;
  void WriteText(const std::string& name, const std::string& text) const;

  std::string dir_;
};

// An image whose every sample depends on its position, so moved pixels show.
cinebar_tool::Image PatternImage(int width, int height, bool deep);

// Writes a PNG of one channel layout with libpng's simplified interface
// (independently of the tool's writer): "gray", "rgb" or "rgba", 8 or 16 bits.
void WriteFormatPng(const std::string& path, int width, int height, const char* layout, bool deep,
                    const std::function<std::uint16_t(int x, int y, int channel)>& sample);

// One line on stderr, starting "cinebar: ".
::testing::AssertionResult OneLineError(const Outcome& outcome);

}  // namespace cinebar_tool_test
