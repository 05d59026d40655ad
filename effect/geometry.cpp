#include "effect/geometry.h"

#include <cstdint>

#include "framework/conversions.h"

namespace {

// Every step below is one single-precision operation whose result is stored
// as a float before the next (the build forbids contraction into FMA).

uint32_t WrappingProduct(uint32_t a, uint32_t b) { return a * b; }

int32_t HalfDifference(int32_t full, int32_t part) {
  const int32_t difference = DAE::AsInt32(static_cast<uint32_t>(full) - static_cast<uint32_t>(part));
  return difference / 2;  // toward zero: an odd pixel goes to the right or bottom bar
}

// The rectangle holds 16-bit coordinates in its 32-bit fields.
int32_t Narrow(int32_t value) { return DAE::LowInt16(value); }

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
    const int32_t extent = Narrow(DAE::TruncateToInt32(picture_width));
    rect.left = Narrow(HalfDifference(width, extent));
    rect.top = 0;
    rect.right = rect.left + extent;
    rect.bottom = Narrow(height);
  } else {  // taller than, equal to or unordered with the target: letterbox, full width
    const float by_target = static_cast<float>(width) / target;
    const float picture_height = by_target / downsampling;
    const int32_t extent = Narrow(DAE::TruncateToInt32(picture_height));
    rect.left = 0;
    rect.top = Narrow(HalfDifference(height, extent));
    rect.right = Narrow(width);
    rect.bottom = rect.top + extent;
  }
  return rect;
}
