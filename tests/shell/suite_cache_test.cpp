// HostSuiteCache against the simulated host's broker, as the host's call log
// records it: lazy, once per pair, given back in the order of the cache's
// slots, also while an exception passes; and each pair known once. Refused suites, through the real module,
// are the fault matrix's.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "tests/fixtures/effect_host.h"

// A table type for the first pair of the second word of the cache's slots,
// which the effect never fetches: a suite added there must go back like the others.
struct LateSuite {};
template <>
struct SuiteTraits<LateSuite> {
  static constexpr SuitePair kPair = kSuitePairs[64];
};
static_assert(kSuiteSlot<LateSuite> == 64 && 64 < kReleasedSuiteCount);

namespace {

using cinebar_simhost::Host;

using Pair = std::pair<std::string, int>;

// The cache's slot of a pair; kSlotCount when it knows none.
int SlotOf(const Pair& pair) {
  int slot = 0;
  while (slot < HostSuiteCache::kSlotCount &&
         Pair(HostSuiteCache::kPairs[slot].name, HostSuiteCache::kPairs[slot].version) != pair)
    ++slot;
  return slot;
}

std::function<void(HostSuiteCache&)> g_body;

PF_Err RunBody(PF_Cmd, PF_InData* in_data, PF_OutData*, PF_ParamDef*[], PF_LayerDef*, void*) {
  try {
    HostSuiteCache cache(in_data->pica_basicP);
    g_body(cache);
  } catch (int code) {
    return code;
  }
  return PF_Err_NONE;
}

// What the host handed out and got back, read from its call log: each pair the
// handler used fetched once, on first use, and given back once, in the order
// of the cache's slots whatever the order of use.
TEST(SuiteCache, AcquiresOnFirstUseOnceAndReleasesInTheHostsOrder) {
  Host host(RunBody);
  const auto calls = [&](HostFn function) {
    std::vector<Pair> pairs;
    for (const auto* call : host.log().Named(function)) pairs.emplace_back(call->suite, call->version);
    return pairs;
  };
  g_body = [](HostSuiteCache&) {};
  host.Command(PF_Cmd_RENDER);
  EXPECT_TRUE(calls(HostFn::kAcquireSuite).empty() && calls(HostFn::kReleaseSuite).empty());
  g_body = [](HostSuiteCache& cache) {
    for (int round = 0; round < 2; ++round) {  // in another order than release visits them
      EXPECT_NE(nullptr, cache.Get<PF_WorldTransformSuite1>());
      EXPECT_EQ(cache.Get<PF_FillMatteSuite2>(), &cache.Require<PF_FillMatteSuite2>());
      EXPECT_EQ(cache.Get<PF_ParamUtilsSuite3>(), &cache.Require<PF_ParamUtilsSuite3>());
      EXPECT_EQ(&cache.Require<PF_HandleSuite1>(), cache.Get<PF_HandleSuite1>());
    }
    DAE::ThrowIfHostError(4);
  };
  host.log().Clear();
  EXPECT_EQ(4, host.Command(PF_Cmd_RENDER));
  const std::vector<Pair> acquired = calls(HostFn::kAcquireSuite);
  ASSERT_EQ(4u, acquired.size());
  EXPECT_EQ(acquired[0], Pair(cinebar_simhost::kSuite<PF_WorldTransformSuite1>.name, 1))
      << "fetched on first use";
  std::vector<Pair> in_slot_order = acquired;
  std::sort(in_slot_order.begin(), in_slot_order.end(),
            [](const Pair& a, const Pair& b) { return SlotOf(a) < SlotOf(b); });
  EXPECT_NE(in_slot_order, acquired) << "the handler's order must differ for the test to tell";
  EXPECT_EQ(in_slot_order, calls(HostFn::kReleaseSuite));
  for (const Pair& pair : acquired) EXPECT_LT(SlotOf(pair), HostSuiteCache::kReleasedPairCount) << pair.first;
  EXPECT_EQ(nullptr, HostSuiteCache(nullptr).Get<PF_FillMatteSuite2>()) << "without a broker, no suite";
}

TEST(SuiteCacheTable, KnowsEachPairOnce) {
  for (int slot = 0; slot < HostSuiteCache::kSlotCount; ++slot) {
    const Pair pair(HostSuiteCache::kPairs[slot].name, HostSuiteCache::kPairs[slot].version);
    EXPECT_EQ(slot, SlotOf(pair)) << pair.first << " " << pair.second << " listed twice";
  }
}

// A broker of the test's own that serves every pair and records what goes and comes back.
std::vector<Pair> g_acquired, g_released;
SPErr AcquireAny(const char* name, int32_t version, const void** suite) {
  static const int any = 0;
  *suite = &any;
  g_acquired.emplace_back(name, version);
  return 0;
}
SPErr ReleaseAny(const char* name, int32_t version) {
  g_released.emplace_back(name, version);
  return 0;
}

TEST(SuiteCache, GivesBackSuitesFromEverySlotWord) {
  SPBasicSuite broker{};
  broker.AcquireSuite = AcquireAny;
  broker.ReleaseSuite = ReleaseAny;
  g_acquired.clear();
  g_released.clear();
  {
    HostSuiteCache cache(&broker);
    for (int use = 0; use < 2; ++use) {  // the second use of each finds it in its slot
      ASSERT_NE(nullptr, cache.Get<LateSuite>());
      ASSERT_NE(nullptr, cache.Get<PF_FillMatteSuite2>());
    }
  }
  const SuitePair late = SuiteTraits<LateSuite>::kPair;
  EXPECT_EQ((std::vector<Pair>{{late.name, late.version}, {"PF Fill Matte Suite", 2}}), g_acquired);
  EXPECT_EQ((std::vector<Pair>{{"PF Fill Matte Suite", 2}, {late.name, late.version}}), g_released);
}

}  // namespace
