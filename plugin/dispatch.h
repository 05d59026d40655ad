// Command dispatch: the one place where commands are routed and where every
// failure a handler throws becomes the host's result code and message.
#pragma once

#include <span>

#include "hostapi/ae_effect.h"
#include "plugin/command_route.h"
#include "plugin/routes.h"

PF_Err DispatchCommand(std::span<const CommandRoute, kCommandCount> routes, PF_Cmd cmd, PF_InData* in_data,
                       PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output, void* extra);
