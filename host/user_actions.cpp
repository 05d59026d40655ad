// What a user does to the effect in the simulated host, each sent as the
// commands After Effects sends for it.
#include <stdexcept>
#include <string>

#include "host/sim_host.h"

namespace cinebar_simhost {
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

NewInstance Host::Apply(World input) {
  Instance& instance = AddInstance(std::move(input));
  const PF_Err err = SequenceSetup(instance);
  return NewInstance{instance, err};
}

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
  struct Forget {
    std::vector<const World*>& worlds;
    ~Forget() { worlds.clear(); }
  } forget{current_.without_pixels};
  for (const World* world : {&instance.input(), &output})
    if (!world->has_pixels()) current_.without_pixels.push_back(world);
  return Command(instance, PF_Cmd_RENDER, output.layer(), nullptr);
}

PF_Err Host::Event(Instance& instance, PF_EventExtra& extra, World* output) {
  return Command(instance, PF_Cmd_EVENT, output ? output->layer() : nullptr, &extra);
}

SavedInstance Host::Save(Instance& instance) {
  Project::CheckLive(instance);
  if ((project_.global_out_flags() & PF_OutFlag_SEQUENCE_DATA_NEEDS_FLATTENING) != 0 &&
      instance.sequence_data() != nullptr) {
    Command(instance, PF_Cmd_SEQUENCE_FLATTEN);
  }
  const bool lost = instance.sequence_data() != nullptr && !handles().IsLive(instance.sequence_data());
  if (lost) HostError("save: the instance's sequence data is not a live handle");
  return Project::Snapshot(instance, lost ? nullptr : &handles());
}

NewInstance Host::Reopen(const SavedInstance& saved, World input) {
  PF_Handle sequence_data = saved.has_sequence_data ? handles().Adopt(saved.sequence_bytes) : nullptr;
  Instance& instance = project_.Restore(saved, std::move(input), sequence_data);
  const PF_Err err = SequenceResetup(instance);
  return NewInstance{instance, err};
}

NewInstance Host::Duplicate(Instance& instance) {
  const SavedInstance saved = Save(instance);
  return Reopen(saved, instance.input());
}

PF_Err Host::Remove(Instance& instance) {
  const PF_Err err = Command(instance, PF_Cmd_SEQUENCE_SETDOWN);
  Project::MarkRemoved(instance);
  return err;
}

}  // namespace cinebar_simhost
