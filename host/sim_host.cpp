#include "host/sim_host.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "host/call_scope.h"

namespace cinebar_simhost {

Host::Host(PF_EntryPointFn entry, void* module_handle) : entry_(entry), records_(module_handle) {
  if (entry_ == nullptr) throw std::invalid_argument("Host: null entry point");
}

Host::Host(const Module& module) : Host(module.entry(), module.library()) {}

Host::~Host() = default;

namespace {
Host::CommandObserver g_observer = nullptr;

// A real host calls the module on a stack full of its own leftovers, so a
// record the module fills only in part shows them rather than lucky zeros.
[[gnu::noinline]] void PaintStack() {
  unsigned char area[32 * 1024];
  std::memset(area, 0xA5, sizeof area);
  asm volatile("" : : "r"(area) : "memory");  // the writes must happen
}
}  // namespace

bool CommandInProgress::WithoutPixels(const void* data) const {
  const auto at = reinterpret_cast<std::uintptr_t>(data);
  return data != nullptr &&
         std::any_of(without_pixels.begin(), without_pixels.end(), [&](const World* world) {
           const auto start = reinterpret_cast<std::uintptr_t>(world->data());
           return at >= start && at - start < world->data_bytes();
         });
}

void Host::SetCommandObserver(CommandObserver observer) { g_observer = observer; }

PF_Err Host::CallRaw(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                     PF_LayerDef* output, void* extra) {
  return Run(cmd, in_data, out_data, params, output, extra, [](PF_Err) {});
}

PF_Err Host::Run(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                 PF_LayerDef* output, void* extra, const std::function<void(PF_Err)>& take_back) {
  const PF_Cmd previous = current_.cmd;
  current_.cmd = cmd;
  const std::size_t first_error = checks_.errors().size();
  CallRecord& entry = log_.Add(CallRecord{});
  entry.command = cmd;
  entry.args = "cmd=" + std::to_string(cmd);
  const std::size_t at = log_.records().size() - 1;
  struct Restore {
    PF_Cmd& slot;
    PF_Cmd value;
    ~Restore() { slot = value; }
  } restore{current_.cmd, previous};
  PF_Err err;
  {
    CurrentHostScope scope(this);
    PaintStack();
    err = entry_(cmd, in_data, out_data, params, output, extra);
  }
  // The log may have been cleared during the call.
  if (at < log_.records().size() && log_.records()[at].fn == HostFn::kCommand) log_.at(at).result = err;
  take_back(err);
  checks_.EndCommand(cmd, handles());
  if (g_observer != nullptr) g_observer(*this, cmd, err, at, first_error);
  return err;
}

PF_Err Host::Command(PF_Cmd cmd, PF_ParamDef* params[], PF_LayerDef* output, void* extra) {
  if (cmd == PF_Cmd_PARAMS_SETUP) project_.ForgetDefinitions();
  PF_InData& in = in_data();
  PF_OutData& out = out_data();
  in.global_data = global_data();
  in.sequence_data = nullptr;
  in.num_params = static_cast<A_long>(added_params().size()) + 1;
  in.width = in.height = 0;
  in.extent_hint = PF_Rect{0, 0, 0, 0};
  out = PF_OutData{};
  out.global_data = global_data();
  const std::vector<PF_Handle> held_before = project_.Held();
  return Run(cmd, &in, &out, params, output, extra, [&](PF_Err err) {
    PF_Handle global = checks_.Returned(cmd, handles(), out.global_data, "global data");
    if (cmd == PF_Cmd_GLOBAL_SETDOWN && global != nullptr) {
      handles().Release(global);  // the host owns the global data's end
      global = nullptr;
    }
    project_.SetGlobalData(global);
    checks_.Ownership(cmd, err, handles(), project_.Held(), held_before);
    if (cmd == PF_Cmd_GLOBAL_SETUP) project_.SetGlobalOutFlags(out.out_flags);
    if (cmd == PF_Cmd_PARAMS_SETUP && err == PF_Err_NONE &&
        out.num_params != static_cast<A_long>(added_params().size()) + 1) {
      HostError("parameter setup reported num_params " + std::to_string(out.num_params) + " for " +
                std::to_string(added_params().size() + 1) + " parameters");
    }
  });
}

PF_Err Host::Command(Instance& instance, PF_Cmd cmd, PF_LayerDef* output, void* extra) {
  // The module sees a copy with cleared change flags; only flagged values come back.
  std::vector<PF_ParamDef> passed = Project::Passed(instance);
  std::vector<PF_ParamDef*> pointers;
  for (PF_ParamDef& def : passed) pointers.push_back(&def);
  const PF_LayerDef* frame = output ? output : (passed.empty() ? nullptr : &passed[0].u.ld);
  PF_InData& in = in_data();
  PF_OutData& out = out_data();
  in.global_data = global_data();
  in.sequence_data = instance.sequence_data();
  in.num_params = instance.param_count();
  in.width = frame ? frame->width : 0;
  in.height = frame ? frame->height : 0;
  in.extent_hint = PF_Rect{0, 0, in.width, in.height};
  in.output_origin_x = in.output_origin_y = 0;
  out = PF_OutData{};
  out.global_data = global_data();
  out.sequence_data = instance.sequence_data();
  current_.ui_updates.clear();
  current_.instance = &instance;
  const std::vector<PF_Handle> held_before = project_.Held();
  const std::vector<PF_ParamDef> given = passed;
  const std::size_t first = log_.records().size();
  return Run(cmd, &in, &out, pointers.empty() ? nullptr : pointers.data(), output, extra, [&](PF_Err err) {
    current_.instance = nullptr;
    checks_.FailedWrites(cmd, err, given, passed, log_, first);
    project_.SetGlobalData(checks_.Returned(cmd, handles(), out.global_data, "global data"));
    PF_Handle sequence = checks_.Returned(cmd, handles(), out.sequence_data, "sequence data");
    if (cmd == PF_Cmd_SEQUENCE_SETDOWN) sequence = nullptr;  // the host lets go of it
    Project::TakeBack(instance, passed, current_.ui_updates, sequence);
    current_.ui_updates.clear();
    checks_.Ownership(cmd, err, handles(), project_.Held(), held_before);
  });
}

}  // namespace cinebar_simhost
