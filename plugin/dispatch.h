// Command dispatch: the one place where commands are routed and where every
// failure a handler throws becomes the host's result code and message.
#pragma once

#include "hostapi/ae_effect.h"

// The handlers the dispatcher routes to, filled by member name (designated
// initialisers: a name out of order or a route left out fails the build, the
// latter through -Wmissing-field-initializers, an error here). Handlers
// report failure only by throwing (a bare int host error or a DAE exception).
struct CommandHandlers {
  using Setup = PF_Err (*)(PF_InData*, PF_OutData*);
  using LayerCommand = void (*)(PF_InData*, PF_OutData*, PF_ParamDef*[], PF_LayerDef*);

  bool (*show_branded_about)(PF_InData*, PF_OutData*);
  Setup load_branding;
  Setup unload_branding;
  LayerCommand params_setup;
  LayerCommand sequence_setup;
  LayerCommand sequence_resetup;
  LayerCommand empty_command;  // sequence flatten and frame setup
  LayerCommand sequence_setdown;
  LayerCommand render;
  void (*user_changed_param)(PF_InData*, PF_OutData*, PF_ParamDef*[], PF_LayerDef*,
                             const PF_UserChangedParamExtra*);
  PF_Err (*update_params_ui)(PF_InData*, PF_OutData*, PF_ParamDef*[]);
  PF_Err (*handle_event)(PF_InData*, PF_OutData*, PF_ParamDef*[], PF_LayerDef*, PF_EventExtra*,
                         bool* handled);
};

// The effect's own routing, used by EntryPointFunc.
extern const CommandHandlers kCinebarHandlers;

PF_Err DispatchCommand(const CommandHandlers& handlers, PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data,
                       PF_ParamDef* params[], PF_LayerDef* output, void* extra);
