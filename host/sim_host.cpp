#include "host/sim_host.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "host/callbacks_internal.h"

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

// ---- Host -----------------------------------------------------------------------

Host::Host(PF_EntryPointFn entry, void* module_handle) : entry_(entry), module_handle_(module_handle) {
  if (entry_ == nullptr) throw std::invalid_argument("Host: null entry point");
  in_.effect_ref = reinterpret_cast<PF_ProgPtr>(&effect_tag_);
  in_.version = PF_SpecVersion{13, 0};
  in_.appl_id = PF_APPL_ID_AFTER_EFFECTS;
  in_.quality = 1;
  in_.time_step = 1;
  in_.local_time_step = 1;
  in_.total_time = 300;
  in_.time_scale = 30;
  in_.downsample_x = in_.downsample_y = PF_RationalScale{1, 1};
  in_.pixel_aspect_ratio = PF_RationalScale{1, 1};
  InstallCallbacks(*this);
}

Host::Host(const Module& module) : Host(module.entry(), module.library()) {}

Host::~Host() = default;

void Host::SetDownsample(PF_RationalScale x, PF_RationalScale y) {
  in_.downsample_x = x;
  in_.downsample_y = y;
}

namespace {
Host::CommandObserver g_observer = nullptr;
}  // namespace

void Host::SetCommandObserver(CommandObserver observer) { g_observer = observer; }

int Host::SuiteOutstanding(const std::string& name, int version) const {
  const auto it = outstanding_.find({name, version});
  return it == outstanding_.end() ? 0 : it->second;
}

int Host::SuitesOutstanding() const {
  int total = 0;
  for (const auto& entry : outstanding_) total += entry.second;
  return total;
}

CallRecord& Host::Begin(const std::string& function, const std::string& args) {
  // A popup's items must outlive add_param: read them again at every later host call of the command.
  for (auto it = kept_texts_.begin(); it != kept_texts_.end();) {
    if (std::strncmp(it->items, it->copy.c_str(), it->copy.size() + 1) == 0) {
      ++it;
      continue;
    }
    HostError("parameter " + std::to_string(it->param) + "'s popup items changed after add_param (at " +
              function + "): the module let them go");
    it = kept_texts_.erase(it);
  }
  CallRecord record;
  record.function = function;
  record.command = current_cmd_;
  record.args = args;
  return log_.Add(std::move(record));
}

bool Host::Faulted(const std::string& function, CallRecord& record, Fault* fault) {
  if (!faults_.Check(function, fault)) return false;
  record.faulted = true;
  record.result = fault->error;
  return true;
}

void Host::HostError(const std::string& text) {
  host_errors_.push_back("[cmd " + std::to_string(current_cmd_) + "] " + text);
}

// Every live handle must be held by the host: global data, an instance's
// record, or one neither side can free. A handle the host held before a
// failed command is the host's to keep; any other is a leak.
void Host::CheckOwnership(PF_Err err, const std::vector<PF_Handle>& held_before) {
  std::vector<PF_Handle> held = abandoned_;
  held.push_back(global_data_);
  for (const auto& instance : instances_) held.push_back(instance->sequence_data_);
  for (const PF_Handle handle : handles_.Live()) {
    if (std::find(held.begin(), held.end(), handle) != held.end()) continue;
    const bool kept =
        err != PF_Err_NONE && std::find(held_before.begin(), held_before.end(), handle) != held_before.end();
    if (!kept) HostError("a handle leaked: the module let go of it without disposing of it");
    abandoned_.push_back(handle);
  }
}

std::vector<PF_Handle> Host::Held() const {
  std::vector<PF_Handle> held{global_data_};
  for (const auto& instance : instances_) held.push_back(instance->sequence_data_);
  return held;
}

PF_Handle Host::Returned(PF_Handle handle, const char* what) {
  if (handle == nullptr || handles_.IsLive(handle)) return handle;
  HostError(std::string("the module returned ") + what + " it does not own (" +
            (handles_.IsDisposed(handle) ? "disposed of" : "not a handle") + ")");
  return nullptr;
}

void Host::CheckLive(const Instance& instance) const {
  if (instance.removed_) throw std::logic_error("Host: the instance has been removed");
}

// ---- commands ---------------------------------------------------------------------

PF_Err Host::CallRaw(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                     PF_LayerDef* output, void* extra) {
  return Run(cmd, in_data, out_data, params, output, extra, [](PF_Err) {});
}

