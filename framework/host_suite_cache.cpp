#include "framework/host_suite_cache.h"

#include "framework/dae_exceptions.h"

namespace {

int LowestBit(uint64_t bits) { return __builtin_ctzll(bits); }  // bits is never 0 here

}  // namespace

static_assert(HostSuiteCache::kSlotCount <= 64 * 2, "one fill bit per slot");

const SuitePair* const HostSuiteCache::kPairs = kSuitePairs;

// The slots are left as they are: the fill bits say which ones hold a suite.
HostSuiteCache::HostSuiteCache(SPBasicSuite* broker) : broker_(broker), filled_{} {
  if (broker_ == nullptr) MissingSuite(*this);
}

HostSuiteCache::~HostSuiteCache() {
  if ((filled_[0] | filled_[1]) == 0) return;  // most caches fetch nothing
  for (int word = 0; word < kFillWords; ++word) {
    for (uint64_t bits = filled_[word]; bits != 0; bits &= bits - 1) {
      const int slot = word * 64 + LowestBit(bits);
      if (slot < kReleasedPairCount) broker_->ReleaseSuite(kPairs[slot].name, kPairs[slot].version);
    }
  }
}

void HostSuiteCache::MissingSuite(HostSuiteCache&) {}

void* HostSuiteCache::Fetch(int slot) {
  const uint64_t bit = uint64_t{1} << (slot % 64);
  if ((filled_[slot / 64] & bit) != 0) return slots_[slot];
  const void* suite = nullptr;
  // Without a broker there is nothing to ask; report it like a refused fetch.
  const SPErr error =
      broker_ != nullptr ? broker_->AcquireSuite(kPairs[slot].name, kPairs[slot].version, &suite) : 1;
  if (error != 0 || suite == nullptr) MissingSuite(*this);
  // Whatever the broker handed out is kept, even with an error; a null leaves
  // the slot empty, so a later use asks again.
  if (suite == nullptr) return nullptr;
  slots_[slot] = const_cast<void*>(suite);
  filled_[slot / 64] |= bit;
  return slots_[slot];
}

void HostSuiteCache::ThrowMissing(int slot) { throw DAE::DAESuiteXCP(kPairs[slot].name); }
