// The project side of the simulated host: the effect's definitions as the
// module added them, its global data, and the instances applied to layers,
// with what a user does to them (apply, change, render, save, reopen,
// duplicate, remove). Commands are sent through Command(), which the host
// that owns the project implements.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/checks.h"
#include "host/handles.h"
#include "host/world.h"
#include "hostapi/ae_constants.h"

namespace cinebar_simhost {

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
  friend class Project;
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

class Project {
 public:
  Project(const Project&) = delete;
  Project& operator=(const Project&) = delete;

  // A command outside any instance: out_data zeroed, global data in both records.
  virtual PF_Err Command(PF_Cmd cmd, PF_ParamDef* params[] = nullptr, PF_LayerDef* output = nullptr,
                         void* extra = nullptr) = 0;
  // A command for an instance: its parameters (change flags cleared) and its
  // sequence data in in_data and, pre-set, in out_data; afterwards the host
  // takes out_data's sequence data and the module's parameter updates.
  virtual PF_Err Command(Instance& instance, PF_Cmd cmd, PF_LayerDef* output = nullptr,
                         void* extra = nullptr) = 0;

  PF_Err About() { return Command(PF_Cmd_ABOUT); }
  PF_Err GlobalSetup() { return Command(PF_Cmd_GLOBAL_SETUP); }
  PF_Err ParamsSetup() { return Command(PF_Cmd_PARAMS_SETUP); }
  PF_Err GlobalSetdown() { return Command(PF_Cmd_GLOBAL_SETDOWN); }  // then frees the global data

  // A new instance on a layer showing `input`, its parameters at their defaults. No command is sent.
  Instance& AddInstance(World input);
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
  PF_Err Render(Instance& instance, World& output);
  PF_Err Event(Instance& instance, PF_EventExtra& extra, World* output = nullptr);
  // The sequence bytes and parameter values (flattened first when the module asked for it).
  SavedInstance Save(Instance& instance);
  NewInstance Reopen(const SavedInstance& saved, World input);
  NewInstance Duplicate(Instance& instance);
  // PF_Cmd_SEQUENCE_SETDOWN; the host then lets go of the instance's handle.
  PF_Err Remove(Instance& instance);

  const std::deque<AddedParam>& added_params() const { return added_; }
  const std::vector<PF_CustomUIInfo>& registered_ui() const { return registered_ui_; }
  PF_Handle global_data() const { return global_data_; }

  // ---- what the host's functions and commands record ----------------------------
  // add_param's definition, kept with a copy of its popup items (the kept
  // definition's item pointer points at the copy).
  const AddedParam& Added(A_long index, const PF_ParamDef& def);
  void Registered(const PF_CustomUIInfo& info) { registered_ui_.push_back(info); }
  void ForgetDefinitions();  // parameter setup starts over
  void SetGlobalData(PF_Handle handle) { global_data_ = handle; }
  void SetGlobalOutFlags(PF_OutFlags flags) { global_out_flags_ = flags; }
  std::vector<PF_Handle> Held() const;  // the global data and every instance's sequence data
  // The parameters an instance's command passes: the input layer's world set, change flags cleared.
  std::vector<PF_ParamDef> Passed(Instance& instance) const;
  // After an instance's command: the flagged values, PF_UpdateParamUI's definitions and the sequence data.
  static void TakeBack(Instance& instance, const std::vector<PF_ParamDef>& passed,
                       const std::vector<std::pair<A_long, PF_ParamDef>>& ui_updates,
                       PF_Handle sequence_data);

 protected:
  Project(HandleStore& handles, HostChecks& checks, const PF_Cmd& current_cmd)
      : handles_(handles), checks_(checks), current_cmd_(current_cmd) {}
  virtual ~Project() = default;

 private:
  Instance& NewInstanceFrom(World input, const std::vector<PF_ParamDef>& defs,
                            const std::vector<std::string>& popup_items);
  static void CheckLive(const Instance& instance);

  HandleStore& handles_;
  HostChecks& checks_;
  const PF_Cmd& current_cmd_;
  std::deque<AddedParam> added_;
  std::vector<PF_CustomUIInfo> registered_ui_;
  PF_Handle global_data_ = nullptr;
  PF_OutFlags global_out_flags_ = 0;
  std::vector<std::unique_ptr<Instance>> instances_;
};

}  // namespace cinebar_simhost
