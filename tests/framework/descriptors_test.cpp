// The descriptors' own defaults, as the host receives a control that leaves
// them alone: every control starts collapsed, a popup on its first item, a
// slider at two decimal places.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "framework/param_descriptors.h"
#include "tests/fixtures/effect_host.h"

namespace {

std::function<void(PF_InData*)> g_add;

PF_Err AddOne(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*, void*) {
  if (cmd != PF_Cmd_PARAMS_SETUP) return PF_Err_NONE;
  try {
    g_add(in_data);
  } catch (int code) {
    return code;
  }
  out_data->num_params = 2;
  return PF_Err_NONE;
}

struct Case {
  const char* name;
  std::function<void(PF_InData*)> add;
  PF_ParamType type;
  std::function<void(const PF_ParamDef&)> check;
};

TEST(Descriptors, DefaultsAsTheHostReceivesThem) {
  const Case cases[] = {
      {"popup",
       [](PF_InData* in) {
         DAE::Param_Popup_Menu p(in, "Pick", 7);
         p.SetItems("One|Two|Three");
         p.add();
       },
       PF_Param_POPUP,
       [](const PF_ParamDef& d) {
         EXPECT_EQ(3, d.u.pd.num_choices);
         EXPECT_EQ(1, d.u.pd.dephault);
       }},
      {"slider", [](PF_InData* in) { DAE::Param_Float_Slider(in, "Amount", 7).add(); }, PF_Param_FLOAT_SLIDER,
       [](const PF_ParamDef& d) { EXPECT_EQ(2, d.u.fs_d.precision); }},
      {"color", [](PF_InData* in) { DAE::Param_Color(in, "Tint", 7).add(); }, PF_Param_COLOR,
       [](const PF_ParamDef&) {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    cinebar_simhost::Host host(AddOne);
    g_add = c.add;
    ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
    ASSERT_EQ(1u, host.added_params().size());
    const PF_ParamDef& d = host.added_params()[0].def;
    EXPECT_EQ(c.type, d.param_type);
    EXPECT_EQ(7, d.uu.id);
    EXPECT_EQ(PF_ParamFlag_START_COLLAPSED, d.flags);
    c.check(d);
  }
}

}  // namespace
