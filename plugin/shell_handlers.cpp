// The shell's own commands: about box, global setup, parameter setup and the
// header row's events; the routing table points at them.
#include "plugin/shell_handlers.h"

#include <cstdio>
#include <cstring>

#include "branding/branding.h"
#include "cinebar_identity.h"
#include "effect/params.h"
#include "framework/dae_exceptions.h"
#include "hostapi/ae_constants.h"

// The header row and the effect's controls meet here: the header is added
// first, so the controls start right after it.
static_assert(PARAM_HEADER + 1 == PARAM_RENDER, "the controls follow the header row");

namespace {

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

}  // namespace

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

void Acknowledge() {}
