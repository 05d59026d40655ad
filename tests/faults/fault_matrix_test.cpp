// The fault matrix: every host function the module calls, made to fail in
// turn (each call number where a command calls it more than once) during
// every command that calls it, driven by one table. A row says what the host
// must see afterwards: the result, the message and its display flag, what the
// command left in PF_OutData, what became of the host's handles and how often
// the host noticed misuse. Every row also checks that the call gave back every
// suite it borrowed, then plays the rest of the effect's life without faults:
// nothing may crash, and nothing but what the host itself refused to free may
// stay behind.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/sim_host.h"

namespace {

using cinebar_simhost::AcquireKey;
using cinebar_simhost::Fault;
using cinebar_simhost::Host;
using cinebar_simhost::Instance;
using cinebar_simhost::Module;
using cinebar_simhost::World;

constexpr A_long kHeader = 1, kRender = 2, kPreset = 3, kRatio = 4, kColor = 5;
constexpr A_u_long kVersion = 0x0008E600;
constexpr PF_OutFlags kOutFlags = 0x02008401;
constexpr PF_Err kRefusal = PF_Err_INVALID_CALLBACK;  // what a failing host function answers
constexpr A_long kWidth = 48, kHeight = 27;           // 2.35 gives the picture {0, 3, 48, 23}
constexpr PF_Rect kPicture{0, 3, 48, 23};
constexpr PF_Pixel kBar{255, 200, 10, 90};

// The module fetches its own instance handle on the first command of its
// life; a first no-op command takes that call out of every row.
Module& TheModule() {
  static Module module(CINEBAR_MODULE_PATH);
  static const bool warmed = [] {
    Host first(module);
    return first.Command(PF_Cmd_FRAME_SETDOWN) == PF_Err_NONE;
  }();
  EXPECT_TRUE(warmed);
  return module;
}

// ---- the table ------------------------------------------------------------------

enum class Cmd {
  kGlobalSetup,
  kParamsSetup,
  kSequenceSetup,       // a new instance
  kSequenceSetupAgain,  // an instance that already has its record
  kSequenceResetup,     // an instance brought back without a record
  kSequenceSetdown,
  kChangePreset,  // "Preset" set to "2.35:1 (Anamorphic)"
  kChangeRatio,   // "Aspect Ratio" typed as 1.85
  kUpdateParamsUI,
  kRender8Image,
  kRender8Transparent,
  kRender16Image,
  kRender16Transparent,
  kEvent,  // a click on the header row
  kAbout,
};

const char* CmdName(Cmd cmd) {
  switch (cmd) {
    case Cmd::kGlobalSetup:
      return "global_setup";
    case Cmd::kParamsSetup:
      return "params_setup";
    case Cmd::kSequenceSetup:
      return "sequence_setup";
    case Cmd::kSequenceSetupAgain:
      return "sequence_setup_again";
    case Cmd::kSequenceResetup:
      return "sequence_resetup";
    case Cmd::kSequenceSetdown:
      return "sequence_setdown";
    case Cmd::kChangePreset:
      return "changed_preset";
    case Cmd::kChangeRatio:
      return "changed_ratio";
    case Cmd::kUpdateParamsUI:
      return "update_params_ui";
    case Cmd::kRender8Image:
      return "render8_image";
    case Cmd::kRender8Transparent:
      return "render8_transparent";
    case Cmd::kRender16Image:
      return "render16_image";
    case Cmd::kRender16Transparent:
      return "render16_transparent";
    case Cmd::kEvent:
      return "event";
    case Cmd::kAbout:
      return "about";
  }
  return "?";
}

const Cmd kAllCmds[] = {Cmd::kGlobalSetup,
                        Cmd::kParamsSetup,
                        Cmd::kSequenceSetup,
                        Cmd::kSequenceSetupAgain,
                        Cmd::kSequenceResetup,
                        Cmd::kSequenceSetdown,
                        Cmd::kChangePreset,
                        Cmd::kChangeRatio,
                        Cmd::kUpdateParamsUI,
                        Cmd::kRender8Image,
                        Cmd::kRender8Transparent,
                        Cmd::kRender16Image,
                        Cmd::kRender16Transparent,
                        Cmd::kEvent,
                        Cmd::kAbout};

// One failing host function: its fault-plan name, the call that fails, and
// whether a suite is refused with an error or handed out as null without one.
// Functions returning a pointer answer null, those returning nothing do nothing.
struct Injected {
  std::string function;  // empty: no fault
  int call = 1;
  bool null_suite = false;
};

// What the command left behind, beyond result and message.
enum class Out {
  kNothing,          // nothing the row looks at
  kGlobalData,       // version, out-flags and a fresh global data handle
  kNoGlobalData,     // version and out-flags, no global data
  kAllParams,        // six parameters, five definitions, the custom UI registered
  kHeaderRefused,    // six parameters, the four controls, no custom UI
  kUIRefused,        // six parameters, five definitions, the host kept no custom UI
  kParamsStopped,    // the refused control and those after it missing, num_params not written
  kNewRecord,        // a fresh 12-byte record with preset 1
  kNoRecord,         // no sequence data
  kRecordKept,       // sequence data still the instance's earlier record
  kSliderMoved,      // the preset's ratio written into "Aspect Ratio", the record follows
  kPresetFollows,    // "Preset" moved through a UI update, the record follows
  kRecordUnchanged,  // neither the popup nor the record moved
  kPopupFromRecord,  // the record's preset pushed into "Preset"
  kPopupUnchanged,
  kBarsDrawn,  // bars in the colour, the picture cleared or copied
  kAboutText,  // the about text of the module itself
};

struct Row {
  Cmd cmd;
  Injected fault;
  Injected also;  // a second fault in the same call (the message's sprintf)
  PF_Err result;
  const char* message;  // return_msg; for kAboutText its start
  bool display;         // PF_OutFlag_DISPLAY_ERROR_MESSAGE
  Out out;
  int live_delta;  // live host handles after the command minus before
  int forgotten;   // handles the host let go of that are still live (its own refused disposals)
  int misuse;      // host errors the host noticed during the command
};

const std::string kFillSuite = AcquireKey("PF Fill Matte Suite", 2);
const std::string kTransformSuite = AcquireKey("PF World Transform Suite", 1);
const std::string kHandleSuite = AcquireKey("PF Handle Suite", 2);
const std::string kParamUtilsSuite = AcquireKey("PF Param Utils Suite", 3);

Injected F(const std::string& function, int call = 1) { return Injected{function, call, false}; }
Injected NullSuite(const std::string& function) { return Injected{function, 1, true}; }
const Injected kNone{};

const char kNoMsg[] = "";
const char kNoFill[] = "Cinebar is missing the suite PF Fill Matte Suite";
const char kNoTransform[] = "Cinebar is missing the suite PF World Transform Suite";
const char kNoHandles[] = "Cinebar is missing the suite PF Handle Suite";
const char kNoParamUtils[] = "Cinebar is missing the suite PF Param Utils Suite";
const char kAbout[] = "Tarnwick Cadre 1.1.12";
constexpr PF_Err kOk = PF_Err_NONE, kNoMem = PF_Err_OUT_OF_MEMORY, kNoSuite = 13;

// Failing host calls are thrown and returned as they are; a refused suite is
// 13 with its name where the command needs it; a missing handle is out of
// memory; sprintf and strcpy failures cost only text; the header's refusal is
// returned once the controls are added; register_ui, get_platform_data,
// PF_UpdateParamUI in the UI update and every failure during an event never
// reach the host.
const std::vector<Row> kRows = {
    // cmd, fault, also, result, message, display, out, live, forgotten, misuse
    {Cmd::kGlobalSetup, kNone, kNone, kOk, kNoMsg, false, Out::kGlobalData, 1, 0, 0},
    {Cmd::kGlobalSetup, F("host_new_handle"), kNone, kOk, kNoMsg, false, Out::kNoGlobalData, 0, 0, 0},
    // A global data block that could not be locked could not be cleared either: it is given back.
    {Cmd::kGlobalSetup, F("host_lock_handle"), kNone, kOk, kNoMsg, false, Out::kNoGlobalData, 0, 0, 0},
    {Cmd::kGlobalSetup, F("host_unlock_handle"), kNone, kOk, kNoMsg, false, Out::kGlobalData, 1, 0, 0},

    // The header's unlock hands the host the record's address: one misuse in every run that gets there.
    {Cmd::kParamsSetup, kNone, kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 1},
    {Cmd::kParamsSetup, F("host_lock_handle"), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 0},
    {Cmd::kParamsSetup, F("host_unlock_handle"), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 0},
    // The header refused: the four controls still come without the custom UI, and the refusal is
    // returned, so the host never applies an effect whose controls sit one index low.
    {Cmd::kParamsSetup, F("add_param", 1), kNone, kRefusal, kNoMsg, false, Out::kHeaderRefused, 0, 0, 1},
    {Cmd::kParamsSetup, F("add_param", 2), kNone, kRefusal, kNoMsg, false, Out::kParamsStopped, 0, 0, 1},
    {Cmd::kParamsSetup, F("add_param", 3), kNone, kRefusal, kNoMsg, false, Out::kParamsStopped, 0, 0, 1},
    {Cmd::kParamsSetup, F("add_param", 4), kNone, kRefusal, kNoMsg, false, Out::kParamsStopped, 0, 0, 1},
    {Cmd::kParamsSetup, F("add_param", 5), kNone, kRefusal, kNoMsg, false, Out::kParamsStopped, 0, 0, 1},
    {Cmd::kParamsSetup, F("register_ui"), kNone, kOk, kNoMsg, false, Out::kUIRefused, 0, 0, 1},
    {Cmd::kParamsSetup, F("strcpy", 1), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 1},
    {Cmd::kParamsSetup, F("strcpy", 2), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 1},
    {Cmd::kParamsSetup, F("strcpy", 3), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 1},
    {Cmd::kParamsSetup, F("strcpy", 4), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 1},
    {Cmd::kParamsSetup, F("strcpy", 5), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 1},
    {Cmd::kParamsSetup, F("strcpy", 6), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 1},
    {Cmd::kParamsSetup, F("strcpy", 7), kNone, kOk, kNoMsg, false, Out::kAllParams, 0, 0, 1},

    {Cmd::kSequenceSetup, kNone, kNone, kOk, kNoMsg, false, Out::kNewRecord, 1, 0, 0},
    {Cmd::kSequenceSetup, F(kHandleSuite), kNone, kNoSuite, kNoHandles, false, Out::kNoRecord, 0, 0, 0},
    {Cmd::kSequenceSetup, NullSuite(kHandleSuite), kNone, kNoSuite, kNoHandles, false, Out::kNoRecord, 0, 0,
     0},
    {Cmd::kSequenceSetup, F(kHandleSuite), F("sprintf"), kNoSuite, kNoMsg, false, Out::kNoRecord, 0, 0, 0},
    {Cmd::kSequenceSetup, F("HandleSuite.host_new_handle"), kNone, kNoMem, kNoMsg, false, Out::kNoRecord, 0,
     0, 0},

    {Cmd::kSequenceSetupAgain, kNone, kNone, kOk, kNoMsg, false, Out::kNewRecord, 0, 0, 0},
    {Cmd::kSequenceSetupAgain, F(kHandleSuite), kNone, kNoSuite, kNoHandles, false, Out::kRecordKept, 0, 0,
     0},
    // The host ignores the disposal it was asked for; the module cannot know.
    {Cmd::kSequenceSetupAgain, F("HandleSuite.host_dispose_handle"), kNone, kOk, kNoMsg, false,
     Out::kNewRecord, 1, 1, 0},
    {Cmd::kSequenceSetupAgain, F("HandleSuite.host_new_handle"), kNone, kNoMem, kNoMsg, false, Out::kNoRecord,
     -1, 0, 0},

    {Cmd::kSequenceResetup, kNone, kNone, kOk, kNoMsg, false, Out::kNewRecord, 1, 0, 0},
    {Cmd::kSequenceResetup, F(kHandleSuite), kNone, kNoSuite, kNoHandles, false, Out::kNoRecord, 0, 0, 0},
    {Cmd::kSequenceResetup, NullSuite(kHandleSuite), kNone, kNoSuite, kNoHandles, false, Out::kNoRecord, 0, 0,
     0},
    {Cmd::kSequenceResetup, F("HandleSuite.host_new_handle"), kNone, kNoMem, kNoMsg, false, Out::kNoRecord, 0,
     0, 0},

    {Cmd::kSequenceSetdown, kNone, kNone, kOk, kNoMsg, false, Out::kNoRecord, -1, 0, 0},
    // Without the Handle Suite the record cannot be freed: reported, and the host is left holding it.
    {Cmd::kSequenceSetdown, F(kHandleSuite), kNone, kNoSuite, kNoHandles, false, Out::kRecordKept, 0, 1, 0},
    {Cmd::kSequenceSetdown, F(kHandleSuite), F("sprintf"), kNoSuite, kNoMsg, false, Out::kRecordKept, 0, 1,
     0},
    {Cmd::kSequenceSetdown, F("HandleSuite.host_dispose_handle"), kNone, kOk, kNoMsg, false, Out::kNoRecord,
     0, 1, 0},

    // A preset needs no Param Utils Suite, although the handler asks for it.
    {Cmd::kChangePreset, kNone, kNone, kOk, kNoMsg, false, Out::kSliderMoved, 0, 0, 0},
    {Cmd::kChangePreset, F(kParamUtilsSuite), kNone, kOk, kNoMsg, false, Out::kSliderMoved, 0, 0, 0},
    {Cmd::kChangePreset, NullSuite(kParamUtilsSuite), kNone, kOk, kNoMsg, false, Out::kSliderMoved, 0, 0, 0},

    {Cmd::kChangeRatio, kNone, kNone, kOk, kNoMsg, false, Out::kPresetFollows, 0, 0, 0},
    {Cmd::kChangeRatio, F(kParamUtilsSuite), kNone, kNoSuite, kNoParamUtils, false, Out::kRecordUnchanged, 0,
     0, 0},
    {Cmd::kChangeRatio, NullSuite(kParamUtilsSuite), kNone, kNoSuite, kNoParamUtils, false,
     Out::kRecordUnchanged, 0, 0, 0},
    {Cmd::kChangeRatio, F(kParamUtilsSuite), F("sprintf"), kNoSuite, kNoMsg, false, Out::kRecordUnchanged, 0,
     0, 0},
    {Cmd::kChangeRatio, F("PF_UpdateParamUI"), kNone, kRefusal, kNoMsg, false, Out::kRecordUnchanged, 0, 0,
     0},

    {Cmd::kUpdateParamsUI, kNone, kNone, kOk, kNoMsg, false, Out::kPopupFromRecord, 0, 0, 0},
    {Cmd::kUpdateParamsUI, F(kParamUtilsSuite), kNone, kOk, kNoMsg, false, Out::kPopupUnchanged, 0, 0, 0},
    {Cmd::kUpdateParamsUI, NullSuite(kParamUtilsSuite), kNone, kOk, kNoMsg, false, Out::kPopupUnchanged, 0, 0,
     0},
    {Cmd::kUpdateParamsUI, F("PF_UpdateParamUI"), kNone, kOk, kNoMsg, false, Out::kPopupUnchanged, 0, 0, 0},

    {Cmd::kRender8Image, kNone, kNone, kOk, kNoMsg, false, Out::kBarsDrawn, 0, 0, 0},
    {Cmd::kRender8Image, F(kFillSuite), kNone, kNoSuite, kNoFill, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender8Image, NullSuite(kFillSuite), kNone, kNoSuite, kNoFill, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender8Image, F(kFillSuite), F("sprintf"), kNoSuite, kNoMsg, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender8Image, F("fill"), kNone, kRefusal, kNoMsg, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender8Image, F(kTransformSuite), kNone, kNoSuite, kNoTransform, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender8Image, NullSuite(kTransformSuite), kNone, kNoSuite, kNoTransform, false, Out::kNothing, 0,
     0, 0},
    {Cmd::kRender8Image, F("copy"), kNone, kRefusal, kNoMsg, false, Out::kNothing, 0, 0, 0},

    {Cmd::kRender8Transparent, kNone, kNone, kOk, kNoMsg, false, Out::kBarsDrawn, 0, 0, 0},
    {Cmd::kRender8Transparent, F(kFillSuite), kNone, kNoSuite, kNoFill, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender8Transparent, F("fill", 1), kNone, kRefusal, kNoMsg, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender8Transparent, F("fill", 2), kNone, kRefusal, kNoMsg, false, Out::kNothing, 0, 0, 0},

    {Cmd::kRender16Image, kNone, kNone, kOk, kNoMsg, false, Out::kBarsDrawn, 0, 0, 0},
    {Cmd::kRender16Image, F(kFillSuite), kNone, kNoSuite, kNoFill, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender16Image, NullSuite(kFillSuite), kNone, kNoSuite, kNoFill, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender16Image, F("fill16"), kNone, kRefusal, kNoMsg, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender16Image, F(kTransformSuite), kNone, kNoSuite, kNoTransform, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender16Image, F("copy"), kNone, kRefusal, kNoMsg, false, Out::kNothing, 0, 0, 0},

    {Cmd::kRender16Transparent, kNone, kNone, kOk, kNoMsg, false, Out::kBarsDrawn, 0, 0, 0},
    {Cmd::kRender16Transparent, F(kFillSuite), kNone, kNoSuite, kNoFill, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender16Transparent, F("fill16", 1), kNone, kRefusal, kNoMsg, false, Out::kNothing, 0, 0, 0},
    {Cmd::kRender16Transparent, F("fill16", 2), kNone, kRefusal, kNoMsg, false, Out::kNothing, 0, 0, 0},

    {Cmd::kEvent, kNone, kNone, kOk, kNoMsg, false, Out::kNothing, 0, 0, 0},
    // A lock that failed is not given back.
    {Cmd::kEvent, F("host_lock_handle"), kNone, kOk, kNoMsg, false, Out::kNothing, 0, 0, 0},
    {Cmd::kEvent, F("host_unlock_handle"), kNone, kOk, kNoMsg, false, Out::kNothing, 0, 0, 0},

    {Cmd::kAbout, kNone, kNone, kOk, kAbout, false, Out::kAboutText, 0, 0, 0},
    {Cmd::kAbout, F("get_platform_data"), kNone, kOk, kAbout, false, Out::kAboutText, 0, 0, 0},
    {Cmd::kAbout, F("host_lock_handle"), kNone, kOk, kAbout, false, Out::kAboutText, 0, 0, 0},
    {Cmd::kAbout, F("host_unlock_handle"), kNone, kOk, kAbout, false, Out::kAboutText, 0, 0, 0},
};

std::string Describe(const Injected& fault) {
  if (fault.function.empty()) return "no_fault";
  std::string text =
      fault.function + "_call" + std::to_string(fault.call) + (fault.null_suite ? "_null" : "");
  return text;
}

std::string RowName(const Row& row) {
  std::string name = std::string(CmdName(row.cmd)) + "__" + Describe(row.fault);
  if (!row.also.function.empty()) name += "__and_" + Describe(row.also);
  for (char& c : name) {
    const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    if (!keep) c = '_';
  }
  return name;
}

// ---- one command, prepared as the host would reach it ----------------------------------

// The strcpy texts of parameter setup in the order the module copies them.
const std::vector<std::string> kSetupTexts = {
    "",
    "Render",
    "On Transparent|On Image",
    "Preset",
    "4:3 (Academy)|1.66:1 (Super 16)|16:9 (Widescreen TV)|1.85:1 (Theatrical)|2.35:1 (Anamorphic)|2.76:1 "
    "(Ultra)|(-|Custom",
    "Aspect Ratio",
    "Color",
};

int32_t StoredPreset(Host& host, PF_Handle record) {
  const std::vector<uint8_t> bytes = host.handles().Bytes(record);
  int32_t preset = 0;
  std::memcpy(&preset, bytes.data(), sizeof preset);
  return preset;
}

class Scene {
 public:
  explicit Scene(Cmd cmd) : cmd_(cmd) {}

