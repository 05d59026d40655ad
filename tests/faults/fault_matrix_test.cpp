// The fault matrix: every host function the module calls, made to fail in
// turn (each call number where a command calls it more than once) during
// every command that calls it, driven by one table. A row says what the host
// must see afterwards: the result, the message (never flagged for display),
// what the command left behind, what became of the host's handles and how
// often the host noticed misuse. Every row also checks that the call gave back
// every suite it borrowed, then plays the rest of the effect's life without
// faults: nothing may crash, and nothing but what the host itself refused to
// free may stay behind.
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <ostream>
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

// ---- the commands, each prepared as the host would reach it ----------------------

// The host, with the instance the command is for.
struct Scene : Host {
  Scene() : Host(TheModule()) {}
  Instance* instance = nullptr;
  std::unique_ptr<World> output;
  PF_Handle record_before = nullptr;
};

// How far the host gets before the command: nowhere, global setup, parameter
// setup and an instance without a record, an instance applied (on an 8- or a
// 16-bit layer).
enum Stage { kFresh, kGlobal, kAdded, kApplied, kApplied16 };

struct Command {
  const char* name;
  Stage stage;
  PF_Err (*run)(Scene&);
};

PF_Err Setup(Scene& s) { return s.SequenceSetup(*s.instance); }
// The bars in kBar over a 2.35 picture, "Render" 1 on transparent, 2 on image.
PF_Err Draw(Scene& s, A_long mode) {
  s.output = std::make_unique<World>(kWidth, kHeight, s.instance->input().deep());
  s.output->FillPattern(99);
  s.instance->param(kRatio).u.fs_d.value = static_cast<double>(2.35f);
  s.instance->param(kColor).u.cd.value = kBar;
  s.instance->param(kRender).u.pd.value = mode;
  return s.Render(*s.instance, *s.output);
}

const Command kGlobalSetup{"global_setup", kFresh, [](Scene& s) { return s.GlobalSetup(); }};
const Command kParamsSetup{"params_setup", kGlobal, [](Scene& s) { return s.ParamsSetup(); }};
const Command kSequenceSetup{"sequence_setup", kAdded, Setup};               // a new instance
const Command kSequenceSetupAgain{"sequence_setup_again", kApplied, Setup};  // it has its record
const Command kSequenceResetup{"sequence_resetup", kAdded,
                               [](Scene& s) { return s.SequenceResetup(*s.instance); }};
const Command kSequenceSetdown{"sequence_setdown", kApplied, [](Scene& s) { return s.Remove(*s.instance); }};
// "Preset" set to "2.35:1 (Anamorphic)"; "Aspect Ratio" typed as 1.85.
const Command kChangePreset{"changed_preset", kApplied,
                            [](Scene& s) { return s.ChangePopup(*s.instance, kPreset, 5); }};
const Command kChangeRatio{"changed_ratio", kApplied,
                           [](Scene& s) { return s.ChangeFloat(*s.instance, kRatio, 1.85); }};
// The project's "Preset" says 2, the record 6.
const Command kUpdateParamsUI{"update_params_ui", kApplied,
                              [](Scene& s) { return s.UpdateParamsUI(*s.instance); }};
const Command kRender8Image{"render8_image", kApplied, [](Scene& s) { return Draw(s, 2); }};
const Command kRender8Transparent{"render8_transparent", kApplied, [](Scene& s) { return Draw(s, 1); }};
const Command kRender16Image{"render16_image", kApplied16, [](Scene& s) { return Draw(s, 2); }};
const Command kRender16Transparent{"render16_transparent", kApplied16, [](Scene& s) { return Draw(s, 1); }};
const Command kEvent{"event", kApplied, [](Scene& s) {  // a click on the header row
                       PF_EventExtra extra{};
                       extra.e_type = PF_Event_DO_CLICK;
                       extra.effect_win.index = kHeader;
                       return s.Event(*s.instance, extra);
                     }};
const Command kAbout{"about", kGlobal, [](Scene& s) { return s.About(); }};

