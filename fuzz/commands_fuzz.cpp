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
    "host_new_handle",
    "host_lock_handle",
    "host_unlock_handle",
    "get_platform_data",
    "sprintf",
    "strcpy",
    "add_param",
    "register_ui",
    "HandleSuite.host_new_handle",
    "fill",
    "fill16",
    "copy",
    "PF_UpdateParamUI",
    AcquireKey("PF Fill Matte Suite", 2),
    AcquireKey("PF World Transform Suite", 1),
    AcquireKey("PF Param Utils Suite", 3),
    AcquireKey("PF Handle Suite", 2),
};

[[noreturn]] void Finding(const std::string& what, const Host& host) {
  std::fprintf(stderr, "commands_fuzz: %s\n", what.c_str());
  for (const std::string& error : host.host_errors()) std::fprintf(stderr, "  host: %s\n", error.c_str());
  std::abort();
}

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
      if (applicable) {
        OneCommand();
      } else {
        Step("about", [&] { return host_.About(); });
      }
    }
    host_.faults().Clear();
    while (!live_.empty()) Remove(live_.size() - 1);
    const PF_Handle global = host_.global_data();
    host_.GlobalSetdown();
    if (host_.SuitesOutstanding() != 0) Finding("global setdown: suites outstanding", host_);
    // The host frees its global data itself; nothing else may be left.
    const std::vector<PF_Handle> forgotten = host_.ForgottenHandles();
    if (forgotten.size() != (global != nullptr ? 1u : 0u) || (global != nullptr && forgotten[0] != global))
      Finding("handles left behind at the end", host_);
    if (global != nullptr) host_.handles().Dispose(global);
    if (host_.LiveHandleCount() != 0) Finding("live handles at the end", host_);
  }

 private:
  template <typename Command>
  void Step(const char* what, Command command) {
    MaybeFault();
    const PF_Err err = command();
    (void)err;  // failures are the faults' and the records' business; only their consequences are checked
    host_.faults().Clear();
    const PF_OutData& out = host_.out_data();
    if (std::memchr(out.return_msg, '\0', sizeof out.return_msg) == nullptr)
      Finding(std::string(what) + ": return_msg not terminated", host_);
    if (host_.SuitesOutstanding() != 0) Finding(std::string(what) + ": suites outstanding", host_);
    if (!host_.ForgottenHandles().empty()) Finding(std::string(what) + ": a handle leaked", host_);
    size_t owned = host_.global_data() != nullptr ? 1 : 0;
    for (Instance* instance : live_) {
      if (instance->sequence_data() == nullptr) continue;
      if (!host_.handles().IsLive(instance->sequence_data()))
        Finding(std::string(what) + ": an instance holds a dead handle", host_);
      ++owned;
    }
    if (host_.LiveHandleCount() != owned) Finding(std::string(what) + ": a handle nobody holds", host_);
  }

  void MaybeFault() {
    if (in_.ConsumeIntegralInRange(0, 5) != 0) return;
    const std::string& function =
        kFaultable[in_.ConsumeIntegralInRange<size_t>(0, std::size(kFaultable) - 1)];
    const int call = in_.ConsumeIntegralInRange(1, 3);
    const bool null_suite = in_.ConsumeBool();
    const Fault base = null_suite && function.rfind("AcquireSuite(", 0) == 0
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
    const PF_Err err = host_.Remove(instance);
    if (err != PF_Err_NONE) Finding("setdown failed without a fault", host_);
    Step("setdown", [] { return PF_Err_NONE; });
  }

  void OneCommand() {
    const int op = in_.ConsumeIntegralInRange(0, 15);
    if (live_.empty() || (op == 0 && live_.size() < kMaxInstances)) {
      World input = NewWorld(in_.ConsumeBool());
      Instance& instance = host_.AddInstance(std::move(input));
      live_.push_back(&instance);
      Step("setup", [&] { return host_.SequenceSetup(instance); });
      return;
    }
    Instance& instance = Pick();
    switch (op) {
      case 0:
      case 1:
        Step("preset",
             [&] { return host_.ChangePopup(instance, 3, in_.ConsumeIntegralInRange<A_long>(-2, 10)); });
        break;
      case 2:
        Step("render mode", [&] { return host_.ChangePopup(instance, 2, in_.ConsumeIntegral<A_long>()); });
        break;
      case 3: {
        const double typed = in_.ConsumeBool() ? in_.ConsumeFloatingPointInRange<double>(0.0, 12.0)
                                               : in_.ConsumeFloatingPoint<double>();
        Step("ratio", [&] { return host_.ChangeFloat(instance, 4, typed); });
        break;
      }
      case 4: {
        double bits_value;
        const uint64_t bits = in_.ConsumeIntegral<uint64_t>();
        std::memcpy(&bits_value, &bits, sizeof bits_value);  // NaNs and infinities too
        Step("ratio bits", [&] { return host_.ChangeFloat(instance, 4, bits_value); });
        break;
      }
      case 5: {
        const PF_Pixel color{in_.ConsumeIntegral<A_u_char>(), in_.ConsumeIntegral<A_u_char>(),
                             in_.ConsumeIntegral<A_u_char>(), in_.ConsumeIntegral<A_u_char>()};
        Step("colour", [&] { return host_.ChangeColor(instance, 5, color); });
        break;
      }
      case 6:
        Step("user changed",
             [&] { return host_.UserChanged(instance, in_.ConsumeIntegralInRange<A_long>(1, 5)); });
        break;
      case 7:
        Step("update UI", [&] { return host_.UpdateParamsUI(instance); });
        break;
      case 8: {
        host_.SetDownsample(Scale(), Scale());
        host_.SetPixelAspect(Scale());
        World output = NewWorld(instance.input().deep());
        Step("render", [&] { return host_.Render(instance, output); });
        if (!output.GuardsIntact()) Finding("render wrote outside the output", host_);
        host_.SetDownsample({1, 1}, {1, 1});
        host_.SetPixelAspect({1, 1});
        break;
      }
      case 9: {
        PF_EventExtra extra{};
        extra.e_type = in_.ConsumeIntegralInRange<PF_EventType>(-1, 12);
        extra.effect_win.index = in_.ConsumeIntegralInRange<A_long>(-1, 7);
        Step("event", [&] { return host_.Event(instance, extra); });
        break;
      }
      case 10:
        if (live_.size() < kMaxInstances) {
          // A project saved elsewhere: any 12 bytes, or no sequence data at all.
          SavedInstance saved = host_.Save(instance);
          saved.has_sequence_data = in_.ConsumeIntegralInRange(0, 7) != 0;
          saved.sequence_bytes = in_.ConsumeBytes<uint8_t>(12);
          saved.sequence_bytes.resize(12);
          NewFrom([&] { return host_.Reopen(saved, NewWorld(instance.input().deep())); }, "reopen");
        }
        break;
      case 11:
        if (live_.size() < kMaxInstances) NewFrom([&] { return host_.Duplicate(instance); }, "duplicate");
        break;
      case 12:
        Remove(in_.ConsumeIntegralInRange<size_t>(0, live_.size() - 1));
        break;
      case 13:
        Step("setup again", [&] { return host_.SequenceSetup(instance); });
        break;
      case 14: {
        // Commands the effect has nothing to do for.
        const PF_Cmd idle[] = {PF_Cmd_UNUSED_0,
                               PF_Cmd_SEQUENCE_FLATTEN,
                               PF_Cmd_DO_DIALOG,
                               PF_Cmd_FRAME_SETUP,
                               PF_Cmd_FRAME_SETDOWN,
                               16,
                               17,
                               18,
                               19,
                               1000};
        const PF_Cmd cmd = idle[in_.ConsumeIntegralInRange<size_t>(0, std::size(idle) - 1)];
        Step("idle command", [&] { return host_.Command(instance, cmd); });
        break;
      }
      default:
        Step("about", [&] { return host_.About(); });
        break;
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
