// The render of one frame: bar colour everywhere, then the picture cut out.
#pragma once

#include "hostapi/ae_effect.h"

void RenderBars(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output);
