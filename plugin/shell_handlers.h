// The commands the shell answers itself, beside the effect's and the
// branding library's handlers: each takes the records its path needs.
#pragma once

#include "hostapi/ae_effect.h"

void ShowAbout(PF_InData* in_data, PF_OutData* out_data);
// Only After Effects is served; every other host is turned away before anything is written.
void SetupGlobals(PF_InData* in_data, PF_OutData* out_data);
// The header row, then the effect's controls; a refused header is passed on.
void SetupParameters(PF_InData* in_data, PF_OutData* out_data);
// The header row's events go to the branding library; the host always hears "no error".
void HandleEvent(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef** params, PF_LayerDef* output,
                 PF_EventExtra* extra);
// For commands whose path needs in_data but asks nothing of the host.
void Acknowledge();
