// The simulated host: plays After Effects for one effect module, for tests and
// for the command-line tool. It knows the module only as an EntryPointFunc.
//
// A Host is made of its parts, each with one job:
//   HostRecords (records.h)   the records it hands out: PF_InData/PF_OutData, the callbacks, the suites
//                             its broker serves, the memory handles; Set...() change the common settings.
//   Project (project.h)       the effect's definitions, its global data and its instances, with what a
//                             user does to them: GlobalSetup(), ParamsSetup(), Apply(), ChangePopup(),
//                             Render(), Save(), Reopen(), Duplicate(), Remove(), ...
//   HostChecks (checks.h)     the strict host's checks; host_errors() lists what they found.
//   CallLog (call_log.h)      every host function the module called, and every command.
//   FaultPlan (faults.h)      fails the Nth call of any host function (host_functions.h).
// The Host itself runs the commands: it prepares the records, calls the module
// inside a scope that makes it the current host for its callbacks
// (callbacks.cpp), takes back what the module handed over and ends every
// command with the checks.
//
// What the host checks (each breach is one host error, never a crash):
//   during a command: the arguments of every host call (call_scope.h); popup item texts handed to
//     add_param, read again at every later host call of the same command (register_ui included);
//   after every command: every suite given back; nothing written into a disposed block;
//   after a command for an instance or for the globals: the handles the module returned are live,
//     every live handle is held by the host (a leak otherwise, unless the host refused to free it or
//     the command failed), and a failed command left no parameter written without a change flag or
//     a PF_UpdateParamUI call.
#pragma once

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
};

class Host : public HostRecords, public Project {
 public:
  explicit Host(PF_EntryPointFn entry, void* module_handle = nullptr);
  explicit Host(const Module& module);
  ~Host() override;

  CallLog& log() { return log_; }
  FaultPlan& faults() { return faults_; }
  HostChecks& checks() { return checks_; }
  const std::vector<std::string>& host_errors() const { return checks_.errors(); }
  CommandInProgress& current() { return current_; }
  void HostError(const std::string& text) { checks_.Error(current_.cmd, text); }

  using CommandObserver = void (*)(Host& host, PF_Cmd cmd, PF_Err err, std::size_t first_record,
                                   std::size_t first_error);
  // Called after every command with where its records begin in log() and host_errors().
  static void SetCommandObserver(CommandObserver observer);

  // The command with exactly these records; only the current-host pointer is set.
  PF_Err CallRaw(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                 PF_LayerDef* output, void* extra);
  PF_Err Command(PF_Cmd cmd, PF_ParamDef* params[] = nullptr, PF_LayerDef* output = nullptr,
                 void* extra = nullptr) override;
  PF_Err Command(Instance& instance, PF_Cmd cmd, PF_LayerDef* output = nullptr,
                 void* extra = nullptr) override;

 private:
  // One command: the module's call, the host's share of it (`take_back`), then the checks that end every
  // command.
  PF_Err Run(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output,
             void* extra, const std::function<void(PF_Err)>& take_back);

  PF_EntryPointFn entry_;
  CallLog log_;
  FaultPlan faults_;
  HostChecks checks_;
  CommandInProgress current_;
};

}  // namespace cinebar_simhost
