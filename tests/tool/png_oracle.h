// libpng as the independent judge of the PNG unit and the tool: files written
// and read by it (with its warnings and errors), chunks spliced into files.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace cinebar_png_test {

// A picture as libpng writes it: one value a sample (palette indices for
// colour type 3), rows top to bottom; PLTE and tRNS (raw chunk data) written when not empty.
struct Picture {
  int width = 1, height = 1, depth = 8, color_type = 2;
  bool interlaced = false;
  std::string palette, trns;
  std::vector<std::uint16_t> samples;
  int channels() const { return color_type == 3 ? 1 : (color_type & 2 ? 3 : 1) + (color_type & 4 ? 1 : 0); }
};
// Any valid form of this width and height.
Picture RandomPicture(std::mt19937& random, std::pair<int, int> size);
std::string WriteWithLibpng(const Picture& picture);
// Colour type 0, 2, 3 (four entries), 4 or 6, samples depending on position and channel
// over the depth's whole range, so that moved pixels and lost bits show.
Picture Pattern(int width, int height, int color_type, int depth);

// What libpng makes of a file, expanded (palettes to RGB, low depths to 8
// bits, tRNS to alpha), with its palette index check on.
struct Reading {
  std::string error;                  // empty when it read the file to the end
  std::vector<std::string> warnings;  // benign errors it let pass
  int width = 0, height = 0, channels = 0, depth = 0;
  std::vector<std::uint8_t> samples;
  std::vector<unsigned> background;  // bKGD as grey or RGB (a palette entry's colour), empty without
  bool objects() const { return !error.empty() || !warnings.empty(); }
  std::string objection() const { return error + (warnings.empty() ? "" : warnings[0]); }
  std::array<int, 4> Rgba(int x, int y) const;  // grey spread, opaque without alpha
};
Reading ReadWithLibpng(const std::string& file);

std::string Contents(const std::string& path);  // a file's bytes, or what an open file holds
std::string Contents(std::FILE* file);
std::string Be(std::uint32_t value, int bytes = 4);  // big-endian, as PNG stores numbers
std::string ChunkBytes(const std::string& type, const std::string& data);  // length, type, data, CRC
// `chunk` inserted before the first chunk of type `before`; the data of every chunk of a type.
std::string Insert(const std::string& file, const std::string& chunk, const std::string& before);
std::vector<std::string> ChunksOf(const std::string& file, const std::string& type);
std::string Zlib(const std::string& bytes);

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
inline File ReadFrom(const std::string& bytes) {  // a stream over the bytes (kept alive by the caller)
  return File(fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"), &std::fclose);
}

}  // namespace cinebar_png_test
