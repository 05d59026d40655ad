// HostSuiteCache against the simulated host's broker: lazy acquisition, one
// acquire and one release per pair, refused suites, and release order.
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <utility>

#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "host/sim_host.h"

namespace {

using cinebar_simhost::AcquireKey;
using cinebar_simhost::Fault;
using cinebar_simhost::Host;

std::function<void(PF_InData*)> g_body;

// The broker answers only during a command, so each case runs inside one.
PF_Err RunBody(PF_Cmd, PF_InData* in_data, PF_OutData*, PF_ParamDef*[], PF_LayerDef*, void*) {
  try {
    g_body(in_data);
  } catch (int code) {
    return code;
  }
  return PF_Err_NONE;
}

class SuiteCache : public ::testing::Test {
 protected:
  PF_Err Run(std::function<void(PF_InData*)> body) {
    g_body = std::move(body);
    return host.Command(PF_Cmd_RENDER);
  }
  std::vector<std::string> Released() {
    std::vector<std::string> names;
    for (const auto* call : host.log().Named("ReleaseSuite")) {
      names.push_back(call->suite + " " + std::to_string(call->version));
    }
    return names;
  }
  Host host{RunBody};
};

TEST_F(SuiteCache, UnusedCacheNeverCallsTheBroker) {
  Run([](PF_InData* in_data) { HostSuiteCache cache(in_data->pica_basicP); });
  EXPECT_EQ(0, host.log().Count("AcquireSuite"));
  EXPECT_EQ(0, host.log().Count("ReleaseSuite"));
}

TEST_F(SuiteCache, EachPairIsAcquiredOnceAndReleasedOnceInTheFixedOrder) {
  Run([](PF_InData* in_data) {
    HostSuiteCache cache(in_data->pica_basicP);
    // Used in a different order than release visits them, each twice.
    for (int round = 0; round < 2; ++round) {
      EXPECT_NE(nullptr, cache.WorldTransformSuite1());
      EXPECT_NE(nullptr, cache.FillMatteSuite2());
      EXPECT_NE(nullptr, cache.ParamUtilsSuite3());
      EXPECT_NE(nullptr, cache.HandleSuite2());
    }
    EXPECT_EQ(cache.FillMatteSuite2(), cache.FillMatteSuite2());
  });
  EXPECT_EQ(4, host.log().Count("AcquireSuite"));
  const std::vector<std::string> expected = {"PF Param Utils Suite 3", "PF Handle Suite 2",
                                             "PF Fill Matte Suite 2", "PF World Transform Suite 1"};
  EXPECT_EQ(expected, Released());
  EXPECT_EQ(0, host.SuitesOutstanding());
}

TEST_F(SuiteCache, RefusedSuiteIsNullWithoutThrowAndNotReleased) {
  for (const Fault fault : {Fault::Error(7).Always(), Fault::Null().Always()}) {
    SCOPED_TRACE(fault.error);
    host.faults().Clear();
    host.log().Clear();
    host.faults().Fail(AcquireKey("PF Fill Matte Suite", 2), fault);
    Run([](PF_InData* in_data) {
      HostSuiteCache cache(in_data->pica_basicP);
      EXPECT_EQ(nullptr, cache.FillMatteSuite2());
      EXPECT_EQ(nullptr, cache.FillMatteSuite2());  // an empty slot asks again
      EXPECT_NE(nullptr, cache.HandleSuite2());
    });
    EXPECT_EQ(3, host.log().Count("AcquireSuite"));
    EXPECT_EQ(std::vector<std::string>{"PF Handle Suite 2"}, Released());
  }
}

TEST_F(SuiteCache, ReleasesWhileAnExceptionPasses) {
  EXPECT_EQ(4, Run([](PF_InData* in_data) {
              HostSuiteCache cache(in_data->pica_basicP);
              cache.ParamUtilsSuite3();
              DAE::ThrowIfHostError(4);
            }));
  EXPECT_EQ(std::vector<std::string>{"PF Param Utils Suite 3"}, Released());
}

TEST_F(SuiteCache, NullBrokerGivesNullSuites) {
  Run([](PF_InData*) {
    HostSuiteCache cache(nullptr);
    EXPECT_EQ(nullptr, cache.FillMatteSuite2());
  });
  EXPECT_EQ(0, host.log().Count("AcquireSuite"));
}

TEST(SuiteCacheTable, KnowsEveryPairOnceWithTheHostsSpelling) {
  std::set<std::pair<std::string, int>> pairs;
  for (int slot = 0; slot < HostSuiteCache::kSlotCount; ++slot) {
    EXPECT_TRUE(pairs.emplace(HostSuiteCache::kPairs[slot].name, HostSuiteCache::kPairs[slot].version).second)
        << "pair listed twice would be released twice: " << HostSuiteCache::kPairs[slot].name;
  }
  // Names the host registers with unusual spelling.
  for (const auto& odd :
       {std::make_pair("PF iterate16 Suite", 1), std::make_pair("PF iterateFloat Suite", 1),
        std::make_pair("PF ColorParamSuite", 1), std::make_pair("AE Plugin Helper Suite2", 2),
        std::make_pair("AEGP Layer Suite", 8), std::make_pair("AEGP Layer Suite", 10)}) {
    EXPECT_EQ(1u, pairs.count({odd.first, odd.second})) << odd.first << " " << odd.second;
  }
}

}  // namespace
