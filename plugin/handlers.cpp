// The effect's routing table: which handler answers which command.
#include "branding/branding.h"
#include "effect/params.h"
#include "effect/render.h"
#include "effect/sequence.h"
#include "framework/dae_exceptions.h"
#include "hostapi/ae_constants.h"
#include "plugin/dispatch.h"

namespace {

// The header row comes first, at index 1. When the host refuses it, the
// effect's controls are still added but the custom UI is not registered, and
// the refusal is passed on: without the header every control would sit one
// index below where the effect reads it.
void SetupParameters(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*) {
  const PF_Err header = AddHeaderParam(in_data);
  SetupEffectParams(in_data, out_data, header == PF_Err_NONE);
  DAE::ThrowIfHostError(header);
}

void DoNothing(PF_InData*, PF_OutData*, PF_ParamDef*[], PF_LayerDef*) {}

}  // namespace

const CommandHandlers kCinebarHandlers = {
    ShowBrandedAbout, LoadBranding,           UnloadBranding, SetupParameters,
    SetupSequence,    ResetupSequence,        DoNothing,      SetdownSequence,
    RenderBars,       HandleUserChangedParam, UpdateParamsUI, HandleHeaderEvent,
};
