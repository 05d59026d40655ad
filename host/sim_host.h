// The simulated host: plays After Effects for one effect module, for tests and
// for the command-line tool. It knows the module only as an EntryPointFunc.
//
// API overview
//   Module (module.h)      loads a module file and resolves EntryPointFunc; ModuleError when it cannot.
//   Host                   owns PF_InData/PF_OutData, the utility and interaction callbacks, the suite
//                          broker and four suites, the handle store, the call log and the fault plan.
//     in_data()              the base record (appl_id 'FXTC', downsample 1/1, pixel aspect 1/1, ...);
//                            Set...() change the common settings; per-call fields are set by each call.
//     out_data()             as the last call left it (it is zeroed before every call).
//     GlobalSetup(), ParamsSetup(), GlobalSetdown(), About()
//     AddInstance(input)     an effect applied to a layer; Apply(input) = AddInstance + SequenceSetup.
//     SequenceSetup/Resetup, ChangePopup/ChangeFloat/ChangeColor (a user's edit), UserChanged,
//     UpdateParamsUI, Render(instance, output), Event, Save, Reopen, Duplicate, Remove.
//     Command(cmd, ...)      any command number with the host's usual preparation;
//     CallRaw(cmd, ...)      any command with records the caller chose, untouched.
//     log()                  every host function the module called (call_log.h).
//     faults()               fail the Nth call of any host function (faults.h).
//     handles()              the memory handles (disposed ones poisoned and kept in quarantine).
//     host_errors()          misuse the host noticed; see "What the host checks" below.
//     SetCommandObserver()   a function called after every command of every host (the tests' checks).
//
// What the host checks (each breach is one host error, never a crash):
//   during a command: its arguments; popup item texts handed to add_param, read again at every later
//     host call of the same command (register_ui included): the module must keep them alive;
//   after every command: every suite given back; nothing written into a disposed block;
//   after a command for an instance or for the globals: the handles the module returned are live,
//     every live handle is held by the host (a leak otherwise, unless the host refused to free it or
//     the command failed), and a failed command left no parameter written without a change flag or
//     a PF_UpdateParamUI call.
//   World (world.h)        a pixel buffer with guard-filled row padding and its PF_LayerDef view.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/call_log.h"
#include "host/faults.h"
#include "host/handles.h"
#include "host/module.h"
#include "host/world.h"
#include "hostapi/ae_constants.h"
#include "hostapi/ae_effect.h"

namespace cinebar_simhost {

// What get_platform_data answers for PF_PlatData_MAIN_WND: a window value
// that is not null and not a real window.
constexpr std::uintptr_t kFakeMainWindow = 0x4D41494E;  // 'MAIN'
// The broker's answer for a suite it does not serve ('S!Fd').
constexpr SPErr kSuiteNotFound = 0x53214664;

// One definition the module added during parameter setup.
struct AddedParam {
  A_long index = 0;         // the index add_param was given (-1 appends)
  PF_ParamDef def{};        // full copy; a popup's u.pd.u.namesptr points at popup_items
  std::string popup_items;  // the popup's item string, copied during the call
};

// An effect applied to a layer: its parameters and its sequence data handle.
class Instance {
 public:
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  A_long param_count() const { return static_cast<A_long>(params_.size()); }
  // The host's current state of a parameter; index 0 is the input layer.
  // Throws std::out_of_range for an index the instance does not have.
  PF_ParamDef& param(A_long index);
  const PF_ParamDef& param(A_long index) const;
  PF_Handle sequence_data() const { return sequence_data_; }
  World& input() { return input_; }
  bool removed() const { return removed_; }

 private:
  friend class Host;
  explicit Instance(World input) : input_(std::move(input)) {}
  void Adopt(const std::vector<PF_ParamDef>& defs, const std::vector<std::string>& popup_items);

  World input_;
  std::vector<PF_ParamDef> params_;
  std::vector<std::string> popup_items_;  // one per parameter; never resized after Adopt
  PF_Handle sequence_data_ = nullptr;
  bool removed_ = false;
};

// An instance as a project file keeps it.
struct SavedInstance {
  bool has_sequence_data = false;
  std::vector<std::uint8_t> sequence_bytes;
  std::vector<PF_ParamDef> params;  // the values at save time; index 0 is the layer slot
  std::vector<std::string> popup_items;
};

struct NewInstance {
  Instance& instance;
  PF_Err err;  // the result of the setup or resetup command
};

class Host {
 public:
  explicit Host(PF_EntryPointFn entry, void* module_handle = nullptr);
  explicit Host(const Module& module);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // ---- settings --------------------------------------------------------------
  PF_InData& in_data() { return in_; }
  PF_OutData& out_data() { return out_; }
  void SetApplId(A_AppID id) { in_.appl_id = id; }
  void SetDownsample(PF_RationalScale x, PF_RationalScale y);
  void SetPixelAspect(PF_RationalScale ratio) { in_.pixel_aspect_ratio = ratio; }
  void SetModuleHandle(void* handle) { module_handle_ = handle; }

  // ---- observation -----------------------------------------------------------
  CallLog& log() { return log_; }
  FaultPlan& faults() { return faults_; }
  HandleStore& handles() { return handles_; }
  const std::vector<std::string>& host_errors() const { return host_errors_; }
  std::size_t LiveHandleCount() const { return handles_.LiveCount(); }
  using CommandObserver = void (*)(Host& host, PF_Cmd cmd, PF_Err err, std::size_t first_record,
                                   std::size_t first_error);
  // Called after every command with where its records begin in log() and host_errors().
  static void SetCommandObserver(CommandObserver observer);
  int SuiteOutstanding(const std::string& name, int version) const;
  int SuitesOutstanding() const;  // over all suites
  const std::deque<AddedParam>& added_params() const { return added_; }
  const std::vector<PF_CustomUIInfo>& registered_ui() const { return registered_ui_; }
  PF_Handle global_data() const { return global_data_; }
  PF_OutFlags global_out_flags() const { return global_out_flags_; }

