// HostSuiteCache: borrows host suites for the span of one handler. Each suite
// is fetched from the broker on first use, the same pointer is handed out for
// the rest of the call, and everything fetched is given back when the cache
// is destroyed, also while an exception passes.
#pragma once

#include <cstdint>

#include "hostapi/ae_effect.h"

class HostSuiteCache {
 public:
  static constexpr int kSlotCount = 117;
  static constexpr int kReleasedPairCount = 114;

  struct SuitePair {
    const char* name;
    int32_t version;
  };
  // The pairs the cache knows, in the order release visits them. Slot i holds
  // pair i; the last three slots are never filled and never released.
  static const SuitePair* const kPairs;  // kSlotCount entries

  explicit HostSuiteCache(SPBasicSuite* broker);
  ~HostSuiteCache();
  HostSuiteCache(const HostSuiteCache&) = delete;
  HostSuiteCache& operator=(const HostSuiteCache&) = delete;

  // Null when the host cannot supply the suite: for handlers that can do
  // without it.
  PF_FillMatteSuite2* FillMatteSuite2();
  PF_WorldTransformSuite1* WorldTransformSuite1();
  PF_HandleSuite1* HandleSuite2();  // "PF Handle Suite" 2 has the version-1 table layout
  PF_ParamUtilsSuite3* ParamUtilsSuite3();

  // For handlers that cannot go on without the suite: a missing one is thrown
  // as DAE::DAESuiteXCP carrying the cache's own spelling of its name.
  PF_FillMatteSuite2& RequireFillMatteSuite2();
  PF_WorldTransformSuite1& RequireWorldTransformSuite1();
  PF_HandleSuite1& RequireHandleSuite2();
  PF_ParamUtilsSuite3& RequireParamUtilsSuite3();

  // Reached whenever a fetch fails or a null broker is given. It deliberately
  // does nothing: callers decide what a missing suite means for them.
  static void MissingSuite(HostSuiteCache& cache);

 private:
  static constexpr int kFillWords = 2;

  void* Fetch(int slot);
  template <typename Suite>
  Suite& Require(int slot);

  SPBasicSuite* broker_;
  // A slot is meaningful only while its bit in `filled_` is set, so a new
  // cache clears two words instead of 117 pointers, and release walks the
  // filled slots only (in slot order, which is the release order).
  void* slots_[kSlotCount];
  uint64_t filled_[kFillWords];
};
