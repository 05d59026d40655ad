// HostSuiteCache against the simulated host's broker: lazy, once per pair,
// release in the host's order, also while an exception passes, and the pairs
// it knows. Refused suites, through the real module, are the fault matrix's.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "tests/fixtures/effect_host.h"

namespace {

using cinebar_simhost::Host;

// Every pair the cache knows, in release order, as the host registers them.
const char kReleaseOrder[] =
    "AEGP Marker Suite 1;AEGP Marker Suite 2;AEGP Layer Suite 8;AEGP Layer Suite 10;AEGP Stream Suite 9;"
    "AEGP Stream Suite 8;AEGP Stream Suite 7;AEGP Stream Suite 4;AEGP Dynamic Stream Suite 2;"
    "AEGP Dynamic Stream Suite 3;AEGP Dynamic Stream Suite 5;AEGP Keyframe Suite 4;AEGP Keyframe Suite 3;"
    "AEGP Keyframe Suite 1;AEGP Comp Suite 9;AEGP Comp Suite 11;AEGP Comp Suite 14;AEGP Comp Suite 15;"
    "AEGP Comp Suite 18;AEGP Comp Suite 19;AEGP Canvas Suite 10;AEGP Canvas Suite 11;AEGP Camera Suite 2;"
    "AEGP Register Suite 6;AEGP Item Suite 13;AEGP Item Suite 11;AEGP Item Suite 10;AEGP Item Suite 7;"
    "AEGP Item Suite 3;AEGP PF Interface Suite 1;PF Path Query Suite 1;AEGP Memory Suite 1;"
    "PF Path Data Suite 1;PF Param Utils Suite 3;PF AE App Suite 6;PF AE Adv App Suite 2;"
    "AEGP Light Suite 1;AEGP Light Suite 2;AEGP Effect Suite 1;AEGP Effect Suite 2;AEGP Effect Suite 3;"
    "AEGP Layer Mask Suite 5;AEGP Mask Outline Suite 2;AEGP Mask Outline Suite 3;"
    "AEGP Mask Outline Suite 5;AEGP Command Suite 1;AEGP Utility Suite 7;AEGP Render Suite 1;"
    "AEGP Render Suite 2;AEGP Render Suite 3;PF ANSI Suite 1;PF Handle Suite 2;PF Fill Matte Suite 2;"
    "PF World Transform Suite 1;AEGP QueryXform Suite 4;AEGP Composite Suite 4;PF World Suite 1;"
    "AEGP IO In Suite 5;AEGP IO Out Suite 7;AEGP Render Queue Suite 1;AEGP Render Queue Item Suite 3;"
    "AEGP Output Module Suite 4;AEGP File Import Manager Suite 3;PF Sampling8 Suite 1;"
    "PF Sampling16 Suite 1;PF Iterate8 Suite 1;PF iterate16 Suite 1;PF iterateFloat Suite 1;"
    "AEGP Collection Suite 2;AEGP Text Document Suite 1;AEGP Sound Data Suite 1;AEGP Text Layer Suite 1;"
    "AEGP Artisan Util Suite 1;AEGP World Suite 2;AEGP World Suite 3;AEGP Render Options Suite 1;"
    "AEGP Tracker Suite 1;AEGP Tracker Utility Suite 1;AE Plugin Helper Suite2 2;AEGP Layer Suite 11;"
    "AEGP Layer Suite 12;AEGP Layer Suite 13;PF AE Adv Item Suite 1;AEGP Layer Suite 5;"
    "AEGP Layer Mask Suite 2;AEGP Layer Mask Suite 6;AEGP Layer Mask Suite 7;AEGP Comp Suite 4;"
    "AEGP Collection Suite 1;PF AE Adv App Suite 1;AEGP Utility Suite 3;AEGP Render Options Suite 2;"
    "AEGP Proj Suite 8;AEGP Proj Suite 9;AEGP Footage Suite 11;AEGP Render Queue Item Suite 4;"
    "AEGP Utility Suite 10;AEGP Persistent Data Suite 3;PF Color Settings Suite 3;"
    "PF Color Settings Suite 1;PF ColorParamSuite 1;PF SamplingFloat Suite 1;AEGP Utility Suite 11;"
    "PF Effect Custom UI Suite 1;PF Effect Custom UI Overlay Theme Suite 1;DRAWBOT Draw Suite 1;"
    "DRAWBOT Supplier Suite 1;DRAWBOT Surface Suite 1;DRAWBOT Path Suite 1;SP Suites Suite 2;"
    "PF World Suite 2;PF Pixel Data Suite 1;PF Effect UI Suite 1;PF Color16 Suite 1;";

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

TEST(SuiteCache, AcquiresOnFirstUseOnceAndReleasesInTheHostsOrder) {
  Host host(RunBody);
  const auto calls = [&](const char* function) {
    std::vector<std::string> pairs;
    for (const auto* call : host.log().Named(function))
      pairs.push_back(call->suite + " " + std::to_string(call->version));
    return pairs;
  };
  g_body = [](HostSuiteCache&) {};
  host.Command(PF_Cmd_RENDER);
  EXPECT_TRUE(host.log().Named("AcquireSuite").empty() && host.log().Named("ReleaseSuite").empty());
  g_body = [](HostSuiteCache& cache) {
    for (int round = 0; round < 2; ++round) {  // in another order than release visits them
      EXPECT_NE(nullptr, cache.Get<PF_WorldTransformSuite1>());
      EXPECT_EQ(cache.Get<PF_FillMatteSuite2>(), &cache.Require<PF_FillMatteSuite2>());
      EXPECT_EQ(cache.Get<PF_ParamUtilsSuite3>(), &cache.Require<PF_ParamUtilsSuite3>());
      EXPECT_EQ(&cache.Require<PF_HandleSuite1>(), cache.Get<PF_HandleSuite1>());
    }
    DAE::ThrowIfHostError(4);
  };
  EXPECT_EQ(4, host.Command(PF_Cmd_RENDER));
  const std::vector<std::string> acquired = {"PF World Transform Suite 1", "PF Fill Matte Suite 2",
                                             "PF Param Utils Suite 3", "PF Handle Suite 2"};
  const std::vector<std::string> released = {"PF Param Utils Suite 3", "PF Handle Suite 2",
                                             "PF Fill Matte Suite 2", "PF World Transform Suite 1"};
  EXPECT_EQ(acquired, calls("AcquireSuite"));
  EXPECT_EQ(released, calls("ReleaseSuite"));
  EXPECT_EQ(nullptr, HostSuiteCache(nullptr).Get<PF_FillMatteSuite2>()) << "without a broker, no suite";
}

TEST(SuiteCacheTable, KnowsThePairsInReleaseOrderAndThreeMoreNeverReleased) {
  std::istringstream order(kReleaseOrder);
  std::vector<std::pair<std::string, int>> pairs;
  for (std::string entry; std::getline(order, entry, ';');) {
    const std::size_t blank = entry.rfind(' ');
    pairs.emplace_back(entry.substr(0, blank), std::stoi(entry.substr(blank + 1)));
  }
  ASSERT_EQ(static_cast<std::size_t>(HostSuiteCache::kReleasedPairCount), pairs.size());
  for (int slot = 0; slot < HostSuiteCache::kSlotCount; ++slot) {
    const std::pair<std::string, int> pair{HostSuiteCache::kPairs[slot].name,
                                           HostSuiteCache::kPairs[slot].version};
    if (slot < HostSuiteCache::kReleasedPairCount) {
      EXPECT_EQ(pairs[static_cast<std::size_t>(slot)], pair) << "slot " << slot;
    } else {
      EXPECT_EQ(std::find(pairs.begin(), pairs.end(), pair), pairs.end()) << pair.first << " listed twice";
      pairs.push_back(pair);
    }
  }
}

}  // namespace