  // Everything the host does before the command, without faults.
  void Prepare() {
    if (cmd_ == Cmd::kGlobalSetup) return;
    ASSERT_EQ(kOk, host.GlobalSetup());
    if (cmd_ == Cmd::kParamsSetup || cmd_ == Cmd::kAbout) return;
    ASSERT_EQ(kOk, host.ParamsSetup());
    const bool deep = cmd_ == Cmd::kRender16Image || cmd_ == Cmd::kRender16Transparent;
    World input(kWidth, kHeight, deep);
    input.FillPattern(11);
    if (cmd_ == Cmd::kSequenceSetup || cmd_ == Cmd::kSequenceResetup) {
      instance = &host.AddInstance(std::move(input));
      return;
    }
    auto applied = host.Apply(std::move(input));
    ASSERT_EQ(kOk, applied.err);
    instance = &applied.instance;
    record_before = instance->sequence_data();
    if (cmd_ == Cmd::kUpdateParamsUI) {
      ASSERT_EQ(kOk, host.ChangePopup(*instance, kPreset, 6));
      instance->param(kPreset).u.pd.value = 2;  // the project disagrees until the next UI update
    }
    if (cmd_ < Cmd::kRender8Image || cmd_ > Cmd::kRender16Transparent) return;
    output = std::make_unique<World>(kWidth, kHeight, deep);
    output->FillPattern(99);
    instance->param(kRatio).u.fs_d.value = static_cast<double>(2.35f);
    instance->param(kColor).u.cd.value = kBar;
    const bool transparent = cmd_ == Cmd::kRender8Transparent || cmd_ == Cmd::kRender16Transparent;
    instance->param(kRender).u.pd.value = transparent ? 1 : 2;
  }

