// The real module (KSCinebar.aex under Wine, KSCinebar.so natively) answering
// the host: global setup and the host check, the about text, commands that do
// nothing, and suites given back within every call.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "host/sim_host.h"
#include "tests/fixtures/the_module.h"

namespace {

using cinebar_simhost::Host;
using cinebar_simhost::World;

constexpr A_u_long kVersion = 0x0008E600;
constexpr PF_OutFlags kOutFlags = 0x02008401;

class ModuleCommands : public ::testing::Test {
 protected:
  Host host{TheModule()};
};

TEST_F(ModuleCommands, GlobalSetupInAfterEffectsKeepsTheHostsBits) {
  PF_InData in_data = host.in_data();
  PF_OutData out_data{};
  out_data.out_flags = 0x10000000;
  out_data.out_flags2 = 0x4;
  EXPECT_EQ(PF_Err_NONE, host.CallRaw(PF_Cmd_GLOBAL_SETUP, &in_data, &out_data, nullptr, nullptr, nullptr));
  EXPECT_EQ(kVersion, out_data.my_version);
  EXPECT_EQ(0x10000000 | kOutFlags, out_data.out_flags);
  EXPECT_EQ(0x4, out_data.out_flags2);
  EXPECT_STREQ("", out_data.return_msg);
}

TEST_F(ModuleCommands, GlobalSetupTurnsEveryOtherHostAway) {
  for (const A_AppID host_id : {A_AppID{PF_APPL_ID_PREMIERE}, A_AppID{0}, A_AppID{0x46585444}}) {
    SCOPED_TRACE(host_id);
    host.SetApplId(host_id);
    host.log().Clear();
    EXPECT_EQ(PF_Err_INTERNAL_STRUCT_DAMAGED, host.GlobalSetup());
    EXPECT_EQ(0u, host.out_data().my_version);
    EXPECT_EQ(0, host.out_data().out_flags);
    EXPECT_STREQ("", host.out_data().return_msg);
    EXPECT_EQ(0, host.log().Count("host_new_handle")) << "no global data for a refused host";
  }
}

TEST_F(ModuleCommands, AboutWithoutBrandingWritesTheFallbackText) {
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  ASSERT_EQ(PF_Err_NONE, host.About());
  const std::string text = host.out_data().return_msg;
  EXPECT_EQ(0u, text.rfind("Tarnwick Cadre 1.1.12", 0)) << text;
  EXPECT_EQ(std::string::npos, text.find('\n')) << "lines are separated by carriage returns";
  EXPECT_EQ(0, host.out_data().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
}

TEST_F(ModuleCommands, CommandsWithoutAJobChangeNothing) {
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  for (const PF_Cmd cmd : {2, 7, 9, 10, 12, 16, 17, 18, 19, 64, 1 << 20, -1}) {
    SCOPED_TRACE(cmd);
    host.log().Clear();
    PF_InData in_data = host.in_data();
    PF_OutData out_data{};
    std::memset(&out_data, 0x5A, sizeof out_data);
    const PF_OutData before = out_data;
    EXPECT_EQ(PF_Err_NONE, host.CallRaw(cmd, &in_data, &out_data, nullptr, nullptr, nullptr));
    EXPECT_EQ(0, std::memcmp(&before, &out_data, sizeof out_data));
    for (const auto& call : host.log().records()) {
      EXPECT_TRUE(call.function == "EntryPointFunc" || call.function == "get_platform_data") << call.function;
    }
  }
}

TEST_F(ModuleCommands, EveryCommandGivesItsSuitesBack) {
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  auto applied = host.Apply(World(64, 36));
  ASSERT_EQ(PF_Err_NONE, applied.err);
  World output(64, 36);
  EXPECT_EQ(PF_Err_NONE, host.Render(applied.instance, output));
  EXPECT_EQ(PF_Err_NONE, host.ChangeFloat(applied.instance, 4, 2.35));
  EXPECT_EQ(PF_Err_NONE, host.UpdateParamsUI(applied.instance));
  EXPECT_EQ(PF_Err_NONE, host.Remove(applied.instance));
  EXPECT_EQ(PF_Err_NONE, host.GlobalSetdown());
  EXPECT_EQ(0, host.SuitesOutstanding());
  // A render fills twice but asks for the fill suite once.
  int fill_acquires = 0;
  for (const auto* call : host.log().Named("AcquireSuite")) {
    if (call->suite == "PF Fill Matte Suite") ++fill_acquires;
  }
  EXPECT_EQ(1, fill_acquires);
  EXPECT_EQ(host.log().Count("AcquireSuite"), host.log().Count("ReleaseSuite"));
}

}  // namespace