  // ---- commands --------------------------------------------------------------
  // The command with exactly these records; only the current-host pointer is set.
  PF_Err CallRaw(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                 PF_LayerDef* output, void* extra);
  // A command outside any instance: out_data zeroed, global data in both records.
  PF_Err Command(PF_Cmd cmd, PF_ParamDef* params[] = nullptr, PF_LayerDef* output = nullptr,
                 void* extra = nullptr);
  // A command for an instance: its parameters (change flags cleared) and its
  // sequence data in in_data and, pre-set, in out_data; afterwards the host
  // takes out_data's sequence data and the module's parameter updates.
  PF_Err Command(Instance& instance, PF_Cmd cmd, PF_LayerDef* output = nullptr, void* extra = nullptr);

  PF_Err About() { return Command(PF_Cmd_ABOUT); }
  PF_Err GlobalSetup() { return Command(PF_Cmd_GLOBAL_SETUP); }
  PF_Err ParamsSetup() { return Command(PF_Cmd_PARAMS_SETUP); }
  PF_Err GlobalSetdown() { return Command(PF_Cmd_GLOBAL_SETDOWN); }  // then frees the global data

  // ---- instances -------------------------------------------------------------
  // A new instance on a layer showing `input`, its parameters at their defaults. No command is sent.
  Instance& AddInstance(World input);
  NewInstance Apply(World input);
  PF_Err SequenceSetup(Instance& instance) { return Command(instance, PF_Cmd_SEQUENCE_SETUP); }
  PF_Err SequenceResetup(Instance& instance) { return Command(instance, PF_Cmd_SEQUENCE_RESETUP); }
  // A user's edit: the value is set in the host's parameter, then PF_Cmd_USER_CHANGED_PARAM is sent.
  // The wrong parameter kind throws std::invalid_argument.
  PF_Err ChangePopup(Instance& instance, A_long index, A_long value);
  PF_Err ChangeFloat(Instance& instance, A_long index, PF_FpLong value);
  PF_Err ChangeColor(Instance& instance, A_long index, PF_Pixel value);
  PF_Err UserChanged(Instance& instance, A_long index);
  PF_Err UpdateParamsUI(Instance& instance) { return Command(instance, PF_Cmd_UPDATE_PARAMS_UI); }
  PF_Err Render(Instance& instance, World& output);
  PF_Err Event(Instance& instance, PF_EventExtra& extra, World* output = nullptr);
  // The sequence bytes and parameter values (flattened first when the module asked for it).
  SavedInstance Save(Instance& instance);
  NewInstance Reopen(const SavedInstance& saved, World input);
  NewInstance Duplicate(Instance& instance);
  // PF_Cmd_SEQUENCE_SETDOWN; the host then lets go of the instance's handle.
  PF_Err Remove(Instance& instance);

 private:
  friend struct HostCallbacks;

  Instance& NewInstanceFrom(World input, const std::vector<PF_ParamDef>& defs,
                            const std::vector<std::string>& popup_items);
  // One command: the module's call, the host's share of it (`take_back`), then the checks that end every
  // command.
  PF_Err Run(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output,
             void* extra, const std::function<void(PF_Err)>& take_back);
  void CheckOwnership(PF_Err err, const std::vector<PF_Handle>& held_before);
  std::vector<PF_Handle> Held() const;
  PF_Handle Returned(PF_Handle handle, const char* what);
  CallRecord& Begin(const std::string& function, const std::string& args);
  bool Faulted(const std::string& function, CallRecord& record, Fault* fault);
  void HostError(const std::string& text);
  void CheckLive(const Instance& instance) const;

  PF_EntryPointFn entry_;
  void* module_handle_;
  PF_InData in_{};
  PF_OutData out_{};
  PF_UtilCallbacks utils_{};
  SPBasicSuite basic_{};
  PF_FillMatteSuite2 fill_suite_{};
  PF_WorldTransformSuite1 transform_suite_{};
  PF_HandleSuite1 handle_suite_{};
  PF_ParamUtilsSuite3 param_utils_suite_{};
  char effect_tag_ = 0;  // its address is the effect_ref

  CallLog log_;
  FaultPlan faults_;
  HandleStore handles_;
  std::vector<std::string> host_errors_;
  std::map<std::pair<std::string, int>, int> outstanding_;

  PF_Cmd current_cmd_ = -1;
  Instance* current_instance_ = nullptr;
  std::vector<std::pair<A_long, PF_ParamDef>> ui_updates_;  // PF_UpdateParamUI calls of the current command

  std::deque<AddedParam> added_;
  std::vector<PF_CustomUIInfo> registered_ui_;
  PF_Handle global_data_ = nullptr;
  PF_OutFlags global_out_flags_ = 0;
  std::vector<PF_Handle> abandoned_;  // live, but neither side can free them: not leaks
  struct KeptText {
    A_long param;
    const A_char* items;
    std::string copy;
  };
  std::vector<KeptText> kept_texts_;  // popup items of the command in progress
  bool checking_texts_ = false;
  std::vector<std::unique_ptr<Instance>> instances_;
};

}  // namespace cinebar_simhost