  PF_Err Run() {
    switch (cmd_) {
      case Cmd::kGlobalSetup:
        return host.GlobalSetup();
      case Cmd::kParamsSetup:
        return host.ParamsSetup();
      case Cmd::kSequenceSetup:
      case Cmd::kSequenceSetupAgain:
        return host.SequenceSetup(*instance);
      case Cmd::kSequenceResetup:
        return host.SequenceResetup(*instance);
      case Cmd::kSequenceSetdown:
        return host.Remove(*instance);
      case Cmd::kChangePreset:
        return host.ChangePopup(*instance, kPreset, 5);
      case Cmd::kChangeRatio:
        return host.ChangeFloat(*instance, kRatio, 1.85);
      case Cmd::kUpdateParamsUI:
        return host.UpdateParamsUI(*instance);
      case Cmd::kRender8Image:
      case Cmd::kRender8Transparent:
      case Cmd::kRender16Image:
      case Cmd::kRender16Transparent:
        return host.Render(*instance, *output);
      case Cmd::kEvent: {
        PF_EventExtra extra{};
        extra.e_type = PF_Event_DO_CLICK;
        extra.effect_win.index = kHeader;
        return host.Event(*instance, extra);
      }
      case Cmd::kAbout:
        return host.About();
    }
    return -1;
  }

