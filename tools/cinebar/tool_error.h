// The tool's failures: each carries the exit code the command ends with and a
// one-line message for stderr.
#pragma once

#include <stdexcept>
#include <string>

namespace cinebar_tool {

enum ExitCode : int {
  kExitOk = 0,
  kExitUsage = 2,   // a bad command line or option value
  kExitInput = 3,   // an input file that is missing, unreadable or not a PNG
  kExitModule = 4,  // the module cannot be loaded or a command of it failed
  kExitOutput = 5,  // an output file that cannot be written or must not be replaced
  kExitMemory = 6,  // out of memory
};

class ToolError : public std::runtime_error {
 public:
  ToolError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace cinebar_tool
