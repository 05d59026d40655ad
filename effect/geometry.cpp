#include <cmath>
#include <cstdint>

#include "effect/render.h"

namespace {

// Every step below is one single-precision operation whose result is stored
// as a float before the next (the build forbids contraction into FMA).

// 32-bit two's-complement reinterpretation, written out so it is defined.
int32_t ToInt32(uint32_t bits) {
  return bits >= 0x80000000u ? static_cast<int32_t>(bits - 0x80000000u) + INT32_MIN
                             : static_cast<int32_t>(bits);
}

uint32_t WrappingProduct(uint32_t a, uint32_t b) { return a * b; }

// Truncation toward zero as the processor does it: NaN and values outside
// the 32-bit range give the "integer indefinite" value, INT32_MIN.
int32_t TruncateToInt32(float value) {
  if (!(value > -2147483904.0f && value < 2147483648.0f)) return INT32_MIN;
  return static_cast<int32_t>(value);
}

// The low 16 bits, sign-extended: the rectangle holds 16-bit coordinates.
int32_t NarrowTo16(int32_t value) {
  const int32_t low = static_cast<int32_t>(static_cast<uint32_t>(value) & 0xFFFFu);
  return low >= 0x8000 ? low - 0x10000 : low;
}

int32_t HalfDifference(int32_t full, int32_t part) {
  const int32_t difference = ToInt32(static_cast<uint32_t>(full) - static_cast<uint32_t>(part));
  return difference / 2;  // toward zero: an odd pixel goes to the right or bottom bar
}

}  // namespace

PF_Rect ComputePictureRect(A_long width, A_long height, float aspect_ratio, PF_RationalScale downsample_x,
                           PF_RationalScale downsample_y, PF_RationalScale pixel_aspect_ratio) {
  const uint32_t p1 = WrappingProduct(static_cast<uint32_t>(downsample_x.num), downsample_y.den);
  const uint32_t p2 = WrappingProduct(downsample_x.den, static_cast<uint32_t>(downsample_y.num));
  const float downsampling = static_cast<float>(p1) / static_cast<float>(p2);

  float target = aspect_ratio * static_cast<float>(pixel_aspect_ratio.den);
  target = target / static_cast<float>(pixel_aspect_ratio.num);

  float frame = static_cast<float>(width) / static_cast<float>(height);
  frame = frame / downsampling;

  PF_Rect rect;
  if (frame > target) {  // wider than the target: pillarbox, full height
    const float scaled_height = downsampling * static_cast<float>(height);
    const float picture_width = scaled_height * target;
    const int32_t extent = NarrowTo16(TruncateToInt32(picture_width));
    rect.left = NarrowTo16(HalfDifference(width, extent));
    rect.top = 0;
    rect.right = rect.left + extent;
    rect.bottom = NarrowTo16(height);
  } else {  // taller than, equal to or unordered with the target: letterbox, full width
    const float by_target = static_cast<float>(width) / target;
    const float picture_height = by_target / downsampling;
    const int32_t extent = NarrowTo16(TruncateToInt32(picture_height));
    rect.left = 0;
    rect.top = NarrowTo16(HalfDifference(height, extent));
    rect.right = NarrowTo16(width);
    rect.bottom = rect.top + extent;
  }
  return rect;
}

PF_Pixel16 Pixel8To16(PF_Pixel pixel) {
  return PF_Pixel16{static_cast<A_u_short>(pixel.alpha << 7), static_cast<A_u_short>(pixel.red << 7),
                    static_cast<A_u_short>(pixel.green << 7), static_cast<A_u_short>(pixel.blue << 7)};
}
