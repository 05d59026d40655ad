// The frames of `cinebar render` as PNG files: read straight into the host's
// worlds and written from them, without an image in between. The file's form
// (grey or colour, alpha, 8 or 16 bits) and its colour and text chunks are
// kept so that the output can look like the input.
#pragma once

#include <png.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/world.h"

namespace cinebar_tool {

// The largest world the simulated host makes: the tool refuses bigger
// frames from their header, before any pixel memory is taken.
constexpr std::uint64_t kMaxWorldBytes = std::uint64_t{1} << 30;

struct PngChunks {  // what an output carries over from its input
  std::optional<png_fixed_point> gamma;
  std::optional<int> srgb_intent;
  std::string icc_name;
  std::vector<png_byte> icc_profile;  // empty: none
  std::optional<png_uint_32> phys_x, phys_y;
  int phys_unit = 0;
  struct Text {
    int compression;
    std::string key, text, lang, lang_key;
  };
  std::vector<Text> texts;
};

struct FrameForm {
  int width = 0, height = 0;
  bool deep = false;   // 16 bits per sample
  bool color = false;  // RGB, not grey (palettes are colour)
  bool alpha = false;  // an alpha channel or a tRNS chunk
  PngChunks chunks;
};

// Reads the PNG into `world`, replaced by a new one when its size or depth
// differ. Throws ToolError(kExitInput), std::bad_alloc.
FrameForm ReadFrame(const std::string& path, std::unique_ptr<cinebar_simhost::World>& world);

struct WriteSettings {
  int level = 1;  // zlib level 0..9; levels up to 3 write rows unfiltered
};

// Writes the world as a PNG to an open file: grey unless the input or the
// result has colour, alpha only when the input had it or the result has
// transparent pixels, the input's depth and chunks. Returns "" or the reason of a failure.
std::string WriteFrame(std::FILE* file, cinebar_simhost::World& world, const FrameForm& input,
                       const WriteSettings& settings);

}  // namespace cinebar_tool
