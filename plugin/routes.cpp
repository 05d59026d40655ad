// The effect's routing table: one row per command, saying which records its
// path needs and which handler answers it.
#include <cstdio>
#include <cstring>

#include "branding/branding.h"
#include "cinebar_identity.h"
#include "effect/params.h"
#include "effect/render.h"
#include "effect/sequence.h"
#include "framework/dae_exceptions.h"
#include "hostapi/ae_constants.h"
#include "plugin/dispatch.h"
#include "plugin/route.h"

namespace {

// The header row and the effect's controls meet here: the header is added
// first, so the controls start right after it.
static_assert(PARAM_HEADER + 1 == PARAM_RENDER, "the controls follow the header row");

constexpr int kAboutTextSize = 200;
// Lines after the first are separated by carriage returns, as the host's about box expects.
constexpr char kAboutFormat[] =
    "%s %d.%d.%d\r"
    "Aspect-ratio bars for After Effects\r"
    "Part of the %s";

// The output record of a path that writes into it; a host that gave none
// has the command refused at this point, with nothing written.
PF_OutData& RequireOutData(PF_OutData* out_data) {
  if (out_data == nullptr) throw static_cast<int>(PF_Err_BAD_CALLBACK_PARAM);
  return *out_data;
}

void ShowAbout(PF_InData* in_data, PF_OutData* out_data) {
  if (ShowBrandedAbout(in_data, out_data)) return;
  char text[kAboutTextSize] = {};
  std::snprintf(text, sizeof text, kAboutFormat, cinebar_identity::kDisplayName,
                static_cast<int>(cinebar_identity::kVersionMajor),
                static_cast<int>(cinebar_identity::kVersionMinor),
                static_cast<int>(cinebar_identity::kVersionBugfix), cinebar_identity::kCategory);
  std::strcpy(RequireOutData(out_data).return_msg, text);
}

// Only After Effects is served; every other host is turned away here, before
// anything is written.
void SetupGlobals(PF_InData* in_data, PF_OutData* out_data) {
  if (in_data->appl_id != PF_APPL_ID_AFTER_EFFECTS) throw static_cast<int>(PF_Err_INTERNAL_STRUCT_DAMAGED);
  PF_OutData& written = RequireOutData(out_data);
  written.my_version = cinebar_identity::kPackedVersion;
  written.out_flags |= cinebar_identity::kOutFlags;
  written.out_flags2 |= cinebar_identity::kOutFlags2;
  LoadBranding(in_data, &written);
}

// When the host refuses the header row, the effect's controls are still added
// but the custom UI is not registered, and the refusal is passed on: without
// the header every control would sit one index below where the effect reads it.
void SetupParameters(PF_InData* in_data, PF_OutData* out_data) {
  const PF_Err header = AddHeaderParam(in_data);
  SetupEffectParams(in_data, out_data, header == PF_Err_NONE);
  DAE::ThrowIfHostError(header);
}

// The library's answer is its own business: the host always hears "no error".
void HandleEvent(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef** params, PF_LayerDef* output,
                 PF_EventExtra* extra) {
  bool handled = false;
  HandleHeaderEvent(in_data, out_data, params, output, extra, &handled);
}

// Commands whose path needs in_data but asks nothing of the host.
void Acknowledge() {}

constexpr CommandRoute kRoutes[] = {
    {PF_Cmd_ABOUT, Records::kInData, Route<ShowAbout>},
    {PF_Cmd_GLOBAL_SETUP, Records::kInData, Route<SetupGlobals>},
    {PF_Cmd_UNUSED_0, Records::kNothing, nullptr},
    {PF_Cmd_GLOBAL_SETDOWN, Records::kInAndOutData, Route<UnloadBranding>},
    {PF_Cmd_PARAMS_SETUP, Records::kInAndOutData, Route<SetupParameters>},
    {PF_Cmd_SEQUENCE_SETUP, Records::kInAndOutData, Route<SetupSequence>},
    {PF_Cmd_SEQUENCE_RESETUP, Records::kInAndOutData, Route<ResetupSequence>},
    {PF_Cmd_SEQUENCE_FLATTEN, Records::kInData, Route<Acknowledge>},
    {PF_Cmd_SEQUENCE_SETDOWN, Records::kInData, Route<SetdownSequence>},
    {PF_Cmd_DO_DIALOG, Records::kNothing, nullptr},
    {PF_Cmd_FRAME_SETUP, Records::kInData, Route<Acknowledge>},
    {PF_Cmd_RENDER, Records::kInData, Route<RenderBars>},
    {PF_Cmd_FRAME_SETDOWN, Records::kNothing, nullptr},
    {PF_Cmd_USER_CHANGED_PARAM, Records::kInData, Route<HandleUserChangedParam>},
    {PF_Cmd_UPDATE_PARAMS_UI, Records::kInData, Route<UpdateParamsUI>},
    {PF_Cmd_EVENT, Records::kInData, Route<HandleEvent>},
    {PF_Cmd_GET_EXTERNAL_DEPENDENCIES, Records::kNothing, nullptr},
    {PF_Cmd_COMPLETELY_GENERAL, Records::kNothing, nullptr},
    {PF_Cmd_QUERY_DYNAMIC_FLAGS, Records::kNothing, nullptr},
};
static_assert(EachCommandOnce(kRoutes), "every command listed once, in number order, each with its handler");

}  // namespace

constinit const std::span<const CommandRoute, kCommandCount> kCinebarRoutes{kRoutes};
