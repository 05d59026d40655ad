// The simulated host: plays After Effects for one effect module, for tests and
// for the command-line tool. It knows the module only as an EntryPointFunc.
//
// A Host is made of parts, each with one job, which it owns and keeps to itself:
//   HostRecords (records.h)   the records it hands out: PF_InData/PF_OutData, the callbacks, the suites
//                             its broker serves, the memory handles.
//   Project (project.h)       the effect's definitions, its global data and its instances.
//   HostChecks (checks.h)     the strict host's checks; host_errors() lists what they found.
//   CallLog (call_log.h)      every host function the module called, and every command.
//   FaultPlan (faults.h)      fails the Nth call of any host function (host_functions.h).
// A test sees what a user does (GlobalSetup(), Apply(), ChangePopup(), Render(),
// Save(), Reopen(), ...), the host's settings, the log, the fault plan and the
// errors. The host runs every command: it prepares the records, calls the module
// inside a scope that makes it the current host for its callbacks
// (callbacks.cpp, which reach the parts through host_inside.h), takes back what
// the module handed over and ends every command with the checks.
//
// What the host checks (each breach is one host error, never a crash):
//   during a command: the arguments of every host call (call_scope.h); popup item texts handed to
//     add_param, read again at every later host call of the same command (register_ui included);
//     a disk ID added twice in one parameter setup;
//   after every command: every suite given back; nothing written into a disposed block;
//   after a command for an instance or for the globals: the handles the module returned are live,
//     every live handle is held by the host (a leak otherwise, unless the host refused to free it or
//     the command failed), and a failed command left no parameter written without a change flag or
//     a PF_UpdateParamUI call.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/call_log.h"
#include "host/checks.h"
#include "host/faults.h"
#include "host/module.h"
#include "host/project.h"
#include "host/records.h"

namespace cinebar_simhost {

// The command in progress, as the host's functions see it.
struct CommandInProgress {
  PF_Cmd cmd = -1;
  Instance* instance = nullptr;                            // the instance it is for, if any
  std::vector<std::pair<A_long, PF_ParamDef>> ui_updates;  // its PF_UpdateParamUI calls
  std::vector<const World*> without_pixels;                // its worlds whose drawing is only recorded
  // Whether `data` lies in one of those worlds.
  bool WithoutPixels(const void* data) const;
};

class Host {
 public:
  explicit Host(PF_EntryPointFn entry, void* module_handle = nullptr);
  explicit Host(const Module& module);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // ---- the records and the host's settings ----------------------------------------
  // The base record (appl_id 'FXTC', downsample 1/1, pixel aspect 1/1, ...); each command sets its own
  // fields.
  PF_InData& in_data() { return records_.in_data(); }
  PF_OutData& out_data() { return records_.out_data(); }  // as the last command left it
  HandleStore& handles() { return records_.handles(); }
  void SetApplId(A_AppID id) { records_.in_data().appl_id = id; }
  void SetDownsample(PF_RationalScale x, PF_RationalScale y) { records_.SetDownsample(x, y); }
  void SetPixelAspect(PF_RationalScale ratio) { records_.in_data().pixel_aspect_ratio = ratio; }
  void SetModuleHandle(void* handle) { records_.SetModuleHandle(handle); }

  // ---- what a user does -------------------------------------------------------------
  PF_Err About() { return Command(PF_Cmd_ABOUT); }
  PF_Err GlobalSetup() { return Command(PF_Cmd_GLOBAL_SETUP); }
  PF_Err ParamsSetup() { return Command(PF_Cmd_PARAMS_SETUP); }
  PF_Err GlobalSetdown() { return Command(PF_Cmd_GLOBAL_SETDOWN); }  // then frees the global data
  // A new instance on a layer showing `input`, its parameters at their defaults. No command is sent.
  Instance& AddInstance(World input) { return project_.AddInstance(std::move(input)); }
  NewInstance Apply(World input);  // AddInstance, then sequence setup
  PF_Err SequenceSetup(Instance& instance) { return Command(instance, PF_Cmd_SEQUENCE_SETUP); }
  PF_Err SequenceResetup(Instance& instance) { return Command(instance, PF_Cmd_SEQUENCE_RESETUP); }
  // A user's edit: the value is set in the host's parameter, then PF_Cmd_USER_CHANGED_PARAM is sent.
  // The wrong parameter kind throws std::invalid_argument.
  PF_Err ChangePopup(Instance& instance, A_long index, A_long value);
  PF_Err ChangeFloat(Instance& instance, A_long index, PF_FpLong value);
  PF_Err ChangeColor(Instance& instance, A_long index, PF_Pixel value);
  PF_Err UserChanged(Instance& instance, A_long index);
  PF_Err UpdateParamsUI(Instance& instance) { return Command(instance, PF_Cmd_UPDATE_PARAMS_UI); }
  // Either world may be one without pixels: the module's fills and copies
  // into it are checked and recorded as always, and draw nothing.
  PF_Err Render(Instance& instance, World& output);
  PF_Err Event(Instance& instance, PF_EventExtra& extra, World* output = nullptr);
  // The sequence bytes and parameter values (flattened first when the module asked for it).
  SavedInstance Save(Instance& instance);
  NewInstance Reopen(const SavedInstance& saved, World input);
  NewInstance Duplicate(Instance& instance);
  // PF_Cmd_SEQUENCE_SETDOWN; the host then lets go of the instance's handle.
  PF_Err Remove(Instance& instance);

  // ---- commands as they are sent ---------------------------------------------------
  // A command outside any instance: out_data zeroed, global data in both records.
  PF_Err Command(PF_Cmd cmd, PF_ParamDef* params[] = nullptr, PF_LayerDef* output = nullptr,
                 void* extra = nullptr);
  // A command for an instance: its parameters (change flags cleared) and its
  // sequence data in in_data and, pre-set, in out_data; afterwards the host
  // takes out_data's sequence data and the module's parameter updates.
  PF_Err Command(Instance& instance, PF_Cmd cmd, PF_LayerDef* output = nullptr, void* extra = nullptr);
  // The command with exactly these records; only the current-host pointer is set.
  PF_Err CallRaw(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                 PF_LayerDef* output, void* extra);

  // ---- what it holds and what it saw --------------------------------------------------
  const std::deque<AddedParam>& added_params() const { return project_.added_params(); }
  const std::vector<PF_CustomUIInfo>& registered_ui() const { return project_.registered_ui(); }
  PF_Handle global_data() const { return project_.global_data(); }
  CallLog& log() { return log_; }
  FaultPlan& faults() { return faults_; }
  const std::vector<std::string>& host_errors() const { return checks_.errors(); }

  using CommandObserver = void (*)(Host& host, PF_Cmd cmd, PF_Err err, std::size_t first_record,
                                   std::size_t first_error);
  // Called after every command with where its records begin in log() and host_errors().
  static void SetCommandObserver(CommandObserver observer);

 private:
  friend class HostInside;  // the host's own functions (host_inside.h)

  // One command: the module's call, the host's share of it (`take_back`), then the checks that end every
  // command.
  PF_Err Run(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output,
             void* extra, const std::function<void(PF_Err)>& take_back);
  void HostError(const std::string& text) { checks_.Error(current_.cmd, text); }

  PF_EntryPointFn entry_;
  HostRecords records_;
  Project project_;
  CallLog log_;
  FaultPlan faults_;
  HostChecks checks_;
  CommandInProgress current_;
};

}  // namespace cinebar_simhost
