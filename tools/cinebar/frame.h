// One frame as a PNG file holds it, after expansion to whole bytes: 8 or 16
// bits per sample (16-bit samples big-endian, as in the file), grey, grey and
// alpha, RGB or RGBA, rows top to bottom without padding. Palettes and 1, 2
// and 4-bit grey are read as the 8-bit RGB(A) or grey they stand for; a tRNS
// chunk becomes an alpha channel. The PNG unit (png/) reads and writes it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/cinebar/png/png_chunks.h"
#include "tools/cinebar/png/png_form.h"

namespace cinebar_tool {

// Frames the simulated host holds at most: a world of 1 GiB, 32767 pixels a
// side (the picture rectangle is kept in 16 bits).
constexpr std::uint64_t kMaxWorldBytes = std::uint64_t{1} << 30;
constexpr std::uint32_t kMaxSide = 32767;

struct Frame {
  int width = 0, height = 0;
  int channels = 3;  // 1 grey, 2 grey+alpha, 3 RGB, 4 RGBA
  bool deep = false;
  std::vector<std::uint8_t> samples;
  std::vector<Chunk> chunks;         // ancillary chunks true of this frame, in its form
  std::vector<std::string> dropped;  // chunk types left behind on the way here, once each
  std::string pixel_aspect;          // "11:10 pixels per metre" from pHYs, empty without
  std::uint32_t phys_x = 0, phys_y = 0;

  bool color() const { return channels >= 3; }
  bool alpha() const { return channels % 2 == 0; }
  PngForm form() const { return FrameForm(channels, deep); }
  std::size_t pixel_bytes() const { return static_cast<std::size_t>(channels) * (deep ? 2 : 1); }
  std::size_t stride() const { return static_cast<std::size_t>(width) * pixel_bytes(); }
  std::uint8_t* row(int y) { return samples.data() + stride() * static_cast<std::size_t>(y); }
  const std::uint8_t* row(int y) const { return samples.data() + stride() * static_cast<std::size_t>(y); }
  void Resize(int w, int h, int c, bool d);
};

// `out`'s chunks: those of `in` that stay true of `out`'s form; `out.dropped`
// is `in.dropped` and the types left behind now.
void CarryChunks(const Frame& in, Frame& out);

// The header and chunks alone (no memory the size of the picture). Throws ToolError(kExitInput).
Frame ReadHeader(const std::string& path);

// Reads the whole frame into `frame` (its memory reused). Throws ToolError(kExitInput).
void ReadFrame(const std::string& path, Frame& frame);

struct WriteSettings {
  int level = 6;  // libdeflate level 0..12
};

// Writes the frame as a PNG into an open file; "" or the reason of a failure.
std::string WriteFrame(std::FILE* file, const Frame& frame, const WriteSettings& settings);

}  // namespace cinebar_tool