  Host host{TheModule()};
  Instance* instance = nullptr;
  std::unique_ptr<World> output;
  PF_Handle record_before = nullptr;

 private:
  Cmd cmd_;
};

void Arm(Host& host, const Injected& fault) {
  if (fault.function.empty()) return;
  const Fault base = fault.null_suite ? Fault::Null() : Fault::Error(kRefusal);
  host.faults().Fail(fault.function, base.OnCall(fault.call));
}

bool Same(PF_Pixel a, PF_Pixel b) {
  return a.alpha == b.alpha && a.red == b.red && a.green == b.green && a.blue == b.blue;
}
bool Same(PF_Pixel16 a, PF_Pixel16 b) {
  return a.alpha == b.alpha && a.red == b.red && a.green == b.green && a.blue == b.blue;
}

void CheckParams(Host& host, const Row& row) {
  const auto& added = host.added_params();
  const PF_OutData& out = host.out_data();
  switch (row.out) {
    case Out::kAllParams:
    case Out::kUIRefused: {
      EXPECT_EQ(6, out.num_params);
      ASSERT_EQ(5u, added.size());
      EXPECT_EQ(row.out == Out::kAllParams ? 1u : 0u, host.registered_ui().size());
      // A failed strcpy loses its text and nothing else.
      std::vector<std::string> expected = kSetupTexts;
      if (row.fault.function == "strcpy") expected[static_cast<size_t>(row.fault.call - 1)].clear();
      const std::vector<std::string> got = {added[0].def.name, added[1].def.name,    added[1].popup_items,
                                            added[2].def.name, added[2].popup_items, added[3].def.name,
                                            added[4].def.name};
      EXPECT_EQ(expected, got);
      const PF_ParamType types[] = {PF_Param_NO_DATA, PF_Param_POPUP, PF_Param_POPUP, PF_Param_FLOAT_SLIDER,
                                    PF_Param_COLOR};
      const A_long ids[] = {5, 1, 2, 3, 4};
      for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(types[i], added[i].def.param_type) << "definition " << i;
        EXPECT_EQ(ids[i], added[i].def.uu.id) << "definition " << i;
      }
      EXPECT_EQ(2, added[1].def.u.pd.num_choices);
      EXPECT_EQ(2, added[1].def.u.pd.dephault);
      EXPECT_EQ(8, added[2].def.u.pd.num_choices);
      EXPECT_EQ(1, added[2].def.u.pd.dephault);
      break;
    }
    case Out::kHeaderRefused:
      EXPECT_EQ(6, out.num_params);
      ASSERT_EQ(4u, added.size());
      EXPECT_STREQ("Render", added[0].def.name);
      EXPECT_STREQ("Color", added[3].def.name);
      EXPECT_TRUE(host.registered_ui().empty());
      break;
    case Out::kParamsStopped:
      EXPECT_EQ(0, out.num_params);
      EXPECT_EQ(static_cast<size_t>(row.fault.call - 1), added.size());
      EXPECT_TRUE(host.registered_ui().empty());
      break;
    default:
      ADD_FAILURE() << "no parameter outcome";
  }
}

