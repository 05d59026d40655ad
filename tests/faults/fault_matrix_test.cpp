// The fault matrix: each scenario runs once without faults, the host calls of
// that run are read from the call log, and each of them is failed in turn (a
// suite or a new handle also handed out empty without an error, and a
// missing suite also with its message's sprintf refused). One oracle judges
// every run: the result and message of the failure table below, then the
// rest of the effect's life with a host that refuses nothing. Suites,
// handles, locks and half-written values are checked after every command by
// the strict host and fixtures/strict_main.cpp.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/fixtures/effect_host.h"

namespace {

using cinebar_simhost::Fault;
using cinebar_simhost::FaultTarget;
using cinebar_simhost::Host;
using cinebar_simhost::HostFn;
using cinebar_simhost::Instance;
using cinebar_simhost::World;

constexpr PF_Err kOk = PF_Err_NONE, kNoSuite = 13, kRefusal = PF_Err_INVALID_CALLBACK;

struct Scene : Host {
  Scene() : Host(TheModule()) {}
  Instance* instance = nullptr;
  std::unique_ptr<World> output;
};

// How far the host gets before the command: nowhere, global setup, an
// instance without a record, an instance applied on an 8- or 16-bit layer.
enum Stage { kFresh, kGlobal, kAdded, kApplied, kApplied16 };

struct Scenario {
  const char* name;
  Stage stage;
  PF_Err (*run)(Scene&);
};

PF_Err Draw(Scene& s, A_long mode) {  // bars over a 2.35 picture
  s.output = std::make_unique<World>(48, 27, s.instance->input().deep());
  s.instance->param(PARAM_ASPECT_RATIO).u.fs_d.value = 2.35;
  s.instance->param(PARAM_RENDER).u.pd.value = mode;
  return s.Render(*s.instance, *s.output);
}
PF_Err Click(Scene& s, A_long index) {
  PF_EventExtra extra{};
  extra.e_type = PF_Event_DO_CLICK;
  extra.effect_win.index = index;
  return s.Event(*s.instance, extra);
}

const Scenario kScenarios[] = {
    {"global_setup", kFresh, [](Scene& s) { return s.GlobalSetup(); }},
    {"params_setup", kGlobal, [](Scene& s) { return s.ParamsSetup(); }},
    {"sequence_setup", kAdded, [](Scene& s) { return s.SequenceSetup(*s.instance); }},
    {"sequence_setup_again", kApplied, [](Scene& s) { return s.SequenceSetup(*s.instance); }},
    {"sequence_resetup_without_record", kAdded, [](Scene& s) { return s.SequenceResetup(*s.instance); }},
    {"sequence_resetup", kApplied, [](Scene& s) { return s.SequenceResetup(*s.instance); }},
    {"sequence_flatten", kApplied, [](Scene& s) { return s.Command(*s.instance, PF_Cmd_SEQUENCE_FLATTEN); }},
    {"sequence_setdown", kApplied, [](Scene& s) { return s.Remove(*s.instance); }},
    {"changed_preset", kApplied, [](Scene& s) { return s.ChangePopup(*s.instance, PARAM_PRESET, 5); }},
    {"changed_separator", kApplied, [](Scene& s) { return s.ChangePopup(*s.instance, PARAM_PRESET, 7); }},
    {"changed_ratio", kApplied,
     [](Scene& s) { return s.ChangeFloat(*s.instance, PARAM_ASPECT_RATIO, 1.85); }},
    {"changed_color", kApplied, [](Scene& s) { return s.ChangeColor(*s.instance, PARAM_COLOR, {}); }},
    {"update_params_ui", kApplied, [](Scene& s) { return s.UpdateParamsUI(*s.instance); }},
    {"render8_image", kApplied, [](Scene& s) { return Draw(s, 2); }},
    {"render8_transparent", kApplied, [](Scene& s) { return Draw(s, 1); }},
    {"render16_image", kApplied16, [](Scene& s) { return Draw(s, 2); }},
    {"render16_transparent", kApplied16, [](Scene& s) { return Draw(s, 1); }},
    {"event_header", kApplied, [](Scene& s) { return Click(s, PARAM_HEADER); }},
    {"event_control", kApplied, [](Scene& s) { return Click(s, PARAM_PRESET); }},
    {"about", kGlobal, [](Scene& s) { return s.About(); }},
    {"global_setdown", kGlobal, [](Scene& s) { return s.GlobalSetdown(); }},
};

// What a refused host call costs the command, the first matching rule
// winning (kAny and "" match any function, suite or scenario). Everything
// else is answered PF_Err_NONE: a lost text, a lock or a window not given.
constexpr HostFn kAny = HostFn::kCommand;  // never refused itself
struct Rule {
  HostFn function;
  const char* suite;
  const char* scenario;
  PF_Err result;
};
const char* const kParamUtils = cinebar_simhost::kSuite<PF_ParamUtilsSuite3>.name;
const Rule kRules[] = {
    {kAny, "", "event_header", kOk},  // what the branding library says never reaches the host
    {HostFn::kAcquireSuite, kParamUtils, "changed_ratio", kNoSuite},
    {HostFn::kAcquireSuite, kParamUtils, "", kOk},  // only a typed ratio needs it
    {HostFn::kAcquireSuite, "", "", kNoSuite},
    {HostFn::kSuiteNewHandle, "", "", PF_Err_OUT_OF_MEMORY},
    {HostFn::kUpdateParamUi, "", "changed_ratio", kRefusal},
    {HostFn::kAddParam, "", "", kRefusal},  // the header's too, once the controls are added
    {HostFn::kFill, "", "", kRefusal},
    {HostFn::kFill16, "", "", kRefusal},
    {HostFn::kCopy, "", "", kRefusal},
};

PF_Err Expected(const Scenario& scenario, const FaultTarget& target) {
  const auto any_or = [](const char* rule, const std::string& value) {
    return *rule == '\0' || value == rule;
  };
  for (const Rule& rule : kRules) {
    if ((rule.function == kAny || rule.function == target.fn) && any_or(rule.suite, target.suite) &&
        any_or(rule.scenario, scenario.name))
      return rule.result;
  }
  return kOk;
}

// The module fetches its own instance handle on the first command of its life only.
void Warm() {
  static const bool warmed = Host(TheModule()).Command(PF_Cmd_FRAME_SETDOWN) == kOk;
  ASSERT_TRUE(warmed);
}

void Prepare(Scene& s, Stage stage) {
  if (stage == kFresh) return;
  ASSERT_EQ(kOk, s.GlobalSetup());
  if (stage == kGlobal) return;
  ASSERT_EQ(kOk, s.ParamsSetup());
  World input(48, 27, stage == kApplied16);
  input.FillPattern(11);
  s.instance = &s.AddInstance(std::move(input));
  if (stage != kAdded) {
    ASSERT_EQ(kOk, s.SequenceSetup(*s.instance));
  }
}

// The rest of the effect's life, with a host that no longer refuses anything.
void PlayOn(Scene& s, const Scenario& scenario) {
  s.faults().Clear();
  if (scenario.stage == kFresh) {
    EXPECT_EQ(kOk, s.ParamsSetup());
  }
  if (std::string(scenario.name) == "global_setdown") return;
  Instance* const first = s.instance;
  // The host applies only an effect whose parameters it all took (all but the input layer).
  if (s.added_params().size() == std::size_t{PARAM_NUM_PARAMS - 1}) {
    s.instance = &s.AddInstance(World(16, 9));
    EXPECT_EQ(kOk, s.SequenceSetup(*s.instance));
    for (const Scenario& next : kScenarios) {
      if (next.stage >= kApplied && std::string(next.name).rfind("sequence", 0) != 0) {
        EXPECT_EQ(kOk, next.run(s)) << "afterwards: " << next.name;
      }
    }
    EXPECT_EQ(kOk, s.Remove(*s.instance));
  }
  if (first != nullptr && !first->removed()) {
    EXPECT_EQ(kOk, s.Remove(*first));
  }
  EXPECT_EQ(kOk, s.About());
  EXPECT_EQ(kOk, s.GlobalSetdown());
}

struct Injected {
  FaultTarget function;
  int call;
  bool null, no_sprintf;  // null: a suite or handle handed out without an error, but empty
};

void PrintTo(const Scenario& scenario, std::ostream* os) { *os << scenario.name; }

class FaultMatrix : public ::testing::TestWithParam<Scenario> {};

TEST_P(FaultMatrix, EveryHostCallRefusedInTurn) {
  const Scenario& scenario = GetParam();
  ASSERT_NO_FATAL_FAILURE(Warm());
  std::vector<Injected> faults;
  std::string clean_message;
  {
    Scene s;
    ASSERT_NO_FATAL_FAILURE(Prepare(s, scenario.stage));
    s.log().Clear();
    ASSERT_EQ(kOk, scenario.run(s));
    clean_message = s.out_data().return_msg;
    std::map<FaultTarget, int> calls;
    for (const auto& r : s.log().records()) {
      if (r.fn == HostFn::kCommand || r.fn == HostFn::kReleaseSuite) continue;
      const bool suite = r.fn == HostFn::kAcquireSuite;
      const FaultTarget key = suite ? FaultTarget::ForSuite(r.suite, r.version) : FaultTarget(r.fn);
      const int n = ++calls[key];
      faults.push_back({key, n, false, false});
      if (suite || Row(r.fn).fault == &cinebar_simhost::kFailNewHandle)
        faults.push_back({key, n, true, false});  // or no block
      if (Expected(scenario, key) == kNoSuite) faults.push_back({key, n, false, true});
    }
    PlayOn(s, scenario);
  }
  for (const Injected& f : faults) {
    SCOPED_TRACE(f.function.Text() + " call " + std::to_string(f.call) + (f.null ? ", null" : "") +
                 (f.no_sprintf ? ", and sprintf" : ""));
    Scene s;
    ASSERT_NO_FATAL_FAILURE(Prepare(s, scenario.stage));
    s.faults().Clear();  // calls are counted from the command on
    const Fault fault = f.null ? Fault::Null() : Fault::Error(kRefusal);
    // A host without a suite stays without it for the rest of the command.
    s.faults().Fail(f.function,
                    f.function.fn == HostFn::kAcquireSuite ? fault.FromCall(f.call) : fault.OnCall(f.call));
    if (f.no_sprintf) s.faults().Fail(HostFn::kSprintf, Fault::Error(kRefusal));
    const PF_Err result = scenario.run(s);
    EXPECT_GE(s.faults().Calls(f.function), f.call) << "not reached";
    const PF_Err expected = Expected(scenario, f.function);
    EXPECT_EQ(expected, result);
    EXPECT_EQ(f.no_sprintf           ? ""
              : expected == kNoSuite ? "Cinebar is missing the suite " + f.function.suite
                                     : clean_message,
              s.out_data().return_msg);
    EXPECT_EQ(0, s.out_data().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
    PlayOn(s, scenario);
  }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, FaultMatrix, ::testing::ValuesIn(kScenarios),
                         [](const ::testing::TestParamInfo<Scenario>& row) { return row.param.name; });

}  // namespace
