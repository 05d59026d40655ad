// The `cinebar` command as a function, so that tests run it in-process.
#pragma once

#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

namespace cinebar_tool {

struct Console {
  std::ostream& out;
  std::ostream& err;
  bool err_is_terminal = false;      // draw a progress bar for sequences
  std::string executable_dir;        // where to look for a module next to the tool
  const char* module_env = nullptr;  // $CINEBAR_MODULE
  std::FILE* in = stdin;             // frames of IN "-"
  std::FILE* out_file = stdout;      // frames of OUT "-" (out carries the messages otherwise)
};

// Runs one command line (without the program name) and returns the exit
// code; failures print one line "cinebar: ..." on console.err.
int RunTool(const std::vector<std::string>& args, Console& console);

}  // namespace cinebar_tool
