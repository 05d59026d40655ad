// The effect's controls and its sequence record on the real module, driven
// through the simulated host as a user and a project would drive them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/sim_host.h"
#include "tests/fixtures/the_module.h"

namespace {

using cinebar_simhost::Host;
using cinebar_simhost::Instance;
using cinebar_simhost::kFreshHandleByte;
using cinebar_simhost::World;

constexpr A_long kRender = 2, kPreset = 3, kRatio = 4, kColor = 5;

class Controls : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
    ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
    ASSERT_EQ(6, host.out_data().num_params);
    auto applied = host.Apply(World(16, 9));
    ASSERT_EQ(PF_Err_NONE, applied.err);
    instance = &applied.instance;
  }
  std::vector<uint8_t> Record() { return host.handles().Bytes(instance->sequence_data()); }
  int32_t StoredPreset() {
    int32_t preset;
    std::memcpy(&preset, Record().data(), 4);
    return preset;
  }

  Host host{TheModule()};
  Instance* instance = nullptr;
};

TEST_F(Controls, DefinitionsAsTheHostReceivesThem) {
  const auto& added = host.added_params();
  ASSERT_EQ(5u, added.size());
  const struct {
    const char* name;
    PF_ParamType type;
    A_long id;
    PF_ParamFlags flags;
    PF_ParamUIFlags ui_flags;
  } kExpected[] = {
      {"Render", PF_Param_POPUP, 1, 0x20, 0},
      {"Preset", PF_Param_POPUP, 2, 0x62, PF_PUI_STD_CONTROL_ONLY},
      {"Aspect Ratio", PF_Param_FLOAT_SLIDER, 3, 0x60, 0},
      {"Color", PF_Param_COLOR, 4, 0x20, 0},
  };
  for (size_t i = 0; i < 4; ++i) {
    const PF_ParamDef& def = added[i + 1].def;
    SCOPED_TRACE(kExpected[i].name);
    EXPECT_EQ(-1, added[i + 1].index);
    EXPECT_STREQ(kExpected[i].name, def.name);
    EXPECT_EQ(kExpected[i].type, def.param_type);
    EXPECT_EQ(kExpected[i].id, def.uu.id);
    EXPECT_EQ(kExpected[i].flags, def.flags);
    EXPECT_EQ(kExpected[i].ui_flags, def.ui_flags);
    EXPECT_EQ(0, def.ui_width);
    EXPECT_EQ(0, def.ui_height);
  }
  const PF_PopupDef& render = added[1].def.u.pd;
  EXPECT_EQ("On Transparent|On Image", added[1].popup_items);
  EXPECT_EQ(2, render.num_choices);
  EXPECT_EQ(2, render.dephault);

  const PF_PopupDef& preset = added[2].def.u.pd;
  EXPECT_EQ(
      "4:3 (Academy)|1.66:1 (Super 16)|16:9 (Widescreen TV)|1.85:1 (Theatrical)|2.35:1 (Anamorphic)|2.76:1 "
      "(Ultra)|(-|Custom",
      added[2].popup_items);
  EXPECT_EQ(8, preset.num_choices);
  EXPECT_EQ(1, preset.dephault);

  // The slider, byte for byte: every field not set here must be zero.
  PF_FloatSliderDef ratio;
  std::memset(&ratio, 0, sizeof ratio);
  ratio.valid_max = 12.0f;
  ratio.slider_max = 3.0f;
  ratio.dephault = 4.0f / 3.0f;
  ratio.value = 1.3333333730697632;
  ratio.precision = 3;
  EXPECT_EQ(0, std::memcmp(&ratio, &added[3].def.u.fs_d, sizeof ratio));

  const PF_ColorDef& color = added[4].def.u.cd;
  for (const PF_Pixel& pixel : {color.value, color.dephault}) {
    EXPECT_EQ(255, pixel.alpha);
    EXPECT_EQ(0, pixel.red + pixel.green + pixel.blue);
  }
  ASSERT_EQ(1u, host.registered_ui().size());
  EXPECT_EQ(PF_CustomEFlag_EFFECT, host.registered_ui()[0].events);
  EXPECT_EQ(0, host.registered_ui()[0].comp_ui_width + host.registered_ui()[0].layer_ui_height);
}

