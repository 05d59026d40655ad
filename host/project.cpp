#include "host/project.h"

#include <stdexcept>

namespace cinebar_simhost {

// ---- Instance -------------------------------------------------------------------

PF_ParamDef& Instance::param(A_long index) {
  if (index < 0 || index >= param_count()) {
    throw std::out_of_range("Instance: no parameter " + std::to_string(index) + " (the instance has " +
                            std::to_string(param_count()) + ")");
  }
  return params_[static_cast<std::size_t>(index)];
}

const PF_ParamDef& Instance::param(A_long index) const { return const_cast<Instance*>(this)->param(index); }

void Instance::Adopt(const std::vector<PF_ParamDef>& defs, const std::vector<std::string>& popup_items) {
  params_ = defs;
  popup_items_ = popup_items;
  popup_items_.resize(params_.size());
  for (std::size_t i = 0; i < params_.size(); ++i) {
    PF_ParamDef& def = params_[i];
    if (def.param_type == PF_Param_POPUP && def.u.pd.u.namesptr != nullptr) {
      def.u.pd.u.namesptr = popup_items_[i].c_str();
    }
  }
}

// ---- what the host records --------------------------------------------------------

const AddedParam& Project::Added(A_long index, const PF_ParamDef& def) {
  AddedParam& kept = added_.emplace_back();  // deque: earlier entries and their strings never move
  kept.index = index;
  kept.def = def;
  if (def.param_type == PF_Param_POPUP && def.u.pd.u.namesptr != nullptr) {
    kept.popup_items = def.u.pd.u.namesptr;
    kept.def.u.pd.u.namesptr = kept.popup_items.c_str();
  }
  return kept;
}

void Project::ForgetDefinitions() {
  added_.clear();
  registered_ui_.clear();
}

std::vector<PF_Handle> Project::Held() const {
  std::vector<PF_Handle> held{global_data_};
  for (const auto& instance : instances_) held.push_back(instance->sequence_data_);
  return held;
}

std::vector<PF_ParamDef> Project::Passed(Instance& instance) {
  CheckLive(instance);
  if (!instance.params_.empty()) instance.params_[0].u.ld = *instance.input_.layer();
  std::vector<PF_ParamDef> passed = instance.params_;
  for (PF_ParamDef& def : passed) def.uu.change_flags = 0;
  return passed;
}

namespace {
// The host takes a parameter's new value from the module's copy.
void TakeValue(PF_ParamDef& kept, const PF_ParamDef& changed) {
  switch (kept.param_type) {
    case PF_Param_POPUP:
      kept.u.pd.value = changed.u.pd.value;
      break;
    case PF_Param_FLOAT_SLIDER:
      kept.u.fs_d.value = changed.u.fs_d.value;
      break;
    case PF_Param_COLOR:
      kept.u.cd.value = changed.u.cd.value;
      break;
    case PF_Param_LAYER:
      break;
    default:
      kept.u = changed.u;
  }
}
}  // namespace

void Project::TakeBack(Instance& instance, const std::vector<PF_ParamDef>& passed,
                       const std::vector<std::pair<A_long, PF_ParamDef>>& ui_updates,
                       PF_Handle sequence_data) {
  for (std::size_t i = 1; i < passed.size(); ++i) {
    if ((passed[i].uu.change_flags & PF_ChangeFlag_CHANGED_VALUE) != 0)
      TakeValue(instance.params_[i], passed[i]);
  }
  for (const auto& update : ui_updates) {
    PF_ParamDef& kept = instance.params_[static_cast<std::size_t>(update.first)];
    const PF_ParamDef_uu id = kept.uu;
    const A_char* items = kept.param_type == PF_Param_POPUP ? kept.u.pd.u.namesptr : nullptr;
    kept = update.second;
    kept.uu = id;
    if (kept.param_type == PF_Param_POPUP) kept.u.pd.u.namesptr = items;
  }
  instance.sequence_data_ = sequence_data;
}

void Project::CheckLive(const Instance& instance) {
  if (instance.removed_) throw std::logic_error("Host: the instance has been removed");
}

// ---- instances --------------------------------------------------------------------

Instance& Project::NewInstanceFrom(World input, const std::vector<PF_ParamDef>& defs,
                                   const std::vector<std::string>& popup_items) {
  instances_.push_back(std::unique_ptr<Instance>(new Instance(std::move(input))));
  Instance& instance = *instances_.back();
  instance.Adopt(defs, popup_items);
  if (!instance.params_.empty()) instance.params_[0].u.ld = *instance.input_.layer();
  return instance;
}

Instance& Project::AddInstance(World input) {
  std::vector<PF_ParamDef> defs(1);
  defs[0].param_type = PF_Param_LAYER;
  std::vector<std::string> items(1);
  for (const AddedParam& added : added_) {
    PF_ParamDef def = added.def;
    if (def.param_type == PF_Param_POPUP) def.u.pd.value = def.u.pd.dephault;
    if (def.param_type == PF_Param_COLOR) def.u.cd.value = def.u.cd.dephault;
    defs.push_back(def);
    items.push_back(added.popup_items);
  }
  return NewInstanceFrom(std::move(input), defs, items);
}

Instance& Project::Restore(const SavedInstance& saved, World input, PF_Handle sequence_data) {
  Instance& instance = NewInstanceFrom(std::move(input), saved.params, saved.popup_items);
  instance.sequence_data_ = sequence_data;
  return instance;
}

SavedInstance Project::Snapshot(const Instance& instance, const HandleStore* handles) {
  SavedInstance saved;
  if (instance.sequence_data_ != nullptr && handles != nullptr) {
    saved.has_sequence_data = true;
    saved.sequence_bytes = handles->Bytes(instance.sequence_data_);
  }
  saved.params = instance.params_;
  saved.popup_items = instance.popup_items_;
  if (!saved.params.empty()) saved.params[0].u.ld = PF_LayerDef{};  // a project keeps no pixels
  return saved;
}

}  // namespace cinebar_simhost
