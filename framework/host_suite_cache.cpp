#include "framework/host_suite_cache.h"

#include "framework/dae_exceptions.h"

namespace {

int LowestBit(uint64_t bits) { return __builtin_ctzll(bits); }  // bits is never 0 here

}  // namespace

const SuitePair* const HostSuiteCache::kPairs = kSuitePairs;

// The slots are left as they are: the fill bits say which ones hold a suite.
HostSuiteCache::HostSuiteCache(SPBasicSuite* broker) : broker_(broker), filled_{}, any_filled_{} {
  if (broker_ == nullptr) MissingSuite(*this);
}

HostSuiteCache::~HostSuiteCache() {
  if (!any_filled_) return;
  for (int word = 0; word < kFillWords; ++word) {
    for (uint64_t bits = filled_[word]; bits != 0; bits &= bits - 1) {
      const int slot = word * 64 + LowestBit(bits);
      if (slot < kReleasedPairCount) broker_->ReleaseSuite(kPairs[slot].name, kPairs[slot].version);
    }
  }
}

void HostSuiteCache::MissingSuite(HostSuiteCache&) {}

void HostSuiteCache::ThrowMissing(int slot) { throw DAE::DAESuiteXCP(kPairs[slot].name); }
