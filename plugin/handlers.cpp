// The effect's routing table: which handler answers which command.
#include "branding/branding.h"
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

// When the host refuses the header row, the effect's controls are still added
// but the custom UI is not registered, and the refusal is passed on: without
// the header every control would sit one index below where the effect reads it.
void SetupParameters(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*) {
  const PF_Err header = AddHeaderParam(in_data);
  SetupEffectParams(in_data, out_data, header == PF_Err_NONE);
  DAE::ThrowIfHostError(header);
}

void DoNothing(PF_InData*, PF_OutData*, PF_ParamDef*[], PF_LayerDef*) {}

constexpr CommandHandlers kRoutes{
    .show_branded_about = ShowBrandedAbout,
    .load_branding = LoadBranding,
    .unload_branding = UnloadBranding,
    .params_setup = SetupParameters,
    .sequence_setup = SetupSequence,
    .sequence_resetup = ResetupSequence,
    .empty_command = DoNothing,
    .sequence_setdown = SetdownSequence,
    .render = RenderBars,
    .user_changed_param = HandleUserChangedParam,
    .update_params_ui = UpdateParamsUI,
    .handle_event = HandleHeaderEvent,
};
}  // namespace

const CommandHandlers kCinebarHandlers = kRoutes;
