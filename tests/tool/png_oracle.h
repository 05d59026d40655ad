// libpng as the independent judge of the PNG unit: files written by it, files
// read by it (with its warnings and errors), and chunks spliced into files.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace cinebar_png_test {

// A picture as libpng writes it: one value a sample (palette indices for
// colour type 3), rows top to bottom.
struct Picture {
  int width = 1, height = 1, depth = 8, color_type = 2;
  bool interlaced = false;
  std::string palette, trns;  // PLTE and tRNS data, written when not empty
  std::vector<std::uint16_t> samples;
  int channels() const { return color_type == 3 ? 1 : (color_type & 2 ? 3 : 1) + (color_type & 4 ? 1 : 0); }
};

// A random picture of a random valid form, size 1..max_side a side.
Picture RandomPicture(std::mt19937& random, int max_side);

std::string WriteWithLibpng(const Picture& picture);

// What libpng makes of a file: its objections, and with expand on (palettes
// to RGB, low depths to 8 bits, tRNS to alpha) its samples as bytes.
struct Reading {
  std::string error;                  // empty when it read the file to the end
  std::vector<std::string> warnings;  // benign errors it let pass
  int width = 0, height = 0, channels = 0, depth = 0;
  std::vector<std::uint8_t> samples;
  bool has_background = false;
  std::uint16_t background[3] = {0, 0, 0};  // grey in [0] for grey images
  bool objects() const { return !error.empty() || !warnings.empty(); }
};
Reading ReadWithLibpng(const std::string& file);

// Chunk bytes (length, type, data, CRC) and a file with `chunk` inserted
// before the first chunk of type `before`.
std::string ChunkBytes(const std::string& type, const std::string& data);
std::string Insert(const std::string& file, const std::string& chunk, const std::string& before);

// The data of the chunks of one type in a file, in order.
std::vector<std::string> ChunksOf(const std::string& file, const std::string& type);

// A minimal ICC profile (header, no tags) of colour space "GRAY" or "RGB ",
// and the iCCP chunk data holding it.
std::string IccpData(const std::string& color_space);

}  // namespace cinebar_png_test