void CheckOut(Scene& s, const Row& row) {
  Host& host = s.host;
  const PF_OutData& out = host.out_data();
  switch (row.out) {
    case Out::kNothing:
      break;
    case Out::kGlobalData:
    case Out::kNoGlobalData:
      EXPECT_EQ(kVersion, out.my_version);
      EXPECT_EQ(kOutFlags, out.out_flags & ~PF_OutFlag_DISPLAY_ERROR_MESSAGE);
      EXPECT_EQ(0, out.out_flags2);
      if (row.out == Out::kGlobalData) {
        ASSERT_NE(nullptr, out.global_data);
        ASSERT_TRUE(host.handles().IsLive(out.global_data));
        EXPECT_EQ(std::vector<uint8_t>(80, 0), host.handles().Bytes(out.global_data))
            << "unbound and cleared";
      } else {
        EXPECT_EQ(nullptr, out.global_data);
      }
      break;
    case Out::kAllParams:
    case Out::kUIRefused:
    case Out::kHeaderRefused:
    case Out::kParamsStopped:
      CheckParams(host, row);
      break;
    case Out::kNewRecord:
      ASSERT_NE(nullptr, out.sequence_data);
      ASSERT_TRUE(host.handles().IsLive(out.sequence_data));
      EXPECT_EQ(12u, host.handles().Bytes(out.sequence_data).size());
      EXPECT_EQ(1, StoredPreset(host, out.sequence_data));
      EXPECT_EQ(out.sequence_data, s.instance->sequence_data());
      break;
    case Out::kNoRecord:
      EXPECT_EQ(nullptr, out.sequence_data);
      EXPECT_EQ(nullptr, s.instance->sequence_data());
      break;
    case Out::kRecordKept:
      ASSERT_NE(nullptr, s.record_before);
      EXPECT_EQ(s.record_before, out.sequence_data);
      EXPECT_TRUE(host.handles().IsLive(s.record_before));
      break;
    case Out::kSliderMoved:
      EXPECT_EQ(static_cast<double>(2.35f), s.instance->param(kRatio).u.fs_d.value);
      EXPECT_EQ(5, StoredPreset(host, s.instance->sequence_data()));
      break;
    case Out::kPresetFollows:
      EXPECT_EQ(4, s.instance->param(kPreset).u.pd.value);
      EXPECT_EQ(4, StoredPreset(host, s.instance->sequence_data()));
      break;
    case Out::kRecordUnchanged:
      EXPECT_EQ(1, s.instance->param(kPreset).u.pd.value);
      EXPECT_EQ(1, StoredPreset(host, s.instance->sequence_data()));
      break;
    case Out::kPopupFromRecord:
    case Out::kPopupUnchanged:
      EXPECT_EQ(row.out == Out::kPopupFromRecord ? 6 : 2, s.instance->param(kPreset).u.pd.value);
      EXPECT_EQ(6, StoredPreset(host, s.instance->sequence_data()));
      break;
    case Out::kBarsDrawn: {
      const World& o = *s.output;
      const bool transparent = s.instance->param(kRender).u.pd.value == 1;
      for (const auto& [x, y] : std::vector<std::pair<A_long, A_long>>{
               {0, 0}, {kWidth - 1, kPicture.top - 1}, {5, kPicture.bottom}, {0, kPicture.top}, {30, 12}}) {
        const bool inside = y >= kPicture.top && y < kPicture.bottom;
        if (o.deep()) {
          const PF_Pixel16 want = !inside       ? PF_Pixel16{255 << 7, 200 << 7, 10 << 7, 90 << 7}
                                  : transparent ? PF_Pixel16{0, 0, 0, 0}
                                                : World::Pattern16(x, y, 11);
          EXPECT_TRUE(Same(want, o.Get16(x, y))) << "pixel " << x << "," << y;
        } else {
          const PF_Pixel want = !inside       ? kBar
                                : transparent ? PF_Pixel{0, 0, 0, 0}
                                              : World::Pattern8(x, y, 11);
          EXPECT_TRUE(Same(want, o.Get8(x, y))) << "pixel " << x << "," << y;
        }
      }
      EXPECT_TRUE(o.GuardsIntact());
      break;
    }
    case Out::kAboutText:
      break;
  }
}