// Everything the host does before the command, without faults.
void Prepare(Scene& s, const Command& cmd) {
  if (cmd.stage == kFresh) return;
  ASSERT_EQ(PF_Err_NONE, s.GlobalSetup());
  if (cmd.stage == kGlobal) return;
  ASSERT_EQ(PF_Err_NONE, s.ParamsSetup());
  World input(kWidth, kHeight, cmd.stage == kApplied16);
  input.FillPattern(11);
  if (cmd.stage == kAdded) {
    s.instance = &s.AddInstance(std::move(input));
    return;
  }
  auto applied = s.Apply(std::move(input));
  ASSERT_EQ(PF_Err_NONE, applied.err);
  s.instance = &applied.instance;
  s.record_before = s.instance->sequence_data();
  if (&cmd == &kUpdateParamsUI) {
    ASSERT_EQ(PF_Err_NONE, s.ChangePopup(*s.instance, kPreset, 6));
    s.instance->param(kPreset).u.pd.value = 2;  // the project disagrees until the next UI update
  }
}

// ---- the table ------------------------------------------------------------------

// One failing host function: its fault-plan name, the call that fails, and
// whether a suite is refused with an error or handed out as null without one.
// Functions returning a pointer answer null, those returning nothing do nothing.
struct Injected {
  std::string function;  // empty: no fault
  int call = 1;
  bool null_suite = false;
};

struct Row;
using Out = void (*)(Scene&, const Row&);  // checks what the command left behind, beyond result and message

struct Row {
  const Command* cmd;
  Injected fault;
  Injected also;  // a second fault in the same call (the message's sprintf)
  PF_Err result;
  const char* message;  // return_msg; for the about box its start
  Out out;
  int live_delta;  // live host handles after the command minus before
  int forgotten;   // handles the host let go of that are still live (its own refused disposals)
  int misuse;      // host errors the host noticed during the command
};

void Nothing(Scene&, const Row&) {}

// Version and out-flags, with a fresh global data handle (unbound, cleared) or none.
void Globals(Host& host, bool data) {
  const PF_OutData& out = host.out_data();
  EXPECT_EQ(0x0008E600u, out.my_version);
  EXPECT_EQ(0x02008401, out.out_flags);
  EXPECT_EQ(0, out.out_flags2);
  EXPECT_EQ(data, out.global_data != nullptr);
  if (data) {
    EXPECT_EQ(std::vector<uint8_t>(80, 0), host.handles().Bytes(out.global_data));
  }
}
void GlobalData(Scene& s, const Row&) { Globals(s, true); }
void NoGlobalData(Scene& s, const Row&) { Globals(s, false); }

// The definitions of parameter setup in order, with their texts in the order
// the module copies them; popups with their item count and default.
struct Definition {
  PF_ParamType type;
  A_long id;
  std::vector<std::string> texts;
  A_long choices, dephault;
};
const char kPresets[] =
    "4:3 (Academy)|1.66:1 (Super 16)|16:9 (Widescreen TV)|1.85:1 (Theatrical)|2.35:1 (Anamorphic)|2.76:1 "
    "(Ultra)|(-|Custom";
const Definition kDefinitions[] = {{PF_Param_NO_DATA, 5, {""}, 0, 0},
                                   {PF_Param_POPUP, 1, {"Render", "On Transparent|On Image"}, 2, 2},
                                   {PF_Param_POPUP, 2, {"Preset", kPresets}, 8, 1},
                                   {PF_Param_FLOAT_SLIDER, 3, {"Aspect Ratio"}, 0, 0},
                                   {PF_Param_COLOR, 4, {"Color"}, 0, 0}};

std::string Summary(const Definition& d) {
  std::string text = std::to_string(d.type) + " id " + std::to_string(d.id);
  for (const std::string& t : d.texts) text += " '" + t + "'";
  if (d.type == PF_Param_POPUP)
    text += " " + std::to_string(d.choices) + " from " + std::to_string(d.dephault);
  return text;
}

