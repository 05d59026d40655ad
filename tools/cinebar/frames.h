// Which files a render reads and writes: one file, a printf-style numbered
// pattern ("shot/frame_%04d.png") or a folder of PNG files.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cinebar_tool {

struct FramePair {
  std::string in;
  std::string out;
};

// A pattern with exactly one %d, %Nd or %0Nd conversion ("%%" is a percent sign).
struct NumberPattern {
  std::string prefix, suffix;
  int width = 0;
  bool zero_pad = false;
  std::string Format(long number) const;
  // The number a name (folder included) carries, if it fits the pattern.
  std::optional<long> Match(const std::string& path) const;
};

// nullopt when the text has no conversion; ToolError(kExitUsage) when it is malformed.
std::optional<NumberPattern> ParsePattern(const std::string& text);

// The frames of a render from IN to OUT, in order. A folder or pattern IN
// needs a folder or pattern OUT; a folder keeps the input names (in numeric
// order: 2 before 10), a pattern numbers by the input's number (a folder's
// inputs count from 1). Nothing is created. Throws ToolError(kExitInput) for
// a missing input or a sequence without frames, ToolError(kExitUsage) for
// mismatched forms and a folder onto itself.
std::vector<FramePair> PlanFrames(const std::string& in, const std::string& out);

bool IsDirectory(const std::string& path);
// "." for a bare name.
std::string FolderOf(const std::string& path);
// Creates the folder and every missing folder above it.
void MakeFolders(const std::string& path);
// Name order with runs of digits compared as numbers.
bool NaturalLess(const std::string& a, const std::string& b);

}  // namespace cinebar_tool
