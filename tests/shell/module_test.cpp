// The real module answering the host outside any instance: global setup and
// the host check, and commands that do nothing whatever records they are
// given. The about text without the branding library is the branding test's.
#include <gtest/gtest.h>

#include <cstring>

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

}  // namespace
