// The command line of `cinebar`, parsed with CLI11: commands, their arguments
// and the option values, checked for form here. Values that only the module
// can judge (preset names, the ratio's range, render mode names) are kept as
// text and resolved against the module's controls (see controls.h).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hostapi/ae_effect.h"

namespace cinebar_tool {

constexpr int kDefaultCompression = 1;

// An edit the user asked for.
struct RequestedEdit {
  enum Kind { kPreset, kRatio, kRender, kColor } kind;
  std::string text;   // the option's value as typed
  double number = 0;  // kRatio: the parsed value
  PF_Pixel color{};   // kColor: the parsed value
};

struct Options {
  std::string command;               // render, demo, info, help, version
  std::string text;                  // help and version: what to print
  std::string help_topic;            // help: the command asked about, empty for all
  std::string in, out;               // render IN OUT
  std::string module;                // --module PATH
  std::string out_dir;               // demo --out DIR
  std::vector<RequestedEdit> edits;  // render mode, then preset or ratio, then colour
  bool overwrite = false, dry_run = false, skip_bad = false, opaque_bars = false, no_gaps = false;
  int jobs = 0;  // 0: one per hardware thread
  int compression = kDefaultCompression;
  bool pixel_aspect_given = false;
  PF_RationalScale pixel_aspect{1, 1};
  PF_RationalScale downsample_x{1, 1};
  PF_RationalScale downsample_y{1, 1};
};

// Throws ToolError(kExitUsage) with a one-line message.
Options ParseCommandLine(const std::vector<std::string>& args);

// Value forms, std::nullopt when malformed.
std::optional<PF_Pixel> ParseColor(const std::string& text);             // #RRGGBB or #RRGGBBAA
std::optional<PF_RationalScale> ParseRational(const std::string& text);  // N/D or N:D, both positive
std::optional<double> ParseNumber(const std::string& text);              // a whole finite number
std::optional<double> ParseRatio(const std::string& text);               // a number, W:H or W/H

}  // namespace cinebar_tool
