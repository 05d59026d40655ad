// What a PNG's header says of its samples, and the byte-level helpers the
// reader and the writer share.
#pragma once

#include <cstddef>
#include <cstdint>

namespace cinebar_tool {

inline constexpr char kPngSignature[] = "\x89PNG\r\n\x1a\n";

// Colour types as the header holds them.
enum PngColorType : int { kGrey = 0, kRgb = 2, kPalette = 3, kGreyAlpha = 4, kRgba = 6 };

struct PngForm {
  int depth = 8;
  int color_type = kRgb;
  int palette_entries = 0;  // of a palette image

  bool color() const { return (color_type & 2) != 0; }
  bool alpha() const { return (color_type & 4) != 0; }
  int samples() const { return color_type == kPalette ? 1 : (color() ? 3 : 1) + (alpha() ? 1 : 0); }
  bool operator==(const PngForm& o) const { return depth == o.depth && color_type == o.color_type; }
  bool operator!=(const PngForm& o) const { return !(*this == o); }
};

// The form of a frame of `channels` whole-byte samples (1 grey, 2 grey+alpha, 3 RGB, 4 RGBA).
constexpr PngForm FrameForm(int channels, bool deep) {
  constexpr int kTypes[] = {kGrey, kGrey, kGreyAlpha, kRgb, kRgba};
  return PngForm{deep ? 16 : 8, kTypes[channels], 0};
}

inline std::uint32_t Be32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

inline void PutBe32(std::uint8_t* p, std::uint32_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 24);
  p[1] = static_cast<std::uint8_t>(v >> 16);
  p[2] = static_cast<std::uint8_t>(v >> 8);
  p[3] = static_cast<std::uint8_t>(v);
}

}  // namespace cinebar_tool
