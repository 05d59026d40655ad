// The descriptors' own defaults, as the host receives controls that leave
// them alone: every control starts collapsed, a popup on its first item, a
// slider at two decimal places.
#include <gtest/gtest.h>

#include "framework/param_descriptors.h"
#include "tests/fixtures/effect_host.h"

namespace {

PF_Err AddThree(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*, void*) {
  if (cmd != PF_Cmd_PARAMS_SETUP) return PF_Err_NONE;
  try {
    DAE::Param_Popup_Menu popup(in_data, "Pick", 7);
    popup.SetItems("One|Two|Three");
    popup.add();
    DAE::Param_Float_Slider(in_data, "Amount", 8).add();
    DAE::Param_Color(in_data, "Tint", 9).add();
  } catch (int code) {
    return code;
  }
  out_data->num_params = 4;
  return PF_Err_NONE;
}

TEST(Descriptors, DefaultsAsTheHostReceivesThem) {
  cinebar_simhost::Host host(AddThree);
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  ASSERT_EQ(3u, host.added_params().size());
  const PF_ParamType kTypes[] = {PF_Param_POPUP, PF_Param_FLOAT_SLIDER, PF_Param_COLOR};
  for (A_long i = 0; i < 3; ++i) {
    const PF_ParamDef& d = host.added_params()[static_cast<std::size_t>(i)].def;
    EXPECT_EQ(kTypes[i], d.param_type);
    EXPECT_EQ(7 + i, d.uu.id);
    EXPECT_EQ(PF_ParamFlag_START_COLLAPSED, d.flags);
  }
  const PF_PopupDef& popup = host.added_params()[0].def.u.pd;
  EXPECT_EQ(3, popup.num_choices);
  EXPECT_EQ(1, popup.dephault);
  EXPECT_EQ(2, host.added_params()[1].def.u.fs_d.precision);
}

}  // namespace