// num_params, the custom UI registered or not, and the definitions [first, first + count) of
// kDefinitions; a failed strcpy loses its text and nothing else.
void Params(Host& host, const Row& row, A_long num_params, size_t ui, size_t first, size_t count) {
  EXPECT_EQ(num_params, host.out_data().num_params);
  EXPECT_EQ(ui, host.registered_ui().size());
  std::vector<std::string> want, got;
  int copied = 0;
  for (Definition d : kDefinitions) {
    for (std::string& text : d.texts) {
      if (row.fault.function == "strcpy" && row.fault.call == ++copied) text.clear();
    }
    want.push_back(Summary(d));
  }
  want = std::vector<std::string>(want.begin() + first, want.begin() + first + count);
  for (const auto& added : host.added_params()) {
    const PF_ParamDef& def = added.def;
    Definition d{def.param_type, def.uu.id, {def.name}, def.u.pd.num_choices, def.u.pd.dephault};
    if (d.type == PF_Param_POPUP) d.texts.push_back(added.popup_items);
    got.push_back(Summary(d));
  }
  EXPECT_EQ(want, got);
}
void AllParams(Scene& s, const Row& row) { Params(s, row, 6, 1, 0, 5); }
void UIRefused(Scene& s, const Row& row) { Params(s, row, 6, 0, 0, 5); }
void HeaderRefused(Scene& s, const Row& row) { Params(s, row, 6, 0, 1, 4); }  // the four controls
void ParamsStopped(Scene& s, const Row& row) {  // the refused control and those after it missing
  Params(s, row, 0, 0, 0, static_cast<size_t>(row.fault.call - 1));
}

int32_t StoredPreset(Host& host, PF_Handle record) {
  int32_t preset = 0;
  std::memcpy(&preset, host.handles().Bytes(record).data(), sizeof preset);  // throws for a dead handle
  return preset;
}

void NewRecord(Scene& s, const Row&) {  // a fresh 12-byte record with preset 1
  const PF_Handle record = s.out_data().sequence_data;
  EXPECT_EQ(12u, s.handles().Bytes(record).size());
  EXPECT_EQ(1, StoredPreset(s, record));
  EXPECT_EQ(record, s.instance->sequence_data());
}
void NoRecord(Scene& s, const Row&) {
  EXPECT_EQ(nullptr, s.out_data().sequence_data);
  EXPECT_EQ(nullptr, s.instance->sequence_data());
}
void RecordKept(Scene& s, const Row&) {  // still the instance's earlier record
  EXPECT_EQ(s.record_before, s.out_data().sequence_data);
  EXPECT_TRUE(s.handles().IsLive(s.record_before));
}

// "Preset" and the preset the record holds.
template <A_long kPopup, int32_t kStored>
void Presets(Scene& s, const Row&) {
  EXPECT_EQ(kPopup, s.instance->param(kPreset).u.pd.value);
  EXPECT_EQ(kStored, StoredPreset(s, s.instance->sequence_data()));
}
void SliderMoved(Scene& s, const Row& row) {  // the preset's ratio written into "Aspect Ratio"
  Presets<5, 5>(s, row);
  EXPECT_EQ(static_cast<double>(2.35f), s.instance->param(kRatio).u.fs_d.value);
}
constexpr Out PresetFollows = Presets<4, 4>;    // moved through a UI update
constexpr Out RecordUnchanged = Presets<1, 1>;  // neither the popup nor the record moved
constexpr Out PopupFromRecord = Presets<6, 6>, PopupUnchanged = Presets<2, 6>;

template <typename Pixel>
std::array<int, 4> Channels(Pixel p) {
  return {p.alpha, p.red, p.green, p.blue};
}

// The bars in the colour above and below the picture, the picture cleared or copied.
void BarsDrawn(Scene& s, const Row&) {
  const World& o = *s.output;
  const bool transparent = s.instance->param(kRender).u.pd.value == 1;
  std::array<int, 4> bar = Channels(kBar);
  for (int& channel : bar) channel <<= o.deep() ? 7 : 0;
  for (const auto& [x, y] : std::vector<std::pair<A_long, A_long>>{
           {0, 0}, {kWidth - 1, kPicture.top - 1}, {5, kPicture.bottom}, {0, kPicture.top}, {30, 12}}) {
    const auto image = o.deep() ? Channels(World::Pattern16(x, y, 11)) : Channels(World::Pattern8(x, y, 11));
    const bool inside = y >= kPicture.top && y < kPicture.bottom;
    const std::array<int, 4> want = !inside ? bar : transparent ? std::array<int, 4>{} : image;
    EXPECT_EQ(want, o.deep() ? Channels(o.Get16(x, y)) : Channels(o.Get8(x, y))) << x << "," << y;
  }
  EXPECT_TRUE(o.GuardsIntact());
}

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
const char kAboutMsg[] = "Tarnwick Cadre 1.1.12";
constexpr PF_Err kOk = PF_Err_NONE, kNoMem = PF_Err_OUT_OF_MEMORY, kNoSuite = 13;