TEST_F(Controls, ChoosingAPresetWritesItsSinglePrecisionRatio) {
  const double kRatios[] = {1.3333333730697632, 1.659999966621399,  1.7777777910232544,
                            1.850000023841858,  2.3499999046325684, 2.759999990463257};
  for (A_long item = 6; item >= 1; --item) {
    SCOPED_TRACE(item);
    ASSERT_EQ(PF_Err_NONE, host.ChangePopup(*instance, kPreset, item));
    EXPECT_EQ(kRatios[item - 1], instance->param(kRatio).u.fs_d.value)
        << "taken by the host: flagged changed";
    EXPECT_EQ(item, StoredPreset());
  }
}

TEST_F(Controls, SeparatorAndCustomChangeNothing) {
  ASSERT_EQ(PF_Err_NONE, host.ChangePopup(*instance, kPreset, 5));
  for (const A_long item : {7, 8}) {
    ASSERT_EQ(PF_Err_NONE, host.ChangePopup(*instance, kPreset, item));
    EXPECT_EQ(2.3499999046325684, instance->param(kRatio).u.fs_d.value);
    EXPECT_EQ(5, StoredPreset());
  }
}

TEST_F(Controls, TypingARatioMovesThePresetThroughAUIUpdate) {
  const struct {
    double typed;
    A_long item;
  } kTyped[] = {{1.85, 4}, {1.86, 8}, {0.0, 8},  {1.7777778, 3},
                {2.35, 5}, {1.78, 8}, {12.0, 8}, {4.0 / 3.0, 1}};
  for (const auto& typed : kTyped) {
    SCOPED_TRACE(typed.typed);
    host.log().Clear();
    ASSERT_EQ(PF_Err_NONE, host.ChangeFloat(*instance, kRatio, typed.typed));
    const auto* update = host.log().Last("PF_UpdateParamUI");
    ASSERT_NE(nullptr, update);
    EXPECT_EQ(kPreset, update->index);
    EXPECT_EQ(typed.item, update->def->u.pd.value);
    EXPECT_EQ(0, update->def->uu.change_flags & PF_ChangeFlag_CHANGED_VALUE);
    EXPECT_EQ(typed.item, instance->param(kPreset).u.pd.value);
    EXPECT_EQ(typed.item, StoredPreset());
    EXPECT_EQ(typed.typed, instance->param(kRatio).u.fs_d.value) << "the typed value stands";
    EXPECT_EQ(0, host.out_data().out_flags) << "no out-flag asked for";
  }
}

TEST_F(Controls, OtherParametersChangeNothingButStillBorrowParamUtils) {
  const std::vector<uint8_t> before = Record();
  for (const A_long index : {kRender, kColor}) {
    host.log().Clear();
    ASSERT_EQ(PF_Err_NONE, host.UserChanged(*instance, index));
    EXPECT_EQ(1, host.log().Count("AcquireSuite"));
    EXPECT_EQ(0, host.log().Count("PF_UpdateParamUI"));
    EXPECT_EQ(before, Record());
  }
}

TEST_F(Controls, UIUpdatePushesTheRecordIntoThePopup) {
  ASSERT_EQ(PF_Err_NONE, host.ChangePopup(*instance, kPreset, 6));
  instance->param(kPreset).u.pd.value = 2;  // the project disagrees until the next UI update
  ASSERT_EQ(PF_Err_NONE, host.UpdateParamsUI(*instance));
  EXPECT_EQ(6, instance->param(kPreset).u.pd.value);
  EXPECT_EQ(0, host.out_data().out_flags);
}

