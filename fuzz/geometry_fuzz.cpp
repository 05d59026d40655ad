// ComputePictureRect over all of its inputs: any size, any bits of the float
// ratio, any three rational scales must compute without undefined behaviour.
// For the inputs a host can hand over (sizes 0 to 30000, a ratio in the
// slider's valid range 0 to 12, scales with terms 1 to 64) the rectangle must
// also lie inside the world, be centred with an odd pixel going to the right
// or bottom bar, and have bars on one axis only.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "effect/geometry.h"

namespace {

void Require(bool holds, const char* property, A_long width, A_long height, float ratio,
             const PF_RationalScale (&scales)[3], const PF_Rect& rect) {
  if (holds) return;
  std::fprintf(stderr,
               "ComputePictureRect: %s does not hold for %dx%d ratio %.9g ds %d/%u %d/%u par %d/%u: "
               "rect %d,%d,%d,%d\n",
               property, width, height, static_cast<double>(ratio), scales[0].num, scales[0].den,
               scales[1].num, scales[1].den, scales[2].num, scales[2].den, rect.left, rect.top, rect.right,
               rect.bottom);
  std::abort();
}

float FloatFromBits(uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const bool plausible = in.ConsumeBool();
  A_long width, height;
  float ratio;
  PF_RationalScale scales[3];
  if (plausible) {
    width = in.ConsumeIntegralInRange<A_long>(0, 30000);
    height = in.ConsumeIntegralInRange<A_long>(0, 30000);
    ratio = in.ConsumeBool() ? in.ConsumeFloatingPointInRange<float>(0.0f, 12.0f)
                             : static_cast<float>(in.ConsumeIntegralInRange<int>(0, 12000)) / 1000.0f;
    for (PF_RationalScale& s : scales) {
      s.num = in.ConsumeIntegralInRange<A_long>(1, 64);
      s.den = in.ConsumeIntegralInRange<A_u_long>(1, 64);
    }
  } else {
    width = in.ConsumeIntegral<A_long>();
    height = in.ConsumeIntegral<A_long>();
    ratio = FloatFromBits(in.ConsumeIntegral<uint32_t>());
    for (PF_RationalScale& s : scales) {
      s.num = in.ConsumeIntegral<A_long>();
      s.den = in.ConsumeIntegral<A_u_long>();
    }
  }

  const PF_Rect r = ComputePictureRect(width, height, ratio, scales[0], scales[1], scales[2]);
  if (!plausible) return 0;  // undefined behaviour is the sanitizers' to find

  Require(0 <= r.left && r.left <= r.right && r.right <= width, "inside horizontally", width, height, ratio,
          scales, r);
  Require(0 <= r.top && r.top <= r.bottom && r.bottom <= height, "inside vertically", width, height, ratio,
          scales, r);
  const bool full_width = r.left == 0 && r.right == width;
  const bool full_height = r.top == 0 && r.bottom == height;
  Require(full_width || full_height, "bars on one axis only", width, height, ratio, scales, r);
  const A_long right_bar = width - r.right, bottom_bar = height - r.bottom;
  Require(right_bar - r.left == 0 || right_bar - r.left == 1, "centred horizontally", width, height, ratio,
          scales, r);
  Require(bottom_bar - r.top == 0 || bottom_bar - r.top == 1, "centred vertically", width, height, ratio,
          scales, r);
  return 0;
}