// Failing host calls are thrown and returned as they are; a refused suite is
// 13 with its name where the command needs it; a missing handle is out of
// memory; sprintf and strcpy failures cost only text; the header's refusal is
// returned once the controls are added; register_ui, get_platform_data,
// PF_UpdateParamUI in the UI update and every failure during an event never
// reach the host.
const std::vector<Row> kRows = {
    // cmd, fault, also, result, message, out, live, forgotten, misuse
    {&kGlobalSetup, kNone, kNone, kOk, kNoMsg, GlobalData, 1, 0, 0},
    {&kGlobalSetup, F("host_new_handle"), kNone, kOk, kNoMsg, NoGlobalData, 0, 0, 0},
    // A global data block that could not be locked could not be cleared either: it is given back.
    {&kGlobalSetup, F("host_lock_handle"), kNone, kOk, kNoMsg, NoGlobalData, 0, 0, 0},
    {&kGlobalSetup, F("host_unlock_handle"), kNone, kOk, kNoMsg, GlobalData, 1, 0, 0},

    // The header's unlock hands the host the record's address: one misuse in every run that gets there.
    {&kParamsSetup, kNone, kNone, kOk, kNoMsg, AllParams, 0, 0, 1},
    {&kParamsSetup, F("host_lock_handle"), kNone, kOk, kNoMsg, AllParams, 0, 0, 0},
    {&kParamsSetup, F("host_unlock_handle"), kNone, kOk, kNoMsg, AllParams, 0, 0, 0},
    // The header refused: the four controls still come without the custom UI, and the refusal is
    // returned, so the host never applies an effect whose controls sit one index low.
    {&kParamsSetup, F("add_param", 1), kNone, kRefusal, kNoMsg, HeaderRefused, 0, 0, 1},
    {&kParamsSetup, F("add_param", 2), kNone, kRefusal, kNoMsg, ParamsStopped, 0, 0, 1},
    {&kParamsSetup, F("add_param", 3), kNone, kRefusal, kNoMsg, ParamsStopped, 0, 0, 1},
    {&kParamsSetup, F("add_param", 4), kNone, kRefusal, kNoMsg, ParamsStopped, 0, 0, 1},
    {&kParamsSetup, F("add_param", 5), kNone, kRefusal, kNoMsg, ParamsStopped, 0, 0, 1},
    {&kParamsSetup, F("register_ui"), kNone, kOk, kNoMsg, UIRefused, 0, 0, 1},
    {&kParamsSetup, F("strcpy", 1), kNone, kOk, kNoMsg, AllParams, 0, 0, 1},
    {&kParamsSetup, F("strcpy", 2), kNone, kOk, kNoMsg, AllParams, 0, 0, 1},
    {&kParamsSetup, F("strcpy", 3), kNone, kOk, kNoMsg, AllParams, 0, 0, 1},
    {&kParamsSetup, F("strcpy", 4), kNone, kOk, kNoMsg, AllParams, 0, 0, 1},
    {&kParamsSetup, F("strcpy", 5), kNone, kOk, kNoMsg, AllParams, 0, 0, 1},
    {&kParamsSetup, F("strcpy", 6), kNone, kOk, kNoMsg, AllParams, 0, 0, 1},
    {&kParamsSetup, F("strcpy", 7), kNone, kOk, kNoMsg, AllParams, 0, 0, 1},

    {&kSequenceSetup, kNone, kNone, kOk, kNoMsg, NewRecord, 1, 0, 0},
    {&kSequenceSetup, F(kHandleSuite), kNone, kNoSuite, kNoHandles, NoRecord, 0, 0, 0},
    {&kSequenceSetup, NullSuite(kHandleSuite), kNone, kNoSuite, kNoHandles, NoRecord, 0, 0, 0},
    {&kSequenceSetup, F(kHandleSuite), F("sprintf"), kNoSuite, kNoMsg, NoRecord, 0, 0, 0},
    {&kSequenceSetup, F("HandleSuite.host_new_handle"), kNone, kNoMem, kNoMsg, NoRecord, 0, 0, 0},

    {&kSequenceSetupAgain, kNone, kNone, kOk, kNoMsg, NewRecord, 0, 0, 0},
    {&kSequenceSetupAgain, F(kHandleSuite), kNone, kNoSuite, kNoHandles, RecordKept, 0, 0, 0},
    // The host ignores the disposal it was asked for; the module cannot know.
    {&kSequenceSetupAgain, F("HandleSuite.host_dispose_handle"), kNone, kOk, kNoMsg, NewRecord, 1, 1, 0},
    {&kSequenceSetupAgain, F("HandleSuite.host_new_handle"), kNone, kNoMem, kNoMsg, NoRecord, -1, 0, 0},

    {&kSequenceResetup, kNone, kNone, kOk, kNoMsg, NewRecord, 1, 0, 0},
    {&kSequenceResetup, F(kHandleSuite), kNone, kNoSuite, kNoHandles, NoRecord, 0, 0, 0},
    {&kSequenceResetup, NullSuite(kHandleSuite), kNone, kNoSuite, kNoHandles, NoRecord, 0, 0, 0},
    {&kSequenceResetup, F("HandleSuite.host_new_handle"), kNone, kNoMem, kNoMsg, NoRecord, 0, 0, 0},

    {&kSequenceSetdown, kNone, kNone, kOk, kNoMsg, NoRecord, -1, 0, 0},
    // Without the Handle Suite the record cannot be freed: reported, and the host is left holding it.
    {&kSequenceSetdown, F(kHandleSuite), kNone, kNoSuite, kNoHandles, RecordKept, 0, 1, 0},
    {&kSequenceSetdown, F(kHandleSuite), F("sprintf"), kNoSuite, kNoMsg, RecordKept, 0, 1, 0},
    {&kSequenceSetdown, F("HandleSuite.host_dispose_handle"), kNone, kOk, kNoMsg, NoRecord, 0, 1, 0},

    // A preset needs no Param Utils Suite, although the handler asks for it.
    {&kChangePreset, kNone, kNone, kOk, kNoMsg, SliderMoved, 0, 0, 0},
    {&kChangePreset, F(kParamUtilsSuite), kNone, kOk, kNoMsg, SliderMoved, 0, 0, 0},
    {&kChangePreset, NullSuite(kParamUtilsSuite), kNone, kOk, kNoMsg, SliderMoved, 0, 0, 0},

    {&kChangeRatio, kNone, kNone, kOk, kNoMsg, PresetFollows, 0, 0, 0},
    {&kChangeRatio, F(kParamUtilsSuite), kNone, kNoSuite, kNoParamUtils, RecordUnchanged, 0, 0, 0},
    {&kChangeRatio, NullSuite(kParamUtilsSuite), kNone, kNoSuite, kNoParamUtils, RecordUnchanged, 0, 0, 0},
    {&kChangeRatio, F(kParamUtilsSuite), F("sprintf"), kNoSuite, kNoMsg, RecordUnchanged, 0, 0, 0},
    {&kChangeRatio, F("PF_UpdateParamUI"), kNone, kRefusal, kNoMsg, RecordUnchanged, 0, 0, 0},

    {&kUpdateParamsUI, kNone, kNone, kOk, kNoMsg, PopupFromRecord, 0, 0, 0},
    {&kUpdateParamsUI, F(kParamUtilsSuite), kNone, kOk, kNoMsg, PopupUnchanged, 0, 0, 0},
    {&kUpdateParamsUI, NullSuite(kParamUtilsSuite), kNone, kOk, kNoMsg, PopupUnchanged, 0, 0, 0},
    {&kUpdateParamsUI, F("PF_UpdateParamUI"), kNone, kOk, kNoMsg, PopupUnchanged, 0, 0, 0},

    {&kRender8Image, kNone, kNone, kOk, kNoMsg, BarsDrawn, 0, 0, 0},
    {&kRender8Image, F(kFillSuite), kNone, kNoSuite, kNoFill, Nothing, 0, 0, 0},
    {&kRender8Image, NullSuite(kFillSuite), kNone, kNoSuite, kNoFill, Nothing, 0, 0, 0},
    {&kRender8Image, F(kFillSuite), F("sprintf"), kNoSuite, kNoMsg, Nothing, 0, 0, 0},
    {&kRender8Image, F("fill"), kNone, kRefusal, kNoMsg, Nothing, 0, 0, 0},
    {&kRender8Image, F(kTransformSuite), kNone, kNoSuite, kNoTransform, Nothing, 0, 0, 0},
    {&kRender8Image, NullSuite(kTransformSuite), kNone, kNoSuite, kNoTransform, Nothing, 0, 0, 0},
    {&kRender8Image, F("copy"), kNone, kRefusal, kNoMsg, Nothing, 0, 0, 0},

    {&kRender8Transparent, kNone, kNone, kOk, kNoMsg, BarsDrawn, 0, 0, 0},
    {&kRender8Transparent, F(kFillSuite), kNone, kNoSuite, kNoFill, Nothing, 0, 0, 0},
    {&kRender8Transparent, F("fill", 1), kNone, kRefusal, kNoMsg, Nothing, 0, 0, 0},
    {&kRender8Transparent, F("fill", 2), kNone, kRefusal, kNoMsg, Nothing, 0, 0, 0},

    {&kRender16Image, kNone, kNone, kOk, kNoMsg, BarsDrawn, 0, 0, 0},
    {&kRender16Image, F(kFillSuite), kNone, kNoSuite, kNoFill, Nothing, 0, 0, 0},
    {&kRender16Image, NullSuite(kFillSuite), kNone, kNoSuite, kNoFill, Nothing, 0, 0, 0},
    {&kRender16Image, F("fill16"), kNone, kRefusal, kNoMsg, Nothing, 0, 0, 0},
    {&kRender16Image, F(kTransformSuite), kNone, kNoSuite, kNoTransform, Nothing, 0, 0, 0},
    {&kRender16Image, F("copy"), kNone, kRefusal, kNoMsg, Nothing, 0, 0, 0},

    {&kRender16Transparent, kNone, kNone, kOk, kNoMsg, BarsDrawn, 0, 0, 0},
    {&kRender16Transparent, F(kFillSuite), kNone, kNoSuite, kNoFill, Nothing, 0, 0, 0},
    {&kRender16Transparent, F("fill16", 1), kNone, kRefusal, kNoMsg, Nothing, 0, 0, 0},
    {&kRender16Transparent, F("fill16", 2), kNone, kRefusal, kNoMsg, Nothing, 0, 0, 0},

    {&kEvent, kNone, kNone, kOk, kNoMsg, Nothing, 0, 0, 0},
    // A lock that failed is not given back.
    {&kEvent, F("host_lock_handle"), kNone, kOk, kNoMsg, Nothing, 0, 0, 0},
    {&kEvent, F("host_unlock_handle"), kNone, kOk, kNoMsg, Nothing, 0, 0, 0},

    {&kAbout, kNone, kNone, kOk, kAboutMsg, Nothing, 0, 0, 0},
    {&kAbout, F("get_platform_data"), kNone, kOk, kAboutMsg, Nothing, 0, 0, 0},
    {&kAbout, F("host_lock_handle"), kNone, kOk, kAboutMsg, Nothing, 0, 0, 0},
    {&kAbout, F("host_unlock_handle"), kNone, kOk, kAboutMsg, Nothing, 0, 0, 0},
};

