// HostSuiteCache: borrows host suites for the span of one handler. Each suite
// is fetched from the broker on first use, the same pointer is handed out for
// the rest of the call, and everything fetched is given back when the cache
// is destroyed, also while an exception passes.
#pragma once

#include <cstdint>

#include "framework/suite_table.h"
#include "hostapi/ae_effect.h"

class HostSuiteCache {
 public:
  static constexpr int kSlotCount = kSuiteSlotCount;
  static constexpr int kReleasedPairCount = kReleasedSuiteCount;
  using SuitePair = ::SuitePair;
  static const SuitePair* const kPairs;  // kSlotCount entries, in release order

  explicit HostSuiteCache(SPBasicSuite* broker);
  ~HostSuiteCache();
  HostSuiteCache(const HostSuiteCache&) = delete;
  HostSuiteCache& operator=(const HostSuiteCache&) = delete;

  // Null when the host cannot supply the suite: for handlers that can do
  // without it.
  template <typename Table>
  Table* Get() {
    return static_cast<Table*>(Fetch<Slot<Table>()>());
  }

  // For handlers that cannot go on without the suite: a missing one is thrown
  // as DAE::DAESuiteXCP carrying the cache's own spelling of its name.
  template <typename Table>
  Table& Require() {
    void* suite = Fetch<Slot<Table>()>();
    if (suite == nullptr) ThrowMissing(Slot<Table>());
    return *static_cast<Table*>(suite);
  }

  // Reached whenever a fetch fails or a null broker is given. It deliberately
  // does nothing: callers decide what a missing suite means for them.
  static void MissingSuite(HostSuiteCache& cache);

 private:
  static constexpr int kFillWords = 2;
  static_assert((kFillWords - 1) * 64 < kSlotCount && kSlotCount <= kFillWords * 64,
                "one fill bit per slot, no word without one");

  template <typename Table>
  static constexpr int Slot() {
    constexpr int slot = kSuiteSlot<Table>;
    static_assert(slot < kReleasedSuiteCount, "the suite's pair is one the cache releases");
    return slot;
  }
  // The suite of a slot, asked for once; in the header so that each use
  // compiles to its own slot's bit and pair.
  template <int kSlot>
  void* Fetch() {
    constexpr uint64_t kBit = uint64_t{1} << (kSlot % 64);
    if ((filled_[kSlot / 64] & kBit) != 0) return slots_[kSlot];
    const void* suite = nullptr;
    // Without a broker there is nothing to ask; report it like a refused fetch.
    const SPErr error = broker_ != nullptr ? broker_->AcquireSuite(kSuitePairs[kSlot].name,
                                                                   kSuitePairs[kSlot].version, &suite)
                                           : 1;
    if (error != 0 || suite == nullptr) MissingSuite(*this);
    // Whatever the broker handed out is kept, even with an error; a null leaves
    // the slot empty, so a later use asks again.
    if (suite == nullptr) return nullptr;
    slots_[kSlot] = const_cast<void*>(suite);
    filled_[kSlot / 64] |= kBit;
    any_filled_ = true;
    return slots_[kSlot];
  }
  [[noreturn]] static void ThrowMissing(int slot);

  SPBasicSuite* broker_;
  // A slot is meaningful only while its bit in `filled_` is set, so a new
  // cache clears two words instead of 117 pointers, and release walks the
  // filled slots only (in slot order, which is the release order).
  void* slots_[kSlotCount];
  uint64_t filled_[kFillWords];
  bool any_filled_;  // most caches fetch nothing: their release ends at once
};
