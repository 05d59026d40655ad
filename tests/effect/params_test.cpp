// The effect's controls and its sequence record on the real module, driven
// through the simulated host as a user and a project would drive them.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fixtures/effect_host.h"

namespace {

using cinebar_simhost::Host;
using cinebar_simhost::Instance;
using cinebar_simhost::kFreshHandleByte;
using cinebar_simhost::World;

class Controls : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
    ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
    auto applied = host.Apply(World(16, 9));
    ASSERT_EQ(PF_Err_NONE, applied.err);
    instance = &applied.instance;
  }
  std::vector<uint8_t> Record(const Instance& of) { return host.handles().Bytes(of.sequence_data()); }

  Host host{TheModule()};
  Instance* instance = nullptr;
};

// Byte for byte, as the host copies each definition: every field not set here is zero.
TEST_F(Controls, DefinitionsAsTheHostReceivesThem) {
  const char* const kNames[] = {"Render", "Preset", "Aspect Ratio", "Color"};
  const PF_ParamType kTypes[] = {PF_Param_POPUP, PF_Param_POPUP, PF_Param_FLOAT_SLIDER, PF_Param_COLOR};
  const PF_ParamFlags kFlags[] = {0x20, 0x62, 0x60, 0x20};
  const char* const kItems[] = {"On Transparent|On Image",
                                "4:3 (Academy)|1.66:1 (Super 16)|16:9 (Widescreen TV)|1.85:1 (Theatrical)|"
                                "2.35:1 (Anamorphic)|2.76:1 (Ultra)|(-|Custom",
                                "", ""};
  PF_ParamDef want[4];
  std::memset(want, 0, sizeof want);
  for (A_long i = 0; i < 4; ++i) {
    want[i].param_type = kTypes[i];
    want[i].uu.id = i + 1;
    want[i].flags = kFlags[i];
    std::strcpy(want[i].name, kNames[i]);
  }
  want[0].u.pd.num_choices = want[0].u.pd.dephault = 2;
  want[1].u.pd.num_choices = 8;
  want[1].u.pd.dephault = 1;
  want[1].ui_flags = PF_PUI_STD_CONTROL_ONLY;
  PF_FloatSliderDef& ratio = want[2].u.fs_d;
  ratio.valid_max = 12.0f;
  ratio.slider_max = 3.0f;
  ratio.dephault = 4.0f / 3.0f;
  ratio.value = 1.3333333730697632;
  ratio.precision = 3;
  want[3].u.cd.value = want[3].u.cd.dephault = PF_Pixel{255, 0, 0, 0};
  ASSERT_EQ(std::size(want) + 1, host.added_params().size());  // the header, then the controls held here
  for (size_t i = 0; i < std::size(want); ++i) {
    const cinebar_simhost::AddedParam& got = host.added_params()[i + 1];
    EXPECT_EQ(-1, got.index);
    EXPECT_EQ(kItems[i], got.popup_items);
    if (kTypes[i] == PF_Param_POPUP) want[i].u.pd.u.namesptr = got.def.u.pd.u.namesptr;  // the host's copy
    EXPECT_EQ(0, std::memcmp(&want[i], &got.def, sizeof got.def)) << kNames[i];
  }
  ASSERT_EQ(1u, host.registered_ui().size());
  PF_CustomUIInfo ui{};
  ui.events = PF_CustomEFlag_EFFECT;
  EXPECT_EQ(0, std::memcmp(&ui, &host.registered_ui()[0], sizeof ui));
}

