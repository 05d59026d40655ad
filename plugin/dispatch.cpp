#include "plugin/dispatch.h"

#include "cinebar_identity.h"
#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "hostapi/ae_constants.h"
#include "plugin/call_context.h"

PF_InData* g_current_in_data = nullptr;
PF_OutData* g_current_out_data = nullptr;
HostSuiteCache* g_current_suites = nullptr;
void* g_module_instance = nullptr;

namespace {

constexpr PF_Err kMissingSuiteResult = 13;

// Messages go into out_data; a call that was given none keeps its result and loses only the text.
template <typename... Args>
void WriteMessage(PF_InData* in_data, PF_OutData* out_data, const char* format, Args... args) {
  if (out_data != nullptr) in_data->utils->ansi.sprintf(out_data->return_msg, format, args...);
}

// The row of a command; null for numbers beyond the table.
const CommandRoute* RouteOf(std::span<const CommandRoute, kCommandCount> routes, PF_Cmd cmd) {
  if (cmd < 0 || static_cast<std::size_t>(cmd) >= routes.size()) return nullptr;
  return &routes[static_cast<std::size_t>(cmd)];
}

}  // namespace

PF_Err DispatchCommand(std::span<const CommandRoute, kCommandCount> routes, PF_Cmd cmd, PF_InData* in_data,
                       PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output, void* extra) {
  const CommandRoute* route = RouteOf(routes, cmd);
  const Records needs = route != nullptr ? route->needs : Records::kNothing;
  // Without in_data there is no broker, no callback and no handler to run.
  if (in_data == nullptr) return needs == Records::kNothing ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
  if (out_data == nullptr && needs == Records::kInAndOutData) return PF_Err_BAD_CALLBACK_PARAM;

  g_current_out_data = out_data;
  g_current_in_data = in_data;
  PF_Err result = PF_Err_NONE;
  HostSuiteCache suites(in_data->pica_basicP);
  g_current_suites = &suites;
  if (g_module_instance == nullptr) {
    in_data->utils->get_platform_data(in_data->effect_ref, PF_PlatData_RES_DLLINSTANCE, &g_module_instance);
  }

  const char* const name = cinebar_identity::kEffectName;
  try {
    if (route != nullptr && route->handler.present)
      route->handler.call({cmd, in_data, out_data, params, output, extra});
  } catch (int& host_error) {
    result = host_error;
  } catch (DAE::DAECancelXCP&) {
    result = PF_Interrupt_CANCEL;
  } catch (DAE::DAEAllocXCP&) {
    result = PF_Err_OUT_OF_MEMORY;
  } catch (DAE::DAESuiteXCP& missing) {
    result = kMissingSuiteResult;
    WriteMessage(in_data, out_data, "%s is missing the suite %s", name, missing.suite_name);
  } catch (DAE::DAEMissingResourceXCP& missing) {
    WriteMessage(in_data, out_data, "%s is missing the resource %s", name, missing.resource_name);
  } catch (DAE::DAEResourceXCP& problem) {
    WriteMessage(in_data, out_data, "%s has a problem with resource %s", name, problem.resource_name);
  } catch (...) {
    result = PF_Err_INTERNAL_STRUCT_DAMAGED;
    WriteMessage(in_data, out_data, "Unknown error in %s", name);
    if (out_data != nullptr) out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
  }
  g_current_out_data = nullptr;
  return result;
}
