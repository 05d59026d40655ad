// The codec's floor under `cinebar render`: each input PNG read, and a frame
// written, by the tool's own reader and writer at the same level, one thread,
// nothing else. The frame written is the input itself, or with --as FOLDER the
// file of the same name there (what `cinebar render` made of it), read outside
// the time measured. Prints the seconds spent reading and writing.
//   cinebar_png_floor [--level L] [--as FOLDER] OUTPUT_FOLDER INPUT.png...
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/tool_error.h"

int main(int argc, char** argv) {
  int level = 1, at = 1;
  std::string as;
  for (; at + 1 < argc && argv[at][0] == '-'; at += 2) {
    if (std::strcmp(argv[at], "--level") == 0) level = std::atoi(argv[at + 1]);
    if (std::strcmp(argv[at], "--as") == 0) as = argv[at + 1];
  }
  if (argc - at < 2) {
    std::fprintf(stderr, "usage: cinebar_png_floor [--level L] [--as FOLDER] OUTPUT_FOLDER INPUT.png...\n");
    return 2;
  }
  const std::filesystem::path folder = argv[at++];
  using Clock = std::chrono::steady_clock;
  Clock::duration spent{};
  cinebar_tool::Frame frame, rendered;
  try {
    for (; at < argc; ++at) {
      auto start = Clock::now();
      cinebar_tool::ReadFrame(argv[at], frame);
      spent += Clock::now() - start;
      const std::filesystem::path name = std::filesystem::path(argv[at]).filename();
      if (!as.empty()) cinebar_tool::ReadFrame((std::filesystem::path(as) / name).string(), rendered);
      const cinebar_tool::Frame& out = as.empty() ? frame : rendered;
      const std::string path = (folder / name).string();
      start = Clock::now();
      std::FILE* file = std::fopen(path.c_str(), "wb");
      const std::string why =
          file ? cinebar_tool::WriteFrame(file, out, cinebar_tool::WriteSettings{level}) : "cannot open";
      if (file == nullptr || std::fclose(file) != 0 || !why.empty()) {
        std::fprintf(stderr, "cinebar_png_floor: %s: %s\n", path.c_str(), why.c_str());
        return 5;
      }
      spent += Clock::now() - start;
    }
  } catch (const cinebar_tool::ToolError& e) {
    std::fprintf(stderr, "cinebar_png_floor: %s\n", e.what());
    return e.code();
  }
  std::printf("%.3f\n", std::chrono::duration<double>(spent).count());
  return 0;
}