// The rest of the effect's life, with a host that no longer refuses anything.
void PlayOn(Scene& s, const Row& row) {
  Host& host = s.host;
  host.faults().Clear();
  const auto step = [&](const char* what, PF_Err err) {
    EXPECT_EQ(kOk, err) << "afterwards: " << what;
    EXPECT_EQ(0, host.SuitesOutstanding()) << "afterwards: " << what;
  };
  if (row.cmd == Cmd::kGlobalSetup) step("parameter setup", host.ParamsSetup());
  // An effect whose controls the host did not all take is not applied.
  if (host.added_params().size() == 5) {
    auto applied = host.Apply(World(kWidth, kHeight));
    step("apply", applied.err);
    World output(kWidth, kHeight);
    step("render", host.Render(applied.instance, output));
    PF_EventExtra extra{};
    extra.effect_win.index = kHeader;
    step("event", host.Event(applied.instance, extra));
    step("changed ratio", host.ChangeFloat(applied.instance, kRatio, 2.76));
    step("update UI", host.UpdateParamsUI(applied.instance));
    step("remove", host.Remove(applied.instance));
  }
  if (s.instance != nullptr && !s.instance->removed()) step("remove", host.Remove(*s.instance));
  step("about", host.About());
  const PF_Handle global = host.global_data();
  step("global setdown", host.GlobalSetdown());
  // The host frees the global data itself; whatever else is live, it has let go of.
  std::vector<PF_Handle> forgotten = host.ForgottenHandles();
  EXPECT_EQ(static_cast<size_t>(row.forgotten) + (global != nullptr ? 1 : 0), forgotten.size());
  if (global != nullptr) {
    EXPECT_EQ("", host.handles().Dispose(global));
  }
  EXPECT_EQ(static_cast<size_t>(row.forgotten), host.LiveHandleCount());
}