std::string Describe(const Injected& fault) {
  if (fault.function.empty()) return "no_fault";
  return fault.function + "_call" + std::to_string(fault.call) + (fault.null_suite ? "_null" : "");
}

std::string RowName(const Row& row) {
  std::string name = std::string(row.cmd->name) + "__" + Describe(row.fault);
  if (!row.also.function.empty()) name += "__and_" + Describe(row.also);
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return name;
}

// Rows print as their names, not as bytes.
void PrintTo(const Row& row, std::ostream* os) { *os << RowName(row); }

// The rest of the effect's life, with a host that no longer refuses anything.
void PlayOn(Scene& s, const Row& row) {
  Host& host = s;
  host.faults().Clear();
  const auto step = [&](const char* what, PF_Err err) {
    EXPECT_EQ(kOk, err) << "afterwards: " << what;
    EXPECT_EQ(0, host.SuitesOutstanding()) << "afterwards: " << what;
  };
  if (row.cmd == &kGlobalSetup) step("parameter setup", host.ParamsSetup());
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
  EXPECT_EQ(static_cast<size_t>(row.forgotten) + (global != nullptr ? 1 : 0), host.ForgottenHandles().size());
  if (global != nullptr) {
    EXPECT_EQ("", host.handles().Dispose(global));
  }
  EXPECT_EQ(static_cast<size_t>(row.forgotten), host.LiveHandleCount());
}

