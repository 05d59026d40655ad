// The image data of a PNG, inflated and unfiltered into a frame: straight into
// the frame's own memory where its form needs no expansion, through one
// buffer the size of the image data where it does (palettes, low depths,
// tRNS, interlacing).
#pragma once

#include <cstdint>
#include <string>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/png/png_form.h"
#include "tools/cinebar/png/png_stream.h"

namespace cinebar_tool {

struct PngLayout {  // what a PNG's critical chunks and tRNS say of its samples
  std::uint32_t width = 0, height = 0;
  PngForm form;
  bool interlaced = false;
  std::string palette, trns;

  std::uint64_t DataBytes() const;  // the image data inflated: every pass's rows with their filter bytes
};

// `frame` takes the layout's size and form (expanded) and its picture.
void DecodeImage(const PngLayout& png, const std::string& compressed, Frame& frame, const ChunkStream& input);

}  // namespace cinebar_tool