// Rows print as their names, not as bytes.
void PrintTo(const Row& row, std::ostream* os) { *os << RowName(row); }

std::string Errors(const Host& host, size_t from) {
  std::string text;
  for (size_t i = from; i < host.host_errors().size(); ++i) text += "\n  " + host.host_errors()[i];
  return text;
}

class FaultMatrix : public ::testing::TestWithParam<Row> {};

TEST_P(FaultMatrix, Row) {
  const Row& row = GetParam();
  Scene s(row.cmd);
  ASSERT_NO_FATAL_FAILURE(s.Prepare());
  Host& host = s.host;
  const size_t live = host.LiveHandleCount();
  const size_t forgotten = host.ForgottenHandles().size();
  const size_t misuse = host.host_errors().size();
  host.faults().Clear();
  Arm(host, row.fault);
  Arm(host, row.also);

  const PF_Err err = s.Run();

  for (const Injected* fault : {&row.fault, &row.also}) {
    if (!fault->function.empty()) {
      EXPECT_GE(host.faults().Calls(fault->function), fault->call) << fault->function << " was not reached";
    }
  }
  EXPECT_EQ(row.result, err);
  const std::string message = host.out_data().return_msg;
  if (row.out == Out::kAboutText) {
    EXPECT_EQ(0u, message.rfind(row.message, 0)) << message;
  } else {
    EXPECT_EQ(row.message, message);
  }
  EXPECT_EQ(row.display, (host.out_data().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE) != 0);
  EXPECT_EQ(0, host.SuitesOutstanding()) << host.log().ToString();
  EXPECT_EQ(static_cast<long long>(live) + row.live_delta, static_cast<long long>(host.LiveHandleCount()));
  EXPECT_EQ(forgotten + static_cast<size_t>(row.forgotten), host.ForgottenHandles().size());
  EXPECT_EQ(misuse + static_cast<size_t>(row.misuse), host.host_errors().size()) << Errors(host, misuse);
  CheckOut(s, row);
  PlayOn(s, row);
}

