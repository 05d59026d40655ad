// The command line of `cinebar`: commands, their arguments and the option
// values, checked for form here. Values that only the module can judge
// (preset names, the ratio's range, render mode names) are kept as text and
// resolved against the module's controls (see controls.h).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hostapi/ae_effect.h"

namespace cinebar_tool {

// An edit the user asked for, in the order given on the command line.
struct RequestedEdit {
  enum Kind { kPreset, kRatio, kRender, kColor } kind;
  std::string text;   // the option's value as typed
  double number = 0;  // kRatio: the parsed value
  PF_Pixel color{};   // kColor: the parsed value
};

struct Options {
  std::string command;                // render, demo, info, help, version
  std::vector<std::string> operands;  // render: IN OUT
  std::string module;                 // --module PATH
  std::string out_dir;                // demo --out DIR
  std::vector<RequestedEdit> edits;
  bool overwrite = false;  // --overwrite
  int jobs = 0;            // --jobs; 0: one per hardware thread
  int compression = 1;     // --compression, the zlib level
  bool pixel_aspect_given = false;
  PF_RationalScale pixel_aspect{1, 1};
  PF_RationalScale downsample_x{1, 1};
  PF_RationalScale downsample_y{1, 1};
};

// Throws ToolError(kExitUsage) with a one-line message.
Options ParseCommandLine(const std::vector<std::string>& args);

// Value forms, std::nullopt when malformed.
std::optional<PF_Pixel> ParseColor(const std::string& text);             // #RRGGBB or #RRGGBBAA
std::optional<PF_RationalScale> ParseRational(const std::string& text);  // N/D, both positive
std::optional<double> ParseNumber(const std::string& text);              // a whole finite number
std::optional<double> ParseRatio(const std::string& text);               // a number, W:H or W/H

extern const char kUsage[];

}  // namespace cinebar_tool
