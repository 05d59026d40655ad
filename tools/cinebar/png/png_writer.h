// Writes a PNG whose rows a callback supplies, so that the picture written
// need not exist whole anywhere but in the deflate input: each row is filtered
// (Up) into it as it comes, and the filtered rows are deflated in one call.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "tools/cinebar/frame.h"

namespace cinebar_tool {

struct PngImage {
  int width = 0, height = 0;
  int channels = 3;  // 1 grey, 2 grey+alpha, 3 RGB, 4 RGBA
  bool deep = false;
  const std::vector<Chunk>* chunks = nullptr;  // written before the image data
};

// Fills `row` with row y's samples as a Frame holds them.
using RowSource = std::function<void(int y, std::uint8_t* row)>;

// Writes `image` into `out` (a file or stdout); "" or the reason of a failure.
// Rows are asked for from the last up to the first. The deflate input is
// `buffer` when given, else memory the thread keeps; row y lands in it at
// y * (stride + 1), so a picture held at the front of `buffer` in a stride
// no larger than the output's keeps its rows 0..y intact until row y is asked
// for. Row y's place then lies over that row at the same or a later address:
// such a source reads each byte of it before writing over it.
std::string WritePng(std::FILE* out, const PngImage& image, const RowSource& rows,
                     const WriteSettings& settings, std::vector<std::uint8_t>* buffer = nullptr);

}  // namespace cinebar_tool
