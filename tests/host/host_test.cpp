// The simulated host's own rules, driven by a tiny fake module: fault injection
// on every host function, misuse that must become a host error, leak reports,
// and what the host takes back after a command. The ordinary life cycle, the
// broker and drawing through the suites are exercised by the module's tests.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <string>

#include "host/sim_host.h"

namespace cinebar_simhost {
namespace {

using Body = std::function<PF_Err(PF_Cmd, PF_InData*, PF_OutData*, PF_ParamDef**)>;
Body g_body;

PF_Err FakeEntry(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef* params[], PF_LayerDef*, void*) {
  return g_body ? g_body(cmd, in, out, params) : PF_Err_NONE;
}

template <typename Suite>
const Suite* Acquire(PF_InData* in, const char* name, int version) {
  const void* suite = nullptr;
  in->pica_basicP->AcquireSuite(name, version, &suite);
  return static_cast<const Suite*>(suite);
}

// Parameter setup of a popup (default 2, its item text overwritten after
// add_param), a float slider and a colour; then an instance with the defaults.
Instance& WithParams(Host& host) {
  g_body = [](PF_Cmd, PF_InData* in, PF_OutData* out, PF_ParamDef**) {
    char items[] = "One|Two|Three";
    PF_ParamDef def{};
    def.param_type = PF_Param_POPUP;
    def.u.pd.dephault = 2;
    def.u.pd.u.namesptr = items;
    in->inter.add_param(in->effect_ref, -1, &def);
    std::strcpy(items, "gone");
    def = PF_ParamDef{};
    def.param_type = PF_Param_FLOAT_SLIDER;
    in->inter.add_param(in->effect_ref, -1, &def);
    def = PF_ParamDef{};
    def.param_type = PF_Param_COLOR;
    def.u.cd.dephault = PF_Pixel{255, 1, 2, 3};
    in->inter.add_param(in->effect_ref, -1, &def);
    out->num_params = 4;
    return PF_Err_NONE;
  };
  EXPECT_EQ(host.ParamsSetup(), PF_Err_NONE);
  return host.AddInstance(World(4, 4));
}

// ---- fault injection -------------------------------------------------------------------

// One call of a host function: 0 when it did its work, else its failure answer.
using Call = int (*)(PF_InData*, Host&);
int AcquireHandleSuite(PF_InData* in, Host&) {
  const void* suite = nullptr;
  const SPErr err = in->pica_basicP->AcquireSuite("PF Handle Suite", 2, &suite);
  return err != 0 ? err : suite ? 0 : -1;
}

struct FaultRow {
  std::string key;  // the fault plan's name; the call log's name up to any '('
  Call call;
  bool error_coded;  // fails with the fault's error (else null / -1 / nothing done)
};

// Each way of failing, from the utility callbacks, the broker (every suite or one
// pair) and a suite; the module's tests fail the drawing and parameter functions.
const FaultRow kFaultRows[] = {
    {"get_platform_data",
     [](PF_InData* in, Host&) {
       void* window = nullptr;
       return in->utils->get_platform_data(in->effect_ref, PF_PlatData_MAIN_WND, &window);
     },
     true},
    {"sprintf",
     [](PF_InData* in, Host&) {
       char text[8] = "";
       const int n = in->utils->ansi.sprintf(text, "%s%d", "Cb", 13);
       if (n == 4) return std::strcmp(text, "Cb13") == 0 ? 0 : -2;
       return n == -1 && text[0] == '\0' ? -1 : -2;  // failed: -1 with nothing written
     },
     false},
    {"host_new_handle", [](PF_InData* in, Host&) { return in->utils->host_new_handle(4) ? 0 : -1; }, false},
    {"AcquireSuite", AcquireHandleSuite, true},
    {AcquireKey("PF Handle Suite", 2), AcquireHandleSuite, true},
    {"ReleaseSuite",
     [](PF_InData* in, Host& h) {
       return AcquireHandleSuite(in, h) + in->pica_basicP->ReleaseSuite("PF Handle Suite", 2);
     },
     true},
    {"HandleSuite.host_dispose_handle",
     [](PF_InData* in, Host& h) {
       PF_Handle handle = h.handles().New(4);
       Acquire<PF_HandleSuite1>(in, "PF Handle Suite", 2)->host_dispose_handle(handle);
       return h.handles().IsLive(handle) ? -1 : 0;
     },
     false},
};

TEST(FaultPlanTest, TheChosenCallOrEveryCallFromItOnFails) {
  for (const bool and_later : {false, true}) {
    for (const FaultRow& row : kFaultRows) {
      SCOPED_TRACE(row.key + (and_later ? " from call 2" : " on call 2"));
      Host h(FakeEntry);
      h.faults().Fail(row.key, and_later ? Fault::Error(42).FromCall(2) : Fault::Error(42).OnCall(2));
      std::array<int, 3> answers;
      g_body = [&](PF_Cmd, PF_InData* in, PF_OutData*, PF_ParamDef**) {
        for (int& answer : answers) answer = row.call(in, h);
        return PF_Err_NONE;
      };
      h.About();
      const int failed = row.error_coded ? 42 : -1;
      EXPECT_EQ(answers, (std::array<int, 3>{0, failed, and_later ? failed : 0}));
      const auto calls = h.log().Named(row.key.substr(0, row.key.find('(')));
      ASSERT_EQ(calls.size(), 3u);
      EXPECT_EQ((std::array<bool, 3>{calls[0]->faulted, calls[1]->faulted, calls[2]->faulted}),
                (std::array<bool, 3>{false, true, and_later}));
    }
  }
  g_body = nullptr;
  FaultPlan plan;
  EXPECT_THROW(plan.Fail("fil", Fault::Error(1)), std::invalid_argument);
  EXPECT_THROW(plan.Fail("fill", Fault::Error(1).OnCall(0)), std::invalid_argument);
}

// ---- misuse, leaks and what comes back ------------------------------------------------

class HostTest : public ::testing::Test {
 protected:
  void TearDown() override { g_body = nullptr; }
  // Runs `code` as the module's body of one command for the instance.
  PF_Err During(const std::function<void(PF_InData*, PF_OutData*, PF_ParamDef**)>& code) {
    g_body = [&](PF_Cmd, PF_InData* in, PF_OutData* out, PF_ParamDef** params) {
      code(in, out, params);
      return PF_Err_NONE;
    };
    const PF_Err err = host.Command(instance, PF_Cmd_USER_CHANGED_PARAM);
    g_body = nullptr;
    return err;
  }
  Host host{FakeEntry};
  Instance& instance = WithParams(host);
};

TEST_F(HostTest, MisuseIsOneHostErrorAndAnsweredNotACrash) {
  PF_Handle kept = host.handles().New(8);
  const std::pair<const char*, std::function<bool(PF_InData*)>> misuses[] = {
      {"unlock by block",
       [&](PF_InData* in) { return in->utils->host_unlock_handle(PF_Handle(*kept)), true; }},
      {"dispose twice",
       [&](PF_InData* in) {
         PF_Handle gone = in->utils->host_new_handle(4);
         in->utils->host_dispose_handle(gone);
         return in->utils->host_dispose_handle(gone), true;
       }},
      {"unlock twice",
       [&](PF_InData* in) {
         in->utils->host_lock_handle(kept);
         in->utils->host_unlock_handle(kept);
         return in->utils->host_unlock_handle(kept), true;
       }},
      {"release an unserved suite",
       [&](PF_InData* in) {
         const void* suite = &kept;
         return in->pica_basicP->AcquireSuite("AEGP Layer Suite", 8, &suite) == kSuiteNotFound && !suite &&
                in->pica_basicP->ReleaseSuite("AEGP Layer Suite", 8) == kSuiteNotFound;
       }},
      {"add_param outside parameter setup",
       [&](PF_InData* in) {
         PF_ParamDef def{};
         return in->inter.add_param(in->effect_ref, -1, &def) == PF_Err_INVALID_CALLBACK;
       }},
      {"PF_UpdateParamUI beyond the parameters",
       [&](PF_InData* in) {
         return Acquire<PF_ParamUtilsSuite3>(in, "PF Param Utils Suite", 3)
                    ->PF_UpdateParamUI(in->effect_ref, 4, &instance.param(1)) == PF_Err_INVALID_INDEX;
       }},
  };
  for (const auto& [name, act] : misuses) {
    const std::size_t errors = host.host_errors().size();
    bool answered = false;
    During([&](PF_InData* in, PF_OutData*, PF_ParamDef**) { answered = act(in); });
    EXPECT_TRUE(answered) << name;
    EXPECT_EQ(host.host_errors().size(), errors + 1) << name;
    EXPECT_EQ(host.LiveHandleCount(), 1u) << name;
  }
  // Parameter setup that reports one parameter too few.
  g_body = [](PF_Cmd, PF_InData* in, PF_OutData*, PF_ParamDef**) {
    PF_ParamDef def{};
    return in->inter.add_param(in->effect_ref, -1, &def);
  };
  EXPECT_EQ(host.ParamsSetup(), PF_Err_NONE);
  EXPECT_EQ(host.host_errors().size(), std::size(misuses) + 1);
}

TEST_F(HostTest, HandlesLeftBehindAtSetdownAreReported) {
  PF_Handle global = nullptr, sequence = nullptr;
  g_body = [&](PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef**) {
    if (cmd == PF_Cmd_GLOBAL_SETUP) out->global_data = global = in->utils->host_new_handle(8);
    if (cmd == PF_Cmd_SEQUENCE_SETUP) out->sequence_data = sequence = in->utils->host_new_handle(4);
    return PF_Err_NONE;
  };
  ASSERT_EQ(host.GlobalSetup(), PF_Err_NONE);
  ASSERT_EQ(host.SequenceSetup(instance), PF_Err_NONE);
  EXPECT_TRUE(host.ForgottenHandles().empty());
  ASSERT_EQ(host.Remove(instance), PF_Err_NONE);
  EXPECT_EQ(instance.sequence_data(), nullptr);
  ASSERT_EQ(host.GlobalSetdown(), PF_Err_NONE);
  EXPECT_EQ(host.ForgottenHandles(), (std::vector<PF_Handle>{sequence, global}));
  EXPECT_THROW(host.Render(instance, instance.input()), std::logic_error);
}

TEST_F(HostTest, OnlyFlaggedValuesAndUiUpdatesComeBack) {
  EXPECT_EQ(instance.param(1).u.pd.value, 2);
  ASSERT_EQ(During([](PF_InData* in, PF_OutData*, PF_ParamDef** params) {
              params[2]->u.fs_d.value = 2.5;
              params[2]->uu.change_flags = PF_ChangeFlag_CHANGED_VALUE;
              params[3]->u.cd.value = PF_Pixel{9, 9, 9, 9};  // not flagged
              params[1]->u.pd.value = 3;                     // not flagged, but pushed to the UI
              params[1]->u.pd.u.namesptr = "module's own";
              Acquire<PF_ParamUtilsSuite3>(in, "PF Param Utils Suite", 3)
                  ->PF_UpdateParamUI(in->effect_ref, 1, params[1]);
            }),
            PF_Err_NONE);
  EXPECT_EQ(instance.param(1).u.pd.value, 3);
  EXPECT_STREQ(instance.param(1).u.pd.u.namesptr, "One|Two|Three");  // the host's copy, kept
  EXPECT_STREQ(host.added_params()[0].def.u.pd.u.namesptr, "One|Two|Three");
  EXPECT_EQ(instance.param(2).u.fs_d.value, 2.5);
  EXPECT_EQ(instance.param(3).u.cd.value.red, 1);
  EXPECT_TRUE(host.host_errors().empty());
  EXPECT_THROW(host.ChangeFloat(instance, 1, 1.0), std::invalid_argument);
  EXPECT_THROW(host.UserChanged(instance, 0), std::out_of_range);
  EXPECT_THROW(instance.param(4), std::out_of_range);
}

TEST(ModuleTest, MissingFileOrEntryIsAClearError) {
#ifdef _WIN32
  const char* without_entry = "kernel32.dll";
#else
  const char* without_entry = "libm.so.6";
#endif
  const std::pair<std::string, std::string> cases[] = {{"/no/such/KSCinebar.aex", "cannot load"},
                                                       {without_entry, "does not export EntryPointFunc"}};
  for (const auto& [path, why] : cases) {
    try {
      Module module(path);
      ADD_FAILURE() << path << " loaded";
    } catch (const ModuleError& e) {
      EXPECT_NE(std::string(e.what()).find(why), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
    }
  }
}

}  // namespace
}  // namespace cinebar_simhost
