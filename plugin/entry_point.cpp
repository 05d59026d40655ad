// The module's only export: the host calls it once for every command.
#include "plugin/dispatch.h"

#if defined(_WIN32)
#define CINEBAR_EXPORT __declspec(dllexport)
#else
#define CINEBAR_EXPORT __attribute__((visibility("default")))
#endif

extern "C" CINEBAR_EXPORT PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data,
                                                PF_ParamDef* params[], PF_LayerDef* output, void* extra) {
  return DispatchCommand(kCinebarRoutes, cmd, in_data, out_data, params, output, extra);
}
