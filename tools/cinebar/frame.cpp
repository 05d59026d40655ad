// Frame: its memory, and its file-level entry points on the PNG unit (png/).
#include <cerrno>
#include <cstring>
#include <memory>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/png/png_reader.h"
#include "tools/cinebar/png/png_writer.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File Open(const std::string& path) {
  File file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) throw ToolError(kExitInput, "cannot open " + path + ": " + std::strerror(errno));
  return file;
}

void ReadOne(const std::string& path, Frame& frame, ReadPart part) {
  const File file = Open(path);
  if (!ReadPng(file.get(), path, frame, part))
    throw ToolError(kExitInput, "cannot read " + path + ": it is empty");
}

}  // namespace

void Frame::Resize(int w, int h, int c, bool d) {
  width = w;
  height = h;
  channels = c;
  deep = d;
  samples.resize(stride() * static_cast<std::size_t>(h));
}

void CarryChunks(const Frame& in, Frame& out) {
  out.dropped = in.dropped;
  out.chunks = CarryChunks(in.chunks, in.form(), "", out.form(), out.dropped);
}

Frame ReadHeader(const std::string& path) {
  Frame frame;
  ReadOne(path, frame, ReadPart::kHeader);
  return frame;
}

void ReadFrame(const std::string& path, Frame& frame) { ReadOne(path, frame, ReadPart::kWhole); }

std::string WriteFrame(std::FILE* file, const Frame& frame, const WriteSettings& settings) {
  const PngImage image{frame.width, frame.height, frame.channels, frame.deep, &frame.chunks};
  return WritePng(
      file, image, [&](int y, std::uint8_t* row) { std::memcpy(row, frame.row(y), frame.stride()); },
      settings);
}

}  // namespace cinebar_tool