PF_Err Host::Run(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                 PF_LayerDef* output, void* extra, const std::function<void(PF_Err)>& take_back) {
  const PF_Cmd previous = current_cmd_;
  current_cmd_ = cmd;
  const std::size_t first_error = host_errors_.size();
  log_.Add(CallRecord{});
  const std::size_t at = log_.records().size() - 1;
  log_.at(at).function = "EntryPointFunc";
  log_.at(at).command = cmd;
  log_.at(at).args = "cmd=" + std::to_string(cmd);
  struct Restore {
    PF_Cmd& slot;
    PF_Cmd value;
    ~Restore() { slot = value; }
  } restore{current_cmd_, previous};
  PF_Err err;
  {
    CurrentHostScope scope(this);
    err = entry_(cmd, in_data, out_data, params, output, extra);
  }
  // The log may have been cleared during the call.
  if (at < log_.records().size() && log_.records()[at].function == "EntryPointFunc") log_.at(at).result = err;
  take_back(err);
  kept_texts_.clear();  // the contract for them ends with the command
  for (auto& [suite, count] : outstanding_) {
    if (count != 0) HostError(suite.first + " " + std::to_string(suite.second) + " held past the command");
    count = 0;
  }
  if (!handles_.TakeQuarantineBreaches().empty())
    HostError("the module wrote into a disposed handle's block");
  if (g_observer != nullptr) g_observer(*this, cmd, err, at, first_error);
  return err;
}