INSTANTIATE_TEST_SUITE_P(Rows, FaultMatrix, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& row) { return RowName(row.param); });

// The table is complete: every host function that a command calls, at every
// call number, is failed by some row of that command. A new host call in the
// module shows up here until the table says what its failure means.
TEST(FaultTable, CoversEveryHostCallOfEveryCommand) {
  for (const Cmd cmd : kAllCmds) {
    SCOPED_TRACE(CmdName(cmd));
    Scene s(cmd);
    ASSERT_NO_FATAL_FAILURE(s.Prepare());
    s.host.log().Clear();
    ASSERT_EQ(kOk, s.Run());
    std::map<std::string, int> calls;
    for (const auto& record : s.host.log().records()) {
      if (record.function == "EntryPointFunc" || record.function == "ReleaseSuite") continue;
      const std::string key =
          record.function == "AcquireSuite" ? AcquireKey(record.suite, record.version) : record.function;
      const int n = ++calls[key];
      bool covered = false;
      for (const Row& row : kRows) {
        covered |= row.cmd == cmd && row.fault.function == key && row.fault.call == n;
      }
      EXPECT_TRUE(covered) << key << " call " << n << " has no row";
    }
    bool baseline = false;
    for (const Row& row : kRows) baseline |= row.cmd == cmd && row.fault.function.empty();
    EXPECT_TRUE(baseline) << "no fault-free row";
  }
}

}  // namespace