TEST_F(Controls, NewRecordAndReopenedProjectKeepTheirBytes) {
  std::vector<uint8_t> fresh = Record();
  ASSERT_EQ(12u, fresh.size());
  const std::vector<uint8_t> expected_new = {1, 0, 0, 0, 0, 0, kFreshHandleByte, kFreshHandleByte,
                                             0, 0, 0, 0};
  EXPECT_EQ(expected_new, fresh);

  ASSERT_EQ(PF_Err_NONE, host.ChangePopup(*instance, kPreset, 5));
  auto saved = host.Save(*instance);
  saved.sequence_bytes[4] = saved.sequence_bytes[5] = 0x7F;  // reserved bytes as some other build left them
  saved.sequence_bytes[8] = saved.sequence_bytes[11] = 0x7F;
  auto reopened = host.Reopen(saved, World(16, 9));
  ASSERT_EQ(PF_Err_NONE, reopened.err);
  const std::vector<uint8_t> expected_reopened = {5, 0, 0, 0, 0, 0, kFreshHandleByte, kFreshHandleByte,
                                                  0, 0, 0, 0};
  EXPECT_EQ(expected_reopened, host.handles().Bytes(reopened.instance.sequence_data()));
  ASSERT_EQ(PF_Err_NONE, host.UpdateParamsUI(reopened.instance));
  EXPECT_EQ(5, reopened.instance.param(kPreset).u.pd.value);

  auto duplicate = host.Duplicate(reopened.instance);
  ASSERT_EQ(PF_Err_NONE, duplicate.err);
  EXPECT_EQ(5, host.handles().Bytes(duplicate.instance.sequence_data())[0]);
  EXPECT_NE(duplicate.instance.sequence_data(), reopened.instance.sequence_data());
}

TEST_F(Controls, SecondSetupDisposesTheOldRecordFirst) {
  ASSERT_EQ(PF_Err_NONE, host.ChangePopup(*instance, kPreset, 4));
  const PF_Handle old_handle = instance->sequence_data();
  const size_t live = host.LiveHandleCount();
  host.log().Clear();
  ASSERT_EQ(PF_Err_NONE, host.SequenceSetup(*instance));
  const std::vector<std::string> order = host.log().Functions();
  std::vector<std::string> handle_calls;
  for (const auto& name : order) {
    if (name.rfind("HandleSuite.", 0) == 0) handle_calls.push_back(name);
  }
  EXPECT_EQ((std::vector<std::string>{"HandleSuite.host_dispose_handle", "HandleSuite.host_new_handle"}),
            handle_calls);
  EXPECT_EQ(old_handle, host.log().Last("HandleSuite.host_dispose_handle")->handle);
  EXPECT_EQ(1, StoredPreset());
  EXPECT_EQ(live, host.LiveHandleCount());
}

TEST_F(Controls, SetdownFreesTheRecordAndWithoutOneBorrowsNothing) {
  const size_t live = host.LiveHandleCount();
  ASSERT_EQ(PF_Err_NONE, host.Remove(*instance));
  EXPECT_EQ(live - 1, host.LiveHandleCount());
  EXPECT_TRUE(host.ForgottenHandles().empty());

  host.log().Clear();
  PF_InData in_data = host.in_data();
  in_data.sequence_data = nullptr;
  PF_OutData out_data{};
  EXPECT_EQ(PF_Err_NONE,
            host.CallRaw(PF_Cmd_SEQUENCE_SETDOWN, &in_data, &out_data, nullptr, nullptr, nullptr));
  EXPECT_EQ(0, host.log().Count("AcquireSuite"));
}

TEST_F(Controls, FlattenLeavesTheRecordAlone) {
  const PF_Handle handle = instance->sequence_data();
  const std::vector<uint8_t> before = Record();
  EXPECT_EQ(PF_Err_NONE, host.Command(*instance, PF_Cmd_SEQUENCE_FLATTEN));
  EXPECT_EQ(handle, instance->sequence_data());
  EXPECT_EQ(before, Record());
}

}  // namespace