TEST_F(Controls, PresetAndRatioFollowEachOtherAndTheRecordRemembers) {
  constexpr double k235 = 2.3499999046325684;
  const struct {
    A_long index;
    double value;  // a popup item, a typed ratio, or a colour's red
    double ratio;  // "Aspect Ratio" afterwards
    A_long preset, stored;
  } kEdits[] = {
      {PARAM_PRESET, 3, 1.7777777910232544, 3, 3},
      {PARAM_PRESET, 6, 2.759999990463257, 6, 6},
      {PARAM_PRESET, 2, 1.659999966621399, 2, 2},
      {PARAM_PRESET, 4, 1.850000023841858, 4, 4},
      {PARAM_PRESET, 1, 1.3333333730697632, 1, 1},
      {PARAM_PRESET, 5, k235, 5, 5},
      {PARAM_PRESET, 7, k235, 7, 5},
      {PARAM_PRESET, 8, k235, 8, 5},  // the separator and "Custom" move nothing
      {PARAM_ASPECT_RATIO, 1.85, 1.85, 4, 4},
      {PARAM_ASPECT_RATIO, 1.86, 1.86, 8, 8},
      {PARAM_ASPECT_RATIO, 1.7777778, 1.7777778, 3, 3},
      {PARAM_ASPECT_RATIO, 1.78, 1.78, 8, 8},
      {PARAM_ASPECT_RATIO, 4.0 / 3.0, 4.0 / 3.0, 1, 1},
      {PARAM_ASPECT_RATIO, 12.0, 12.0, 8, 8},
      {PARAM_ASPECT_RATIO, 2.35, 2.35, 5, 5},
      {PARAM_ASPECT_RATIO, 0.0, 0.0, 8, 8},
      {PARAM_COLOR, 200, 0.0, 8, 8},
      {PARAM_RENDER, 1, 0.0, 8, 8},  // not watched: nothing moves
  };
  for (const auto& edit : kEdits) {
    SCOPED_TRACE(::testing::Message() << "parameter " << edit.index << " set to " << edit.value);
    host.log().Clear();
    const PF_Err err =
        edit.index == PARAM_PRESET         ? host.ChangePopup(*instance, PARAM_PRESET, A_long(edit.value))
        : edit.index == PARAM_ASPECT_RATIO ? host.ChangeFloat(*instance, PARAM_ASPECT_RATIO, edit.value)
        : edit.index == PARAM_COLOR
            ? host.ChangeColor(*instance, PARAM_COLOR, {255, A_u_char(edit.value), 0, 0})
            : host.ChangePopup(*instance, PARAM_RENDER, A_long(edit.value));
    ASSERT_EQ(PF_Err_NONE, err);
    EXPECT_EQ(edit.ratio, instance->param(PARAM_ASPECT_RATIO).u.fs_d.value);
    EXPECT_EQ(edit.preset, instance->param(PARAM_PRESET).u.pd.value);
    EXPECT_EQ(edit.stored, Record(*instance)[0]);
    EXPECT_EQ(1, host.log().Count(HostFn::kAcquireSuite)) << "Param Utils, whatever changed";
    const auto* update = host.log().Last(HostFn::kUpdateParamUi);
    ASSERT_EQ(edit.index == PARAM_ASPECT_RATIO, update != nullptr)
        << "the popup moves through a UI update only";
    if (update != nullptr) {
      EXPECT_EQ(PARAM_PRESET, update->index);
      EXPECT_EQ(0, update->def->uu.change_flags);
    }
    EXPECT_EQ(0, host.out_data().out_flags);
  }
  instance->param(PARAM_PRESET).u.pd.value = 2;  // the project disagrees until the next UI update
  ASSERT_EQ(PF_Err_NONE, host.UpdateParamsUI(*instance));
  EXPECT_EQ(8, instance->param(PARAM_PRESET).u.pd.value);
}

TEST_F(Controls, TheRecordIsNewAtSetupKeptThroughProjectsAndFreedAtSetdown) {
  const uint8_t x = kFreshHandleByte;  // never written
  EXPECT_EQ(std::vector<uint8_t>({1, 0, 0, 0, 0, 0, x, x, 0, 0, 0, 0}), Record(*instance));
  ASSERT_EQ(PF_Err_NONE, host.ChangePopup(*instance, PARAM_PRESET, 5));
  auto saved = host.Save(*instance);
  saved.sequence_bytes[4] = saved.sequence_bytes[5] = saved.sequence_bytes[8] = saved.sequence_bytes[11] =
      0x7F;
  auto reopened = host.Reopen(saved, World(16, 9));
  ASSERT_EQ(PF_Err_NONE, reopened.err);
  EXPECT_EQ(std::vector<uint8_t>({5, 0, 0, 0, 0, 0, x, x, 0, 0, 0, 0}), Record(reopened.instance));
  saved.has_sequence_data = false;  // a project without the record gets a new one
  EXPECT_EQ(std::vector<uint8_t>({1, 0, 0, 0, 0, 0, x, x, 0, 0, 0, 0}),
            Record(host.Reopen(saved, World(16, 9)).instance));
  // A host that presents the record in in_data alone gets it back in out_data, reserved bytes cleared.
  host.handles().SetBytes(instance->sequence_data(), saved.sequence_bytes);
  PF_InData in_data = host.in_data();
  in_data.sequence_data = instance->sequence_data();
  PF_OutData out_data{};
  ASSERT_EQ(PF_Err_NONE,
            host.CallRaw(PF_Cmd_SEQUENCE_RESETUP, &in_data, &out_data, nullptr, nullptr, nullptr));
  EXPECT_EQ(instance->sequence_data(), out_data.sequence_data);
  EXPECT_EQ(std::vector<uint8_t>({5, 0, 0, 0, 0, 0, x, x, 0, 0, 0, 0}), Record(*instance));

  host.log().Clear();
  ASSERT_EQ(PF_Err_NONE, host.SequenceSetup(*instance));  // a second setup starts again
  std::vector<HostFn> handle_calls;
  for (const auto& call : host.log().records()) {
    if (Row(call.fn).suite == &cinebar_simhost::kSuite<PF_HandleSuite1>) handle_calls.push_back(call.fn);
  }
  EXPECT_EQ(std::vector<HostFn>({HostFn::kSuiteDisposeHandle, HostFn::kSuiteNewHandle}), handle_calls);
  EXPECT_EQ(1, Record(*instance)[0]);
  ASSERT_EQ(PF_Err_NONE, host.Remove(*instance));
  host.log().Clear();
  ASSERT_EQ(PF_Err_NONE, host.Remove(host.AddInstance(World(4, 4))));  // nothing to free, nothing borrowed
  EXPECT_EQ(0, host.log().Count(HostFn::kAcquireSuite));
}

}  // namespace