class FaultMatrix : public ::testing::TestWithParam<Row> {};

TEST_P(FaultMatrix, Row) {
  const Row& row = GetParam();
  Scene s;
  ASSERT_NO_FATAL_FAILURE(Prepare(s, *row.cmd));
  Host& host = s;
  const size_t live = host.LiveHandleCount(), forgotten = host.ForgottenHandles().size();
  const size_t misuse = host.host_errors().size();
  host.faults().Clear();
  for (const Injected* f : {&row.fault, &row.also}) {
    if (!f->function.empty())
      host.faults().Fail(f->function,
                         (f->null_suite ? Fault::Null() : Fault::Error(kRefusal)).OnCall(f->call));
  }

  EXPECT_EQ(row.result, row.cmd->run(s));

  for (const Injected* fault : {&row.fault, &row.also}) {
    EXPECT_GE(host.faults().Calls(fault->function), fault->function.empty() ? 0 : fault->call)
        << fault->function << " was not reached";
  }
  const std::string message = host.out_data().return_msg;
  EXPECT_EQ(row.message, row.cmd == &kAbout ? message.substr(0, std::strlen(row.message)) : message);
  EXPECT_EQ(0, host.out_data().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_EQ(0, host.SuitesOutstanding()) << host.log().ToString();
  EXPECT_EQ(static_cast<long long>(live) + row.live_delta, static_cast<long long>(host.LiveHandleCount()));
  EXPECT_EQ(forgotten + static_cast<size_t>(row.forgotten), host.ForgottenHandles().size());
  std::string errors;
  for (size_t i = misuse; i < host.host_errors().size(); ++i) errors += "\n  " + host.host_errors()[i];
  EXPECT_EQ(misuse + static_cast<size_t>(row.misuse), host.host_errors().size()) << errors;
  row.out(s, row);
  PlayOn(s, row);
}

INSTANTIATE_TEST_SUITE_P(Rows, FaultMatrix, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& row) { return RowName(row.param); });

