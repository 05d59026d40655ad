// Which files a render reads and writes: one file, a printf-style numbered
// pattern ("shot/frame_%04d.png") or a folder of PNG files; and what must hold
// of the outputs before any work is done.
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

// "-" as IN or OUT: frames concatenated on standard input or output.
inline constexpr char kStream[] = "-";

struct Plan {
  std::vector<FramePair> frames;  // in order; none when IN is the stream
  std::vector<long> missing;      // numbers a numbered sequence skips
  bool numbered = false;          // IN is a pattern
  bool stream_in = false, stream_out = false;
  std::optional<NumberPattern> stream_names;  // OUT's pattern for frames read from the stream
};

// The frames of a render from IN to OUT. A folder or pattern IN needs a
// folder or pattern OUT; a folder keeps the input names (in numeric order: 2
// before 10), a pattern numbers by the input's number (a folder's inputs
// count from 1). A single IN into a folder OUT (one that exists or ends in
// "/") keeps its name. Nothing is created. Throws ToolError(kExitInput) for a
// missing input or a sequence without frames, ToolError(kExitUsage) for
// mismatched forms and a folder onto itself. IN "-" needs OUT "-" or a pattern.
Plan PlanFrames(const std::string& in, const std::string& out);

// Refuses an output that is one of the inputs, a link or anything but a
// regular file, that exists without `overwrite`, or whose folder cannot be
// made or written into. Changes nothing. Throws ToolError.
void CheckOutputs(const std::vector<FramePair>& frames, bool overwrite);
// A folder a pattern's names fall in, checked as CheckOutputs checks them.
void CheckFolderOf(const std::string& path);
// The folder a path names a file in ("." for a bare name).
std::string FolderOf(const std::string& path);

// Creates the missing folders of the outputs; removes those it created and
// that stay empty when it goes out of scope.
class OutputFolders {
 public:
  explicit OutputFolders(const std::vector<std::string>& paths);
  ~OutputFolders();
  OutputFolders(const OutputFolders&) = delete;
  OutputFolders& operator=(const OutputFolders&) = delete;

 private:
  std::vector<std::string> created_;  // outermost first
};

// Name order with runs of digits compared as numbers.
bool NaturalLess(const std::string& a, const std::string& b);

}  // namespace cinebar_tool