PF_Err Host::Command(PF_Cmd cmd, PF_ParamDef* params[], PF_LayerDef* output, void* extra) {
  if (cmd == PF_Cmd_PARAMS_SETUP) {
    added_.clear();
    registered_ui_.clear();
  }
  in_.global_data = global_data_;
  in_.sequence_data = nullptr;
  in_.num_params = static_cast<A_long>(added_.size()) + 1;
  in_.width = in_.height = 0;
  in_.extent_hint = PF_Rect{0, 0, 0, 0};
  out_ = PF_OutData{};
  out_.global_data = global_data_;
  const std::vector<PF_Handle> held_before = Held();
  return Run(cmd, &in_, &out_, params, output, extra, [&](PF_Err err) {
    global_data_ = Returned(out_.global_data, "global data");
    if (cmd == PF_Cmd_GLOBAL_SETDOWN && global_data_ != nullptr) {
      handles_.Release(global_data_);  // the host owns the global data's end
      global_data_ = nullptr;
    }
    CheckOwnership(err, held_before);
    if (cmd == PF_Cmd_GLOBAL_SETUP) global_out_flags_ = out_.out_flags;
    if (cmd == PF_Cmd_PARAMS_SETUP && err == PF_Err_NONE &&
        out_.num_params != static_cast<A_long>(added_.size()) + 1) {
      HostError("parameter setup reported num_params " + std::to_string(out_.num_params) + " for " +
                std::to_string(added_.size() + 1) + " parameters");
    }
  });
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

PF_Err Host::Command(Instance& instance, PF_Cmd cmd, PF_LayerDef* output, void* extra) {
  CheckLive(instance);
  if (!instance.params_.empty()) instance.params_[0].u.ld = *instance.input_.layer();
  // The module sees a copy with cleared change flags; only flagged values come back.
  std::vector<PF_ParamDef> passed = instance.params_;
  std::vector<PF_ParamDef*> pointers;
  for (PF_ParamDef& def : passed) {
    def.uu.change_flags = 0;
    pointers.push_back(&def);
  }
  const PF_LayerDef* frame =
      output ? output : (instance.params_.empty() ? nullptr : &instance.params_[0].u.ld);
  in_.global_data = global_data_;
  in_.sequence_data = instance.sequence_data_;
  in_.num_params = instance.param_count();
  in_.width = frame ? frame->width : 0;
  in_.height = frame ? frame->height : 0;
  in_.extent_hint = PF_Rect{0, 0, in_.width, in_.height};
  in_.output_origin_x = in_.output_origin_y = 0;
  out_ = PF_OutData{};
  out_.global_data = global_data_;
  out_.sequence_data = instance.sequence_data_;
  ui_updates_.clear();
  current_instance_ = &instance;
  const std::vector<PF_Handle> held_before = Held();
  const std::vector<PF_ParamDef> given = passed;
  const std::size_t first = log_.records().size();
  return Run(cmd, &in_, &out_, pointers.empty() ? nullptr : pointers.data(), output, extra, [&](PF_Err err) {
    current_instance_ = nullptr;
    // A failed command must not leave a value half-written: one neither flagged nor pushed to the UI.
    for (std::size_t i = 1; err != PF_Err_NONE && i < passed.size(); ++i) {
      bool pushed = (passed[i].uu.change_flags & PF_ChangeFlag_CHANGED_VALUE) != 0;
      for (std::size_t r = first; r < log_.records().size(); ++r)
        pushed |= log_.records()[r].function == "PF_UpdateParamUI" && log_.records()[r].index == A_long(i);
      if (!pushed && std::memcmp(&passed[i], &given[i], sizeof passed[i]) != 0)
        HostError("parameter " + std::to_string(i) +
                  " written by a failed command, neither flagged nor pushed");
    }

    for (std::size_t i = 1; i < passed.size(); ++i) {
      if ((passed[i].uu.change_flags & PF_ChangeFlag_CHANGED_VALUE) != 0)
        TakeValue(instance.params_[i], passed[i]);
    }
    for (const auto& update : ui_updates_) {
      PF_ParamDef& kept = instance.params_[static_cast<std::size_t>(update.first)];
      const PF_ParamDef_uu id = kept.uu;
      const A_char* items = kept.param_type == PF_Param_POPUP ? kept.u.pd.u.namesptr : nullptr;
      kept = update.second;
      kept.uu = id;
      if (kept.param_type == PF_Param_POPUP) kept.u.pd.u.namesptr = items;
    }
    ui_updates_.clear();

    global_data_ = Returned(out_.global_data, "global data");
    instance.sequence_data_ = Returned(out_.sequence_data, "sequence data");
    if (cmd == PF_Cmd_SEQUENCE_SETDOWN) instance.sequence_data_ = nullptr;  // the host lets go of it
    CheckOwnership(err, held_before);
  });
}

// ---- instances --------------------------------------------------------------------

Instance& Host::NewInstanceFrom(World input, const std::vector<PF_ParamDef>& defs,
                                const std::vector<std::string>& popup_items) {
  instances_.push_back(std::unique_ptr<Instance>(new Instance(std::move(input))));
  Instance& instance = *instances_.back();
  instance.Adopt(defs, popup_items);
  if (!instance.params_.empty()) instance.params_[0].u.ld = *instance.input_.layer();
  return instance;
}

Instance& Host::AddInstance(World input) {
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

NewInstance Host::Apply(World input) {
  Instance& instance = AddInstance(std::move(input));
  const PF_Err err = SequenceSetup(instance);
  return NewInstance{instance, err};
}

namespace {
PF_ParamDef& Kind(Instance& instance, A_long index, PF_ParamType type, const char* what) {
  PF_ParamDef& def = instance.param(index);
  if (def.param_type != type) {
    throw std::invalid_argument(std::string("Host: parameter ") + std::to_string(index) + " is not a " +
                                what);
  }
  return def;
}
}  // namespace

PF_Err Host::ChangePopup(Instance& instance, A_long index, A_long value) {
  Kind(instance, index, PF_Param_POPUP, "popup").u.pd.value = value;
  return UserChanged(instance, index);
}

PF_Err Host::ChangeFloat(Instance& instance, A_long index, PF_FpLong value) {
  Kind(instance, index, PF_Param_FLOAT_SLIDER, "float slider").u.fs_d.value = value;
  return UserChanged(instance, index);
}

PF_Err Host::ChangeColor(Instance& instance, A_long index, PF_Pixel value) {
  Kind(instance, index, PF_Param_COLOR, "colour").u.cd.value = value;
  return UserChanged(instance, index);
}

PF_Err Host::UserChanged(Instance& instance, A_long index) {
  if (index < 1 || index >= instance.param_count()) {
    throw std::out_of_range("Host: no user parameter " + std::to_string(index));
  }
  PF_UserChangedParamExtra extra{index};
  return Command(instance, PF_Cmd_USER_CHANGED_PARAM, nullptr, &extra);
}

PF_Err Host::Render(Instance& instance, World& output) {
  return Command(instance, PF_Cmd_RENDER, output.layer(), nullptr);
}

PF_Err Host::Event(Instance& instance, PF_EventExtra& extra, World* output) {
  return Command(instance, PF_Cmd_EVENT, output ? output->layer() : nullptr, &extra);
}

SavedInstance Host::Save(Instance& instance) {
  CheckLive(instance);
  if ((global_out_flags_ & PF_OutFlag_SEQUENCE_DATA_NEEDS_FLATTENING) != 0 &&
      instance.sequence_data_ != nullptr) {
    Command(instance, PF_Cmd_SEQUENCE_FLATTEN);
  }
  SavedInstance saved;
  if (instance.sequence_data_ != nullptr) {
    if (handles_.IsLive(instance.sequence_data_)) {
      saved.has_sequence_data = true;
      saved.sequence_bytes = handles_.Bytes(instance.sequence_data_);
    } else {
      HostError("save: the instance's sequence data is not a live handle");
    }
  }
  saved.params = instance.params_;
  saved.popup_items = instance.popup_items_;
  if (!saved.params.empty()) saved.params[0].u.ld = PF_LayerDef{};  // a project keeps no pixels
  return saved;
}

NewInstance Host::Reopen(const SavedInstance& saved, World input) {
  Instance& instance = NewInstanceFrom(std::move(input), saved.params, saved.popup_items);
  if (saved.has_sequence_data) instance.sequence_data_ = handles_.Adopt(saved.sequence_bytes);
  const PF_Err err = SequenceResetup(instance);
  return NewInstance{instance, err};
}

NewInstance Host::Duplicate(Instance& instance) {
  const SavedInstance saved = Save(instance);
  return Reopen(saved, instance.input_);
}

PF_Err Host::Remove(Instance& instance) {
  const PF_Err err = Command(instance, PF_Cmd_SEQUENCE_SETDOWN);
  instance.removed_ = true;
  return err;
}

}  // namespace cinebar_simhost