// The table is complete: every host function that a command calls, at every
// call number, is failed by some row of that command. A new host call in the
// module shows up here until the table says what its failure means.
TEST(FaultTable, CoversEveryHostCallOfEveryCommand) {
  for (const Command* cmd :
       {&kGlobalSetup, &kParamsSetup, &kSequenceSetup, &kSequenceSetupAgain, &kSequenceResetup,
        &kSequenceSetdown, &kChangePreset, &kChangeRatio, &kUpdateParamsUI, &kRender8Image,
        &kRender8Transparent, &kRender16Image, &kRender16Transparent, &kEvent, &kAbout}) {
    SCOPED_TRACE(cmd->name);
    Scene s;
    ASSERT_NO_FATAL_FAILURE(Prepare(s, *cmd));
    s.log().Clear();
    ASSERT_EQ(kOk, cmd->run(s));
    std::map<std::string, int> calls;
    for (const auto& record : s.log().records()) {
      if (record.function == "EntryPointFunc" || record.function == "ReleaseSuite") continue;
      const std::string key =
          record.function == "AcquireSuite" ? AcquireKey(record.suite, record.version) : record.function;
      const int n = ++calls[key];
      bool covered = false;
      for (const Row& row : kRows)
        covered |= row.cmd == cmd && row.fault.function == key && row.fault.call == n;
      EXPECT_TRUE(covered) << key << " call " << n << " has no row";
    }
    bool baseline = false;
    for (const Row& row : kRows) baseline |= row.cmd == cmd && row.fault.function.empty();
    EXPECT_TRUE(baseline) << "no fault-free row";
  }
}

}  // namespace
