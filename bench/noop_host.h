// A host whose functions do nothing: every callback and suite function returns
// success at once, so a benchmark of the module measures the module's own
// work. The records are filled the way the host fills them for the commands
// measured here (render, user change, parameter setup).
#pragma once

#include <string>

#include "effect/params.h"
#include "host/module.h"
#include "hostapi/ae_constants.h"
#include "hostapi/ae_effect.h"

namespace cinebar_bench {

class NoOpHost {
 public:
  // The module's parameters as After Effects hands them over after parameter
  // setup: the layer, the header, Render, Preset, Aspect Ratio, Color.
  static constexpr int kParamCount = PARAM_NUM_PARAMS;

  NoOpHost(PF_EntryPointFn entry, A_long width, A_long height, bool deep);

  PF_Err Render();
  PF_Err UserChanged(A_long index);
  PF_Err ParamsSetup();
  PF_ParamDef& param(int index) { return params_[index]; }

 private:
  PF_Err Call(PF_Cmd cmd, PF_LayerDef* output, void* extra);

  PF_EntryPointFn entry_;
  PF_InData in_{};
  PF_OutData out_{};
  PF_UtilCallbacks utils_{};
  SPBasicSuite basic_{};
  PF_ParamDef params_[kParamCount]{};
  PF_ParamDef* param_list_[kParamCount]{};
  PF_LayerDef output_{};
  unsigned char sequence_bytes_[16]{};
  void* sequence_master_ = sequence_bytes_;
  char effect_tag_ = 0;
};

// The module at $CINEBAR_MODULE, or the one of this build tree.
std::string ModulePath();

}  // namespace cinebar_bench
