// ComputePictureRect over all of its inputs: any size, any bits of the float
// ratio, any three rational scales. It must compute without undefined
// behaviour and give the rectangle of the independent model
// (tests/effect/picture_model.h) for every one of them.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "effect/geometry.h"
#include "tests/effect/picture_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  // Mostly what a host hands over (sizes to 30000, the slider's 0 to 12, scale terms to 64).
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
  const std::string got = picture_model::Text(ComputePictureRect(width, height, ratio, s[0], s[1], s[2]));
  const std::string want = picture_model::Text(picture_model::Model(width, height, ratio, s[0], s[1], s[2]));
  if (got == want) return 0;
  std::fprintf(stderr, "ComputePictureRect: %dx%d ratio %.9g ds %d/%u %d/%u par %d/%u gives %s, not %s\n",
               width, height, static_cast<double>(ratio), s[0].num, s[0].den, s[1].num, s[1].den, s[2].num,
               s[2].den, got.c_str(), want.c_str());
  std::abort();
}
