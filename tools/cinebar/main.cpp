// cinebar: renders images through the Cinebar module file and the simulated
// host, makes preview sheets and shows what After Effects would show.
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "tools/cinebar/tool.h"

namespace {

std::string ExecutableDir() {
  char path[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return "";
  const std::string exe(path, static_cast<std::size_t>(n));
  const std::size_t slash = exe.find_last_of('/');
  return slash == std::string::npos ? "" : exe.substr(0, slash);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  cinebar_tool::Console console{std::cout, std::cerr, isatty(STDERR_FILENO) == 1, ExecutableDir(),
                                std::getenv("CINEBAR_MODULE")};
  return cinebar_tool::RunTool(args, console);
}
