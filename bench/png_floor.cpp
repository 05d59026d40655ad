// The codec's floor under `cinebar render`: each PNG read and written again
// by the tool's own reader and writer at the same level, one thread, nothing
// else. With --channels N the frame is widened to N channels (grey to RGB,
// alpha added, as bars do) before it is written, outside the time measured.
// Prints the seconds spent reading and writing.
//   cinebar_png_floor [--level L] [--channels N] OUTPUT_FOLDER INPUT.png...
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/tool_error.h"

namespace {

// `in` as `channels` channels: grey spread to RGB, an opaque alpha added.
void Widen(const cinebar_tool::Frame& in, int channels, cinebar_tool::Frame& out) {
  out.Resize(in.width, in.height, channels, in.deep);
  const std::size_t bytes = in.deep ? 2 : 1, pixels = static_cast<std::size_t>(in.width) * in.height;
  for (std::size_t p = 0; p < pixels; ++p) {
    const std::uint8_t* s = in.samples.data() + p * in.pixel_bytes();
    std::uint8_t* o = out.samples.data() + p * out.pixel_bytes();
    for (int c = 0; c < channels; ++c) {
      const bool is_alpha = channels % 2 == 0 && c == channels - 1;
      const int from = is_alpha ? (in.alpha() ? in.channels - 1 : -1) : in.color() ? c : 0;
      for (std::size_t b = 0; b < bytes; ++b) o[c * bytes + b] = from < 0 ? 0xff : s[from * bytes + b];
    }
  }
  out.chunks = in.chunks;
}

}  // namespace

int main(int argc, char** argv) {
  int level = 1, channels = 0, at = 1;
  for (; at + 1 < argc && argv[at][0] == '-'; at += 2) {
    if (std::strcmp(argv[at], "--level") == 0) level = std::atoi(argv[at + 1]);
    if (std::strcmp(argv[at], "--channels") == 0) channels = std::atoi(argv[at + 1]);
  }
  if (argc - at < 2) {
    std::fprintf(stderr, "usage: cinebar_png_floor [--level L] [--channels N] OUTPUT_FOLDER INPUT.png...\n");
    return 2;
  }
  const std::filesystem::path folder = argv[at++];
  using Clock = std::chrono::steady_clock;
  Clock::duration spent{};
  cinebar_tool::Frame frame, wide;
  try {
    for (; at < argc; ++at) {
      auto start = Clock::now();
      cinebar_tool::ReadFrame(argv[at], frame);
      spent += Clock::now() - start;
      if (channels != 0) Widen(frame, channels, wide);
      const cinebar_tool::Frame& out = channels != 0 ? wide : frame;
      const std::string path = (folder / std::filesystem::path(argv[at]).filename()).string();
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
