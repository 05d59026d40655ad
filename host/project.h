// The project the simulated host keeps: the effect's definitions as the
// module added them, its global data and the instances applied to layers.
// It sends no command; the host (sim_host.h) does, and records here what the
// module handed over.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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
  Project() = default;
  Project(const Project&) = delete;
  Project& operator=(const Project&) = delete;

  const std::deque<AddedParam>& added_params() const { return added_; }
  const std::vector<PF_CustomUIInfo>& registered_ui() const { return registered_ui_; }
  PF_Handle global_data() const { return global_data_; }
  PF_OutFlags global_out_flags() const { return global_out_flags_; }

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
  static std::vector<PF_ParamDef> Passed(Instance& instance);
  // After an instance's command: the flagged values, PF_UpdateParamUI's definitions and the sequence data.
  static void TakeBack(Instance& instance, const std::vector<PF_ParamDef>& passed,
                       const std::vector<std::pair<A_long, PF_ParamDef>>& ui_updates,
                       PF_Handle sequence_data);

  // ---- instances --------------------------------------------------------------------
  // A new instance on a layer showing `input`, its parameters at the added definitions' defaults.
  Instance& AddInstance(World input);
  // An instance as `saved` keeps it, its sequence data in `sequence_data`.
  Instance& Restore(const SavedInstance& saved, World input, PF_Handle sequence_data);
  // The parameter values and, when `handles` is given, the sequence bytes.
  static SavedInstance Snapshot(const Instance& instance, const HandleStore* handles);
  static void MarkRemoved(Instance& instance) { instance.removed_ = true; }
  // Throws std::logic_error for a removed instance.
  static void CheckLive(const Instance& instance);

 private:
  Instance& NewInstanceFrom(World input, const std::vector<PF_ParamDef>& defs,
                            const std::vector<std::string>& popup_items);

  std::deque<AddedParam> added_;
  std::vector<PF_CustomUIInfo> registered_ui_;
  PF_Handle global_data_ = nullptr;
  PF_OutFlags global_out_flags_ = 0;
  std::vector<std::unique_ptr<Instance>> instances_;
};

}  // namespace cinebar_simhost
