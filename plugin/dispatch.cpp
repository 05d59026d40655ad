#include "plugin/dispatch.h"

#include <cstdio>
#include <cstring>

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

constexpr int kAboutTextSize = 200;
// Lines after the first are separated by carriage returns, as the host's about box expects.
constexpr char kAboutFormat[] =
    "Tarnwick Cadre %d.%d.%d\r"
    "Aspect-ratio bars for After Effects\r"
    "Part of the TW Lenscraft Suite";

constexpr PF_Err kMissingSuiteResult = 13;

// Which host records a command's handler works on. A command that routes to
// nothing (or to the empty handler) answers "no error" whatever it is given;
// one whose handler needs a record the host left null is refused instead of
// crashing.
enum class Needs { kNothing, kInData, kInAndOutData };

constexpr Needs RecordsNeeded(PF_Cmd cmd) {
  switch (cmd) {
    case PF_Cmd_ABOUT:
    case PF_Cmd_GLOBAL_SETUP:
    case PF_Cmd_GLOBAL_SETDOWN:
    case PF_Cmd_PARAMS_SETUP:
    case PF_Cmd_SEQUENCE_SETUP:
    case PF_Cmd_SEQUENCE_RESETUP:
    case PF_Cmd_SEQUENCE_SETDOWN:
    case PF_Cmd_EVENT:
      return Needs::kInAndOutData;
    case PF_Cmd_RENDER:  // the render, the parameter handlers and the empty handler never touch out_data
    case PF_Cmd_USER_CHANGED_PARAM:
    case PF_Cmd_UPDATE_PARAMS_UI:
    case PF_Cmd_SEQUENCE_FLATTEN:
    case PF_Cmd_FRAME_SETUP:
      return Needs::kInData;
    default:
      return Needs::kNothing;
  }
}

// Messages go into out_data; a call that was given none keeps its result and loses only the text.
template <typename... Args>
void WriteMessage(PF_InData* in_data, PF_OutData* out_data, const char* format, Args... args) {
  if (out_data != nullptr) in_data->utils->ansi.sprintf(out_data->return_msg, format, args...);
}

void WriteAboutText(PF_OutData* out_data) {
  char text[kAboutTextSize] = {};
  std::snprintf(text, sizeof text, kAboutFormat, static_cast<int>(cinebar_identity::kVersionMajor),
                static_cast<int>(cinebar_identity::kVersionMinor),
                static_cast<int>(cinebar_identity::kVersionBugfix));
  std::strcpy(out_data->return_msg, text);
}

// Only After Effects is served; every other host is turned away here.
void SetupGlobals(const CommandHandlers& handlers, PF_InData* in_data, PF_OutData* out_data) {
  if (in_data->appl_id != PF_APPL_ID_AFTER_EFFECTS) throw static_cast<int>(PF_Err_INTERNAL_STRUCT_DAMAGED);
  out_data->my_version = cinebar_identity::kPackedVersion;
  out_data->out_flags |= cinebar_identity::kOutFlags;
  out_data->out_flags2 |= cinebar_identity::kOutFlags2;
  handlers.load_branding(in_data, out_data);
}

void Route(const CommandHandlers& handlers, PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data,
           PF_ParamDef* params[], PF_LayerDef* output, void* extra) {
  switch (cmd) {
    case PF_Cmd_ABOUT:
      if (!handlers.show_branded_about(in_data, out_data)) WriteAboutText(out_data);
      break;
    case PF_Cmd_GLOBAL_SETUP:
      SetupGlobals(handlers, in_data, out_data);
      break;
    case PF_Cmd_GLOBAL_SETDOWN:
      handlers.unload_branding(in_data, out_data);
      break;
    case PF_Cmd_PARAMS_SETUP:
      handlers.params_setup(in_data, out_data, params, output);
      break;
    case PF_Cmd_SEQUENCE_SETUP:
      handlers.sequence_setup(in_data, out_data, params, output);
      break;
    case PF_Cmd_SEQUENCE_RESETUP:
      handlers.sequence_resetup(in_data, out_data, params, output);
      break;
    case PF_Cmd_SEQUENCE_FLATTEN:
    case PF_Cmd_FRAME_SETUP:
      handlers.empty_command(in_data, out_data, params, output);
      break;
    case PF_Cmd_SEQUENCE_SETDOWN:
      handlers.sequence_setdown(in_data, out_data, params, output);
      break;
    case PF_Cmd_RENDER:
      handlers.render(in_data, out_data, params, output);
      break;
    case PF_Cmd_USER_CHANGED_PARAM:
      handlers.user_changed_param(in_data, out_data, params, output,
                                  static_cast<const PF_UserChangedParamExtra*>(extra));
      break;
    case PF_Cmd_UPDATE_PARAMS_UI:
      handlers.update_params_ui(in_data, out_data, params);
      break;
    case PF_Cmd_EVENT: {
      // The library's answer is its own business: the host always hears "no error".
      bool handled = false;
      handlers.handle_event(in_data, out_data, params, output, static_cast<PF_EventExtra*>(extra), &handled);
      break;
    }
    default:  // commands the effect does not use
      break;
  }
}

}  // namespace

PF_Err DispatchCommand(const CommandHandlers& handlers, PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data,
                       PF_ParamDef* params[], PF_LayerDef* output, void* extra) {
  if (in_data == nullptr || out_data == nullptr) {
    const Needs needs = RecordsNeeded(cmd);
    // Without in_data there is no broker, no callback and no handler to run.
    if (in_data == nullptr) return needs == Needs::kNothing ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
    if (needs == Needs::kInAndOutData) return PF_Err_BAD_CALLBACK_PARAM;
  }

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
    Route(handlers, cmd, in_data, out_data, params, output, extra);
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
