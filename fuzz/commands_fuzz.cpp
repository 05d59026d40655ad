// Random command sequences through the simulated host: instances applied,
// changed, rendered, saved, reopened from random sequence bytes, duplicated
// and removed, with random worlds (0 and odd sizes, 8 and 16 bits),
// downsampling, pixel aspects, popup values in and out of range, any slider
// value, events of any index and type, commands that do nothing, and faults
// in any host function the module calls. After every command every suite must
// have been given back and every handle must belong to someone; at the end,
// once the host has freed its global data, nothing may be left.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "host/sim_host.h"

extern "C" PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                                 PF_LayerDef* output, void* extra);

namespace {

using cinebar_simhost::AcquireKey;
using cinebar_simhost::Fault;
using cinebar_simhost::Host;
using cinebar_simhost::Instance;
using cinebar_simhost::SavedInstance;
using cinebar_simhost::World;

constexpr size_t kMaxInstances = 8;
constexpr int kMaxCommands = 48;

// Faults a host may show at any time. Refused disposals are left out: the
// handle they leave behind is the host's own doing, not the module's.
const std::string kFaultable[] = {
    // the utility callbacks
    "host_new_handle", "host_lock_handle", "host_unlock_handle", "get_platform_data", "sprintf", "strcpy",
    "add_param", "register_ui",
    // the suites' functions, and the suites themselves
    "HandleSuite.host_new_handle", "fill", "fill16", "copy", "PF_UpdateParamUI",
    AcquireKey("PF Fill Matte Suite", 2), AcquireKey("PF World Transform Suite", 1),
    AcquireKey("PF Param Utils Suite", 3), AcquireKey("PF Handle Suite", 2)};

const PF_Cmd kIdle[] = {
    // commands the effect has nothing to do for
    PF_Cmd_UNUSED_0, PF_Cmd_SEQUENCE_FLATTEN, PF_Cmd_DO_DIALOG, PF_Cmd_FRAME_SETUP, PF_Cmd_FRAME_SETDOWN,
    // numbers no host sends
    16, 17, 18, 19, 1000};

class Session {
 public:
  explicit Session(FuzzedDataProvider& in) : in_(in), host_(&EntryPointFunc) {}

  void Play() {
    if (in_.ConsumeIntegralInRange(0, 15) == 0) host_.SetApplId(PF_APPL_ID_PREMIERE);
    Step("global setup", [&] { return host_.GlobalSetup(); });
    Step("parameter setup", [&] { return host_.ParamsSetup(); });
    // The host applies the effect only when it took all its controls.
    const bool applicable = host_.added_params().size() == 5 && host_.out_data().num_params == 6;
    for (int n = 0; n < kMaxCommands && in_.remaining_bytes() > 0; ++n) {
      applicable ? OneCommand() : Step("about", [&] { return host_.About(); });
    }
    host_.faults().Clear();
    while (!live_.empty()) Remove(live_.size() - 1);
    const PF_Handle global = host_.global_data();
    host_.GlobalSetdown();
    Require(host_.SuitesOutstanding() == 0, "global setdown", "suites outstanding");
    // The host frees its global data itself; nothing else may be left.
    if (global != nullptr)
      Require(host_.handles().Dispose(global).empty(), "the end", "global data freed twice");
    Require(host_.LiveHandleCount() == 0, "the end", "handles left behind");
  }

 private:
  template <typename Command>
  void Step(const char* what, Command command) {
    MaybeFault();
    command();  // failures are the faults' and the records' business; only their consequences are checked
    host_.faults().Clear();
    const PF_OutData& out = host_.out_data();
    Require(std::memchr(out.return_msg, '\0', sizeof out.return_msg) != nullptr, what,
            "return_msg not terminated");
    Require(host_.SuitesOutstanding() == 0, what, "suites outstanding");
    Require(host_.ForgottenHandles().empty(), what, "a handle leaked");
    size_t owned = host_.global_data() != nullptr ? 1 : 0;
    for (Instance* instance : live_) {
      if (instance->sequence_data() == nullptr) continue;
      Require(host_.handles().IsLive(instance->sequence_data()), what, "an instance holds a dead handle");
      ++owned;
    }
    Require(host_.LiveHandleCount() == owned, what, "a handle nobody holds");
  }

  void Require(bool holds, const char* what, const char* problem) {
    if (holds) return;
    std::fprintf(stderr, "commands_fuzz: %s: %s\n", what, problem);
    for (const std::string& error : host_.host_errors()) std::fprintf(stderr, "  host: %s\n", error.c_str());
    std::abort();
  }

  void MaybeFault() {
    if (in_.ConsumeIntegralInRange(0, 5) != 0) return;
    const std::string& function =
        kFaultable[in_.ConsumeIntegralInRange<size_t>(0, std::size(kFaultable) - 1)];
    const int call = in_.ConsumeIntegralInRange(1, 3);
    const Fault base = in_.ConsumeBool() && function.rfind("AcquireSuite(", 0) == 0
                           ? Fault::Null()
                           : Fault::Error(in_.ConsumeIntegralInRange<PF_Err>(1, 600));
    host_.faults().Fail(function, in_.ConsumeBool() ? base.FromCall(call) : base.OnCall(call));
  }

  World NewWorld(bool deep) {
    const A_long width = in_.ConsumeIntegralInRange<A_long>(0, 40);
    const A_long height = in_.ConsumeIntegralInRange<A_long>(0, 40);
    World world(width, height, deep, in_.ConsumeIntegralInRange<A_long>(0, 3) * 4);
    world.FillPattern(in_.ConsumeIntegral<uint32_t>());
    return world;
  }

