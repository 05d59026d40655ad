// The tool's PNG reader over any bytes, as a stream of frames: it must read or
// refuse without undefined behaviour, and every frame it reads must come back
// the same through the writer and the reader again.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "tools/cinebar/png/png_reader.h"
#include "tools/cinebar/png/png_writer.h"
#include "tools/cinebar/tool_error.h"

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

void RoundTrip(const cinebar_tool::Frame& frame) {
  char* bytes = nullptr;
  std::size_t size = 0;
  std::FILE* memory = open_memstream(&bytes, &size);
  if (!cinebar_tool::WriteFrame(memory, frame, cinebar_tool::WriteSettings{1}).empty()) std::abort();
  std::fclose(memory);
  const std::unique_ptr<char, void (*)(void*)> owned(bytes, &std::free);
  const File in(fmemopen(bytes, size, "rb"), &std::fclose);
  cinebar_tool::Frame again;
  if (!cinebar_tool::ReadPng(in.get(), "again", again) || again.samples != frame.samples ||
      again.width != frame.width || again.channels != frame.channels || again.deep != frame.deep) {
    std::fprintf(stderr, "png_fuzz: a frame read did not come back the same through the writer\n");
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  const File in(fmemopen(bytes.data(), bytes.size(), "rb"), &std::fclose);
  cinebar_tool::Frame frame;
  try {
    for (int i = 0; i < 4 && cinebar_tool::ReadPng(in.get(), "input", frame); ++i) RoundTrip(frame);
  } catch (const cinebar_tool::ToolError& e) {
    if (e.code() != cinebar_tool::kExitInput) std::abort();
  }
  return 0;
}
