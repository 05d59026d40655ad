// The dispatcher through a test routing table: every command reaches its
// handler, or none, whatever records it is given, and the module's instance
// handle is fetched once; every kind of failure becomes the tabled result,
// message and display flag; the call's suites go back once on every path.
#include "plugin/dispatch.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <vector>

#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "plugin/call_context.h"
#include "tests/fixtures/effect_host.h"

namespace {

using cinebar_simhost::Host;

std::string g_routed;          // the handler the last command reached
std::function<void()> g_body;  // what the routed handler does

void Reached(const char* name) {
  g_routed = name;
  if (g_body) g_body();
}

const CommandHandlers kRecording{
    .show_branded_about = [](auto...) { return Reached("about"), true; },
    .load_branding = [](auto...) { return Reached("load_branding"), PF_Err{0}; },
    .unload_branding = [](auto...) { return Reached("unload_branding"), PF_Err{0}; },
    .params_setup = [](auto, PF_OutData* out, auto...) { Reached("params_setup"), out->num_params = 1; },
    .sequence_setup = [](auto...) { Reached("sequence_setup"); },
    .sequence_resetup = [](auto...) { Reached("sequence_resetup"); },
    .empty_command = [](auto...) { Reached("empty"); },
    .sequence_setdown = [](auto...) { Reached("sequence_setdown"); },
    .render = [](auto...) { Reached("render"); },
    .user_changed_param = [](auto...) { Reached("user_changed_param"); },
    .update_params_ui = [](auto...) { return Reached("update_params_ui"), PF_Err{0}; },
    .handle_event = [](auto...) { return Reached("handle_event"), PF_Err{99}; },  // never reaches the host
};

PF_Err Recording(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                 PF_LayerDef* output, void* extra) {
  return DispatchCommand(kRecording, cmd, in_data, out_data, params, output, extra);
}

class Dispatch : public ::testing::Test {
 protected:
  void TearDown() override { g_body = nullptr; }
  Host host{Recording};
};

TEST_F(Dispatch, RoutesEveryCommandAndRefusesOnlyRecordsItsHandlerNeeds) {
  struct Route {
    PF_Cmd cmd;
    const char* handler;  // "" for commands that do nothing
    bool needs_out_data;  // refused without out_data (every handler needs in_data)
  };
  std::vector<Route> routes = {
      {0, "about", true},         {1, "load_branding", true},        {3, "unload_branding", true},
      {4, "params_setup", true},  {5, "sequence_setup", true},       {6, "sequence_resetup", true},
      {7, "empty", false},        {8, "sequence_setdown", true},     {10, "empty", false},
      {11, "render", false},      {13, "user_changed_param", false}, {14, "update_params_ui", false},
      {15, "handle_event", true},
  };
  for (const PF_Cmd idle : {2, 9, 12, 16, 17, 18, 19, 1000, -1}) routes.push_back({idle, "", false});
  static int module_token;
  host.SetModuleHandle(&module_token);
  g_module_instance = nullptr;
  for (const Route& route : routes) {
    SCOPED_TRACE(route.cmd);
    g_routed.clear();
    EXPECT_EQ(PF_Err_NONE, host.Command(route.cmd));
    EXPECT_EQ(route.handler, g_routed);
    g_routed.clear();
    PF_InData in_data = host.in_data();
    EXPECT_EQ(route.needs_out_data ? PF_Err_BAD_CALLBACK_PARAM : PF_Err_NONE,
              host.CallRaw(route.cmd, &in_data, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(route.needs_out_data ? "" : route.handler, g_routed);
    const bool does_nothing = *route.handler == '\0';
    EXPECT_EQ(does_nothing ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM,
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
      g_current_suites->FillMatteSuite2();
      g_current_suites->FillMatteSuite2();
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

}  // namespace