  PF_RationalScale Scale() {
    return PF_RationalScale{in_.ConsumeIntegralInRange<A_long>(-2, 8),
                            in_.ConsumeIntegralInRange<A_u_long>(0, 8)};
  }

  Instance& Pick() { return *live_[in_.ConsumeIntegralInRange<size_t>(0, live_.size() - 1)]; }

  void Remove(size_t index) {
    Instance& instance = *live_[index];
    live_.erase(live_.begin() + static_cast<std::ptrdiff_t>(index));
    // A refused Handle Suite at setdown leaves the record with the host by
    // design (it is reported as the missing suite); no such fault here.
    host_.faults().Clear();
    Require(host_.Remove(instance) == PF_Err_NONE, "setdown", "failed without a fault");
    Step("setdown", [] { return PF_Err_NONE; });
  }

  // One command for a random instance, or a new instance; each case returns the step it took.
  void OneCommand() {
    const int op = in_.ConsumeIntegralInRange(0, 15);
    if (live_.empty() || (op == 0 && live_.size() < kMaxInstances)) {
      Instance& instance = host_.AddInstance(NewWorld(in_.ConsumeBool()));
      live_.push_back(&instance);
      return Step("setup", [&] { return host_.SequenceSetup(instance); });
    }
    Instance& instance = Pick();
    const bool room = live_.size() < kMaxInstances;
    switch (op) {
      case 0:
      case 1:
        return Step("preset", [&] {
          return host_.ChangePopup(instance, 3, in_.ConsumeIntegralInRange<A_long>(-2, 10));
        });
      case 2:
        return Step("render mode",
                    [&] { return host_.ChangePopup(instance, 2, in_.ConsumeIntegral<A_long>()); });
      case 3: {
        const double typed = in_.ConsumeBool() ? in_.ConsumeFloatingPointInRange<double>(0.0, 12.0)
                                               : in_.ConsumeFloatingPoint<double>();
        return Step("ratio", [&] { return host_.ChangeFloat(instance, 4, typed); });
      }
      case 4: {
        double bits_value;
        const uint64_t bits = in_.ConsumeIntegral<uint64_t>();
        std::memcpy(&bits_value, &bits, sizeof bits_value);  // NaNs and infinities too
        return Step("ratio bits", [&] { return host_.ChangeFloat(instance, 4, bits_value); });
      }
      case 5: {
        const PF_Pixel color{in_.ConsumeIntegral<A_u_char>(), in_.ConsumeIntegral<A_u_char>(),
                             in_.ConsumeIntegral<A_u_char>(), in_.ConsumeIntegral<A_u_char>()};
        return Step("colour", [&] { return host_.ChangeColor(instance, 5, color); });
      }
      case 6:
        return Step("user changed",
                    [&] { return host_.UserChanged(instance, in_.ConsumeIntegralInRange<A_long>(1, 5)); });
      case 7:
        return Step("update UI", [&] { return host_.UpdateParamsUI(instance); });
      case 8: {
        host_.SetDownsample(Scale(), Scale());
        host_.SetPixelAspect(Scale());
        World output = NewWorld(instance.input().deep());
        Step("render", [&] { return host_.Render(instance, output); });
        Require(output.GuardsIntact(), "render", "wrote outside the output");
        host_.SetDownsample({1, 1}, {1, 1});
        host_.SetPixelAspect({1, 1});
        return;
      }
      case 9: {
        PF_EventExtra extra{};
        extra.e_type = in_.ConsumeIntegralInRange<PF_EventType>(-1, 12);
        extra.effect_win.index = in_.ConsumeIntegralInRange<A_long>(-1, 7);
        return Step("event", [&] { return host_.Event(instance, extra); });
      }
      case 10: {
        if (!room) return;
        // A project saved elsewhere: any 12 bytes, or no sequence data at all.
        SavedInstance saved = host_.Save(instance);
        saved.has_sequence_data = in_.ConsumeIntegralInRange(0, 7) != 0;
        saved.sequence_bytes = in_.ConsumeBytes<uint8_t>(12);
        saved.sequence_bytes.resize(12);
        return NewFrom([&] { return host_.Reopen(saved, NewWorld(instance.input().deep())); }, "reopen");
      }
      case 11:
        if (room) NewFrom([&] { return host_.Duplicate(instance); }, "duplicate");
        return;
      case 12:
        return Remove(in_.ConsumeIntegralInRange<size_t>(0, live_.size() - 1));
      case 13:
        return Step("setup again", [&] { return host_.SequenceSetup(instance); });
      case 14: {
        const PF_Cmd cmd = kIdle[in_.ConsumeIntegralInRange<size_t>(0, std::size(kIdle) - 1)];
        return Step("idle command", [&] { return host_.Command(instance, cmd); });
      }
      default:
        return Step("about", [&] { return host_.About(); });
    }
  }

  template <typename Make>
  void NewFrom(Make make, const char* what) {
    MaybeFault();
    const auto made = make();
    live_.push_back(&made.instance);
    Step(what, [&] { return made.err; });
  }

  FuzzedDataProvider& in_;
  Host host_;
  std::vector<Instance*> live_;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // No branding library: the effect runs unbound.
  setenv("CINEBAR_COMMON_APPDATA", "/nonexistent/cinebar-fuzz", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  Session session(in);
  session.Play();
  return 0;
}
