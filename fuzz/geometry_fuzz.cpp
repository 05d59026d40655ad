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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const bool plausible = in.ConsumeBool();
  const A_long width = plausible ? in.ConsumeIntegralInRange<A_long>(0, 30000) : in.ConsumeIntegral<A_long>();
  const A_long height =
      plausible ? in.ConsumeIntegralInRange<A_long>(0, 30000) : in.ConsumeIntegral<A_long>();
  float ratio = in.ConsumeFloatingPointInRange<float>(0.0f, 12.0f);
  if (!plausible) {
    const uint32_t bits = in.ConsumeIntegral<uint32_t>();
    std::memcpy(&ratio, &bits, sizeof ratio);
  }
  PF_RationalScale s[3];
  for (PF_RationalScale& scale : s) {
    scale.num = plausible ? in.ConsumeIntegralInRange<A_long>(1, 64) : in.ConsumeIntegral<A_long>();
    scale.den = plausible ? in.ConsumeIntegralInRange<A_u_long>(1, 64) : in.ConsumeIntegral<A_u_long>();
  }
  const PF_Rect r = ComputePictureRect(width, height, ratio, s[0], s[1], s[2]);
  if (!plausible) return 0;  // undefined behaviour is the sanitizers' to find

  const A_long right_bar = width - r.right, bottom_bar = height - r.bottom;
  const struct {
    bool holds;
    const char* property;
  } kProperties[] = {
      {0 <= r.left && r.left <= r.right && r.right <= width, "inside horizontally"},
      {0 <= r.top && r.top <= r.bottom && r.bottom <= height, "inside vertically"},
      {(r.left == 0 && r.right == width) || (r.top == 0 && r.bottom == height), "bars on one axis only"},
      {right_bar - r.left == 0 || right_bar - r.left == 1, "centred horizontally"},
      {bottom_bar - r.top == 0 || bottom_bar - r.top == 1, "centred vertically"},
  };
  for (const auto& p : kProperties) {
    if (p.holds) continue;
    std::fprintf(
        stderr,
        "ComputePictureRect: %s does not hold for %dx%d ratio %.9g ds %d/%u %d/%u par %d/%u: %d,%d,%d,%d\n",
        p.property, width, height, static_cast<double>(ratio), s[0].num, s[0].den, s[1].num, s[1].den,
        s[2].num, s[2].den, r.left, r.top, r.right, r.bottom);
    std::abort();
  }
  return 0;
}
