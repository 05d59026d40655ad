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
PF_OutData& Written(PF_OutData* out_data) {
  if (out_data == nullptr) throw static_cast<int>(PF_Err_BAD_CALLBACK_PARAM);
  return *out_data;
}

void ShowAbout(const CommandCall& call) {
  if (ShowBrandedAbout(call.in_data, call.out_data)) return;
  char text[kAboutTextSize] = {};
  std::snprintf(text, sizeof text, kAboutFormat, cinebar_identity::kDisplayName,
                static_cast<int>(cinebar_identity::kVersionMajor),
                static_cast<int>(cinebar_identity::kVersionMinor),
                static_cast<int>(cinebar_identity::kVersionBugfix), cinebar_identity::kCategory);
  std::strcpy(Written(call.out_data).return_msg, text);
}

// Only After Effects is served; every other host is turned away here, before
// anything is written.
void SetupGlobals(const CommandCall& call) {
  if (call.in_data->appl_id != PF_APPL_ID_AFTER_EFFECTS)
    throw static_cast<int>(PF_Err_INTERNAL_STRUCT_DAMAGED);
  PF_OutData& out_data = Written(call.out_data);
  out_data.my_version = cinebar_identity::kPackedVersion;
  out_data.out_flags |= cinebar_identity::kOutFlags;
  out_data.out_flags2 |= cinebar_identity::kOutFlags2;
  LoadBranding(call.in_data, &out_data);
}

// When the host refuses the header row, the effect's controls are still added
// but the custom UI is not registered, and the refusal is passed on: without
// the header every control would sit one index below where the effect reads it.
void SetupParameters(const CommandCall& call) {
  const PF_Err header = AddHeaderParam(call.in_data);
  SetupEffectParams(call.in_data, call.out_data, header == PF_Err_NONE);
  DAE::ThrowIfHostError(header);
}

// The library's answer is its own business: the host always hears "no error".
void HandleEvent(const CommandCall& call) {
  bool handled = false;
  HandleHeaderEvent(call.in_data, call.out_data, call.params, call.output,
                    static_cast<PF_EventExtra*>(call.extra), &handled);
}

constexpr CommandRoute kRoutes[] = {
    {PF_Cmd_ABOUT, Records::kInData, ShowAbout},
    {PF_Cmd_GLOBAL_SETUP, Records::kInData, SetupGlobals},
    {PF_Cmd_UNUSED_0, Records::kNothing, nullptr},
    {PF_Cmd_GLOBAL_SETDOWN, Records::kInAndOutData,
     [](const CommandCall& call) { UnloadBranding(call.in_data, call.out_data); }},
    {PF_Cmd_PARAMS_SETUP, Records::kInAndOutData, SetupParameters},
    {PF_Cmd_SEQUENCE_SETUP, Records::kInAndOutData,
     [](const CommandCall& call) { SetupSequence(call.in_data, call.out_data, call.params, call.output); }},
    {PF_Cmd_SEQUENCE_RESETUP, Records::kInAndOutData,
     [](const CommandCall& call) { ResetupSequence(call.in_data, call.out_data, call.params, call.output); }},
    {PF_Cmd_SEQUENCE_FLATTEN, Records::kInData, [](const CommandCall&) {}},
    {PF_Cmd_SEQUENCE_SETDOWN, Records::kInData,
     [](const CommandCall& call) { SetdownSequence(call.in_data, call.out_data, call.params, call.output); }},
    {PF_Cmd_DO_DIALOG, Records::kNothing, nullptr},
    {PF_Cmd_FRAME_SETUP, Records::kInData, [](const CommandCall&) {}},
    {PF_Cmd_RENDER, Records::kInData,
     [](const CommandCall& call) { RenderBars(call.in_data, call.out_data, call.params, call.output); }},
    {PF_Cmd_FRAME_SETDOWN, Records::kNothing, nullptr},
    {PF_Cmd_USER_CHANGED_PARAM, Records::kInData,
     [](const CommandCall& call) {
       HandleUserChangedParam(call.in_data, call.out_data, call.params, call.output,
                              static_cast<const PF_UserChangedParamExtra*>(call.extra));
     }},
    {PF_Cmd_UPDATE_PARAMS_UI, Records::kInData,
     [](const CommandCall& call) { UpdateParamsUI(call.in_data, call.out_data, call.params); }},
    {PF_Cmd_EVENT, Records::kInData, HandleEvent},
    {PF_Cmd_GET_EXTERNAL_DEPENDENCIES, Records::kNothing, nullptr},
    {PF_Cmd_COMPLETELY_GENERAL, Records::kNothing, nullptr},
    {PF_Cmd_QUERY_DYNAMIC_FLAGS, Records::kNothing, nullptr},
};
static_assert(EachCommandOnce(kRoutes), "every command listed once, in number order, each with its handler");

}  // namespace

constinit const std::span<const CommandRoute, kCommandCount> kCinebarRoutes{kRoutes};
