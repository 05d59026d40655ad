// The real module answering the host outside any instance: global setup and
// the host check, and commands that do nothing whatever records they are
// given. The about text without the branding library is the branding test's.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "paramindex/param_index.h"
#include "tests/fixtures/effect_host.h"

namespace {

using cinebar_simhost::Host;

TEST(ModuleShell, GlobalSetupServesAfterEffectsAloneAndKeepsTheHostsBits) {
  for (const A_AppID host_id :
       {A_AppID{PF_APPL_ID_AFTER_EFFECTS}, A_AppID{PF_APPL_ID_PREMIERE}, A_AppID{0}}) {
    SCOPED_TRACE(host_id);
    Host host(TheModule());
    host.SetApplId(host_id);
    PF_InData in_data = host.in_data();
    PF_OutData out_data{};
    out_data.out_flags = 0x10000000;
    out_data.out_flags2 = 0x4;
    const bool served = host_id == PF_APPL_ID_AFTER_EFFECTS;
    EXPECT_EQ(served ? PF_Err_NONE : PF_Err_INTERNAL_STRUCT_DAMAGED,
              host.CallRaw(PF_Cmd_GLOBAL_SETUP, &in_data, &out_data, nullptr, nullptr, nullptr));
    EXPECT_EQ(served ? 0x0008E600u : 0u, out_data.my_version);
    EXPECT_EQ(served ? 0x12008401 : 0x10000000, out_data.out_flags);
    EXPECT_EQ(0x4, out_data.out_flags2);
    EXPECT_STREQ("", out_data.return_msg);
    EXPECT_EQ(served, out_data.global_data != nullptr);
    if (served) host.handles().Release(out_data.global_data);  // the host's own, with these records
  }
}

TEST(ModuleShell, CommandsWithoutAJobChangeNothingWhateverTheRecords) {
  Host host(TheModule());
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  for (const PF_Cmd cmd : {2, 7, 9, 10, 12, 16, 17, 18, 19, 64, 1 << 20, -1}) {
    SCOPED_TRACE(cmd);
    host.log().Clear();
    PF_InData in_data = host.in_data();
    PF_OutData out_data;
    std::memset(&out_data, 0x5A, sizeof out_data);
    const PF_OutData before = out_data;
    EXPECT_EQ(PF_Err_NONE, host.CallRaw(cmd, &in_data, &out_data, nullptr, nullptr, nullptr));
    EXPECT_EQ(0, std::memcmp(&before, &out_data, sizeof out_data));
    EXPECT_EQ(PF_Err_NONE, host.CallRaw(cmd, &in_data, nullptr, nullptr, nullptr, nullptr));
    for (const auto& call : host.log().records())
      EXPECT_TRUE(call.fn == HostFn::kCommand || call.fn == HostFn::kGetPlatformData) << Name(call.fn);
  }
}

// A host that leaves out_data null: a path is refused only where it would
// write into the record, so paths that never do answer as usual (another
// host is turned away before the record is looked at).
TEST(ModuleShell, WithoutOutDataOnlyAPathThatWritesItIsRefused) {
  Host host(TheModule());
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  PF_EventExtra control_event{};
  control_event.effect_win.index = PARAM_RENDER;
  const std::tuple<PF_Cmd, A_AppID, void*, PF_Err> kCases[] = {
      {PF_Cmd_GLOBAL_SETUP, PF_APPL_ID_PREMIERE, nullptr, PF_Err_INTERNAL_STRUCT_DAMAGED},
      {PF_Cmd_GLOBAL_SETUP, PF_APPL_ID_AFTER_EFFECTS, nullptr, PF_Err_BAD_CALLBACK_PARAM},
      {PF_Cmd_ABOUT, PF_APPL_ID_AFTER_EFFECTS, nullptr, PF_Err_BAD_CALLBACK_PARAM},  // the fallback text
      {PF_Cmd_EVENT, PF_APPL_ID_AFTER_EFFECTS, &control_event, PF_Err_NONE},
      {PF_Cmd_SEQUENCE_SETDOWN, PF_APPL_ID_AFTER_EFFECTS, nullptr, PF_Err_NONE},  // no sequence record
      {PF_Cmd_PARAMS_SETUP, PF_APPL_ID_AFTER_EFFECTS, nullptr, PF_Err_BAD_CALLBACK_PARAM},
  };
  for (const auto& [cmd, app, extra, result] : kCases) {
    SCOPED_TRACE(::testing::Message() << "command " << cmd << " host " << app);
    host.SetApplId(app);
    host.log().Clear();
    PF_InData in_data = host.in_data();
    EXPECT_EQ(result, host.CallRaw(cmd, &in_data, nullptr, nullptr, nullptr, extra));
    const bool refused_at_once = cmd == PF_Cmd_GLOBAL_SETUP || cmd == PF_Cmd_PARAMS_SETUP;
    EXPECT_TRUE(!refused_at_once || host.log().records().size() == 1) << "refused before any host call";
  }
}

// The header's events lock and unlock the global data whatever it holds.
TEST(ModuleShell, AHeaderEventWithoutGlobalDataLocksAndUnlocksTheNullHandle) {
  Host host(TheModule());
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  PF_EventExtra extra{};
  extra.effect_win.index = PARAM_HEADER;
  PF_InData in_data = host.in_data();
  in_data.global_data = nullptr;
  PF_OutData out_data{};
  host.log().Clear();
  EXPECT_EQ(PF_Err_NONE, host.CallRaw(PF_Cmd_EVENT, &in_data, &out_data, nullptr, nullptr, &extra));
  std::vector<std::string> handle_calls;
  for (const auto& call : host.log().records()) {
    if (call.fn == HostFn::kLockHandle || call.fn == HostFn::kUnlockHandle)
      handle_calls.push_back(std::string(Name(call.fn)) + (call.handle == nullptr ? " null" : " set"));
  }
  EXPECT_EQ((std::vector<std::string>{"host_lock_handle null", "host_unlock_handle null"}), handle_calls);
}

}  // namespace
