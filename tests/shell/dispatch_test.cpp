// The dispatcher through the effect's routing table with recording handlers:
// every command reaches its handler, or none, or is refused, as its row says,
// and the module's instance handle is fetched once; every kind of failure becomes the tabled result,
// message and display flag; the call's suites go back once on every path.
#include "plugin/dispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "effect/params.h"
#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "plugin/call_context.h"
#include "tests/fixtures/effect_host.h"

namespace {

using cinebar_simhost::Host;

PF_Cmd g_routed = -1;          // the command whose handler the last call reached
std::function<void()> g_body;  // what the routed handler does

void Reached(const CommandCall& call) {
  g_routed = call.cmd;
  if (call.cmd == PF_Cmd_PARAMS_SETUP) call.out_data->num_params = 1;  // the host holds setup to its count
  if (g_body) g_body();
}

// The effect's own table, each handler replaced by one that records its call.
const std::array<CommandRoute, kCommandCount> kRecording = [] {
  std::array<CommandRoute, kCommandCount> routes{};
  std::ranges::copy(kCinebarRoutes, routes.begin());
  for (CommandRoute& route : routes) {
    if (route.handler.present) route.handler = Reached;
  }
  return routes;
}();

PF_Err Recording(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                 PF_LayerDef* output, void* extra) {
  return DispatchCommand(kRecording, cmd, in_data, out_data, params, output, extra);
}

class Dispatch : public ::testing::Test {
 protected:
  void TearDown() override { g_body = nullptr; }
  Host host{Recording};
};

TEST_F(Dispatch, RoutesEveryCommandAndRefusesOnlyRecordsItsPathNeeds) {
  std::vector<CommandRoute> routes(kRecording.begin(), kRecording.end());
  constexpr auto kBeyond = static_cast<PF_Cmd>(kCommandCount);  // the first number past the table
  for (const PF_Cmd beyond : {kBeyond, kBeyond + 1000, PF_Cmd{-1}})
    routes.push_back({beyond, Records::kNothing, nullptr});
  static int module_token;
  host.SetModuleHandle(&module_token);
  g_module_instance = nullptr;
  for (const CommandRoute& route : routes) {
    SCOPED_TRACE(route.cmd);
    const PF_Cmd reached = route.handler.present ? route.cmd : -1;
    g_routed = -1;
    EXPECT_EQ(PF_Err_NONE, host.Command(route.cmd));
    EXPECT_EQ(reached, g_routed);
    g_routed = -1;
    PF_InData in_data = host.in_data();
    const bool needs_out_data = route.needs == Records::kInAndOutData;
    EXPECT_EQ(needs_out_data ? PF_Err_BAD_CALLBACK_PARAM : PF_Err_NONE,
              host.CallRaw(route.cmd, &in_data, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(needs_out_data ? -1 : reached, g_routed);
    EXPECT_EQ(route.needs == Records::kNothing ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM,
              host.CallRaw(route.cmd, nullptr, nullptr, nullptr, nullptr, nullptr));
  }
  EXPECT_EQ(1, host.log().Count(HostFn::kGetPlatformData)) << "the module's instance, fetched once";
  EXPECT_EQ(&module_token, g_module_instance);
}

TEST_F(Dispatch, FailuresBecomeTheTabledResultsAndTheSuitesGoBackOnce) {
  static const std::string kLong = "PF Suite " + std::string(90, 'x') + " 1";
  const struct {
    std::function<void()> thrower;
    PF_Err result;
    std::string message;  // "" when return_msg stays untouched
    bool display;
  } kClauses[] = {
      {[] {}, PF_Err_NONE, "", false},
      {[] { throw 4; }, 4, "", false},
      {[] { throw DAE::DAECancelXCP(); }, PF_Interrupt_CANCEL, "", false},
      {[] { throw DAE::DAEAllocXCP(12); }, PF_Err_OUT_OF_MEMORY, "", false},
      // Names are kept to 63 characters.
      {[] { throw DAE::DAESuiteXCP(kLong.c_str()); }, 13,
       "Cinebar is missing the suite " + kLong.substr(0, 63), false},
      {[] { throw DAE::DAEMissingResourceXCP(kLong.c_str()); }, PF_Err_NONE,
       "Cinebar is missing the resource " + kLong.substr(0, 63), false},
      {[] { throw DAE::DAEResourceXCP("PiPL"); }, PF_Err_NONE, "Cinebar has a problem with resource PiPL",
       false},
      {[] { throw DAE::DAEXCP(); }, PF_Err_INTERNAL_STRUCT_DAMAGED, "Unknown error in Cinebar", true},
      {[] { throw std::bad_alloc(); }, PF_Err_INTERNAL_STRUCT_DAMAGED, "Unknown error in Cinebar", true},
      {[] { throw 4L; }, PF_Err_INTERNAL_STRUCT_DAMAGED, "Unknown error in Cinebar", true},
  };
  for (const auto& clause : kClauses) {
    SCOPED_TRACE(clause.message);
    host.log().Clear();
    g_body = [&] {
      host.out_data().num_params = 7;  // written before the throw: stays
      g_current_suites->Get<PF_FillMatteSuite2>();
      g_current_suites->Get<PF_FillMatteSuite2>();
      clause.thrower();
    };
    EXPECT_EQ(clause.result, host.Command(PF_Cmd_RENDER));
    EXPECT_EQ(clause.message, host.out_data().return_msg);
    EXPECT_EQ(clause.display, (host.out_data().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE) != 0);
    EXPECT_EQ(7, host.out_data().num_params);
    EXPECT_EQ(1, host.log().Count(HostFn::kAcquireSuite));
    EXPECT_EQ(1, host.log().Count(HostFn::kReleaseSuite));
    EXPECT_EQ(nullptr, g_current_out_data) << "reset when the call ends";
  }
}

// The build's table checks, on tables with a row out of place, repeated,
// without its handler or missing (the first command's, or the last control's).
TEST(TableChecks, RefuseTablesWithARowWrong) {
  auto routes = kRecording;
  auto controls = std::to_array(kControls);
  ASSERT_TRUE(EachCommandOnce(routes) && InHostOrder(controls));
  routes[9] = routes[8];
  controls[0].index = PARAM_COLOR;
  EXPECT_FALSE(EachCommandOnce(routes) || InHostOrder(controls));
  routes = kRecording, routes[PF_Cmd_RENDER].handler = nullptr;
  controls = std::to_array(kControls), controls.back().disk_id = controls.front().disk_id;
  EXPECT_FALSE(EachCommandOnce(routes) || InHostOrder(controls));
  controls = std::to_array(kControls), controls.front().disk_id = HEADER_DISK_ID;
  EXPECT_FALSE(InHostOrder(controls));
  EXPECT_FALSE(EachCommandOnce(std::span(kRecording).subspan(1)) ||
               InHostOrder(std::span(kControls).first(std::size(kControls) - 1)));
}

}  // namespace
