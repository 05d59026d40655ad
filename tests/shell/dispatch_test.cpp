// The dispatcher through a test-only routing table: every command reaches the
// handler it belongs to, and every kind of failure a handler throws becomes
// the tabled result, message and display flag.
#include "plugin/dispatch.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>

#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "host/sim_host.h"

namespace {

using cinebar_simhost::Host;

std::string g_routed;                  // the handler the last command reached
std::function<void()> g_handler_body;  // what the routed handler does

void Reached(const char* name) {
  g_routed = name;
  if (g_handler_body) g_handler_body();
}

// Each handler only notes that it was reached (and what its kind returns).
const CommandHandlers kRecordingHandlers = {
    [](auto...) { return Reached("show_branded_about"), true; },
    [](auto...) { return Reached("load_branding"), PF_Err{0}; },
    [](auto...) { return Reached("unload_branding"), PF_Err{0}; },
    [](auto...) { Reached("params_setup"); },
    [](auto...) { Reached("sequence_setup"); },
    [](auto...) { Reached("sequence_resetup"); },
    [](auto...) { Reached("empty_command"); },
    [](auto...) { Reached("sequence_setdown"); },
    [](auto...) { Reached("render"); },
    [](auto...) { Reached("user_changed_param"); },
    [](auto...) { return Reached("update_params_ui"), PF_Err{0}; },
    [](auto...) { return Reached("handle_event"), PF_Err{99}; },  // never reaches the host
};

PF_Err RecordingEntry(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                      PF_LayerDef* output, void* extra) {
  return DispatchCommand(kRecordingHandlers, cmd, in_data, out_data, params, output, extra);
}

class Dispatch : public ::testing::Test {
 protected:
  void SetUp() override {
    g_routed.clear();
    g_handler_body = nullptr;
  }
  void TearDown() override { g_handler_body = nullptr; }
  Host host{RecordingEntry};
};

TEST_F(Dispatch, RoutesEveryCommandToItsHandler) {
  const struct {
    PF_Cmd cmd;
    const char* handler;  // "" for commands that do nothing
  } kRoutes[] = {
      {0, "show_branded_about"},
      {1, "load_branding"},
      {2, ""},
      {3, "unload_branding"},
      {4, "params_setup"},
      {5, "sequence_setup"},
      {6, "sequence_resetup"},
      {7, "empty_command"},
      {8, "sequence_setdown"},
      {9, ""},
      {10, "empty_command"},
      {11, "render"},
      {12, ""},
      {13, "user_changed_param"},
      {14, "update_params_ui"},
      {15, "handle_event"},
      {16, ""},
      {17, ""},
      {18, ""},
      {19, ""},
      {1000, ""},
      {-1, ""},
  };
  for (const auto& route : kRoutes) {
    SCOPED_TRACE(route.cmd);
    g_routed.clear();
    EXPECT_EQ(PF_Err_NONE, host.Command(route.cmd));
    EXPECT_EQ(route.handler, g_routed);
  }
}

TEST_F(Dispatch, FailuresBecomeTheTabledResults) {
  const struct {
    const char* what;
    std::function<void()> thrower;
    PF_Err result;
    const char* message;  // "" when return_msg stays untouched
    bool display;
  } kClauses[] = {
      {"bare int", [] { throw 4; }, 4, "", false},
      {"bare int 517", [] { throw 517; }, 517, "", false},
      {"cancel", [] { throw DAE::DAECancelXCP(); }, PF_Interrupt_CANCEL, "", false},
      {"alloc", [] { throw DAE::DAEAllocXCP(12); }, PF_Err_OUT_OF_MEMORY, "", false},
      {"suite", [] { throw DAE::DAESuiteXCP("PF Fill Matte Suite"); }, 13,
       "Cinebar is missing the suite PF Fill Matte Suite", false},
      {"missing resource", [] { throw DAE::DAEMissingResourceXCP("PiPL"); }, PF_Err_NONE,
       "Cinebar is missing the resource PiPL", false},
      {"resource", [] { throw DAE::DAEResourceXCP("PiPL"); }, PF_Err_NONE,
       "Cinebar has a problem with resource PiPL", false},
      {"bare family base", [] { throw DAE::DAEXCP(); }, PF_Err_INTERNAL_STRUCT_DAMAGED,
       "Unknown error in Cinebar", true},
      {"std::bad_alloc", [] { throw std::bad_alloc(); }, PF_Err_INTERNAL_STRUCT_DAMAGED,
       "Unknown error in Cinebar", true},
      {"text", [] { throw "oops"; }, PF_Err_INTERNAL_STRUCT_DAMAGED, "Unknown error in Cinebar", true},
      {"long, not int", [] { throw 4L; }, PF_Err_INTERNAL_STRUCT_DAMAGED, "Unknown error in Cinebar", true},
  };
  for (const auto& clause : kClauses) {
    SCOPED_TRACE(clause.what);
    g_handler_body = [&] {
      host.out_data().num_params = 7;  // written before the throw: stays
      clause.thrower();
    };
    EXPECT_EQ(clause.result, host.Command(PF_Cmd_RENDER));
    EXPECT_STREQ(clause.message, host.out_data().return_msg);
    EXPECT_EQ(clause.display, (host.out_data().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE) != 0);
    EXPECT_EQ(7, host.out_data().num_params);
    EXPECT_EQ(0, host.SuitesOutstanding());
  }
}

TEST_F(Dispatch, EventsAnswerNoErrorWhateverTheHandlerSays) {
  EXPECT_EQ(PF_Err_NONE, host.Command(PF_Cmd_EVENT));
  EXPECT_EQ("handle_event", g_routed);
}

TEST_F(Dispatch, ReleasesTheCallsSuitesOnceOnEveryPath) {
  for (const bool throws : {false, true}) {
    SCOPED_TRACE(throws ? "throwing handler" : "returning handler");
    host.log().Clear();
    g_handler_body = [throws] {
      g_current_suites->FillMatteSuite2();
      g_current_suites->FillMatteSuite2();
      if (throws) throw DAE::DAEAllocXCP(12);
    };
    host.Command(PF_Cmd_RENDER);
    EXPECT_EQ(1, host.log().Count("AcquireSuite"));
    ASSERT_EQ(1, host.log().Count("ReleaseSuite"));
    EXPECT_EQ("PF Fill Matte Suite", host.log().Last("ReleaseSuite")->suite);
    EXPECT_EQ(2, host.log().Last("ReleaseSuite")->version);
    EXPECT_EQ(nullptr, g_current_out_data) << "reset when the call ends";
  }
}

TEST_F(Dispatch, FetchesTheModuleInstanceOnlyOnce) {
  static int module_token;
  host.SetModuleHandle(&module_token);
  host.Command(PF_Cmd_ABOUT);
  host.Command(PF_Cmd_RENDER);
  host.Command(PF_Cmd_EVENT);
  // Other tests in this program may have fetched it already; never more than once.
  EXPECT_LE(host.log().Count("get_platform_data"), 1);
}

TEST_F(Dispatch, RefusesMissingRecords) {
  EXPECT_EQ(PF_Err_BAD_CALLBACK_PARAM,
            RecordingEntry(PF_Cmd_ABOUT, nullptr, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ("", g_routed);
}

}  // namespace
