// An RGBA image as PNG files hold it: 8 or 16 bits per channel, samples in
// the order red, green, blue, alpha, rows top to bottom without padding.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cinebar_tool {

struct Image {
  int width = 0;
  int height = 0;
  bool deep = false;                   // 16 bits per channel
  std::vector<std::uint16_t> samples;  // width * height * 4

  Image() = default;
  Image(int w, int h, bool is_deep)
      : width(w),
        height(h),
        deep(is_deep),
        samples(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4) {}
  std::uint16_t* at(int x, int y) {
    return &samples[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                     static_cast<std::size_t>(x)) *
                    4];
  }
  const std::uint16_t* at(int x, int y) const { return const_cast<Image*>(this)->at(x, y); }
  std::uint16_t max_value() const { return deep ? 65535 : 255; }
};

// Reads a PNG of any bit depth and colour type: 8-bit files (palette, gray and
// low bit depths expanded) give an 8-bit image, 16-bit files a 16-bit one;
// a missing alpha channel becomes opaque. Throws ToolError(kExitInput).
Image ReadPng(const std::string& path);

// Writes an RGBA PNG of the image's depth. The file appears complete or not at
// all: the bytes go to a temporary file in the same folder, renamed at the
// end. Throws ToolError(kExitOutput).
void WritePng(const std::string& path, const Image& image);

}  // namespace cinebar_tool
