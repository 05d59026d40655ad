// The strict host's own checks, each provoked once by a fake module: every
// other test relies on them as its oracle. What the host tolerates as After
// Effects does (an unlock by the block's address, a refused setdown, a popup
// pushed through a UI update before a failure) the real module does in the
// branding, fault-matrix and controls tests, which would fail on a false alarm.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "tests/fixtures/effect_host.h"

namespace cinebar_simhost {
namespace {

using Body = std::function<PF_Err(PF_InData*, PF_OutData*, PF_ParamDef**)>;
Body g_body;

char g_items[16];  // a popup's items, kept or let go of

// Parameter setup of one popup; what happens to its items afterwards is `after`'s.
PF_Err OnePopup(PF_InData* in, PF_OutData* out, const std::function<void()>& after) {
  std::strcpy(g_items, "One|Two");
  PF_ParamDef def{};
  def.param_type = PF_Param_POPUP;
  def.u.pd.num_choices = 2;
  def.u.pd.u.namesptr = g_items;
  in->inter.add_param(in->effect_ref, -1, &def);
  after();
  PF_CustomUIInfo info{};
  in->inter.register_ui(in->effect_ref, &info);
  out->num_params = 2;
  return PF_Err_NONE;
}

// The fake module: the case's body when one is set, else the plain setups.
PF_Err Fake(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef* params[], PF_LayerDef*, void*) {
  if (g_body) return g_body(in, out, params);
  if (cmd == PF_Cmd_GLOBAL_SETUP) out->global_data = in->utils->host_new_handle(8);
  if (cmd == PF_Cmd_PARAMS_SETUP) return OnePopup(in, out, [] {});
  if (cmd == PF_Cmd_SEQUENCE_SETUP) out->sequence_data = in->utils->host_new_handle(4);
  return PF_Err_NONE;
}

TEST(StrictHost, NoticesEachMisdeedOnce) {
  const struct {
    const char* error;  // part of the one host error it must raise
    PF_Cmd cmd;
    Body body;
  } kCases[] = {
      {"popup items changed after add_param", PF_Cmd_PARAMS_SETUP,
       [](auto in, auto out, auto) { return OnePopup(in, out, [] { g_items[0] = 'X'; }); }},
      {"disk ID 7 added twice", PF_Cmd_PARAMS_SETUP,
       [](auto in, auto out, auto) {
         PF_ParamDef def{};
         def.param_type = PF_Param_FLOAT_SLIDER;
         def.uu.id = 7;
         in->inter.add_param(in->effect_ref, -1, &def);
         in->inter.add_param(in->effect_ref, -1, &def);
         return out->num_params = 2, 0;
       }},
      {"num_params", PF_Cmd_PARAMS_SETUP,
       [](auto in, auto out, auto) { return OnePopup(in, out, [] {}), out->num_params = 3, 0; }},
      {"held past the command", PF_Cmd_RENDER,
       [](auto in, auto, auto) {
         const void* suite = nullptr;
         return in->pica_basicP->AcquireSuite("PF Handle Suite", 2, &suite), 0;
       }},
      {"a handle leaked", PF_Cmd_RENDER,
       [](auto in, auto, auto) { return in->utils->host_new_handle(4), 0; }},
      {"a handle leaked", PF_Cmd_SEQUENCE_SETDOWN, [](auto...) { return PF_Err_NONE; }},
      {"wrote into a disposed handle", PF_Cmd_RENDER,
       [](auto in, auto, auto) {
         PF_Handle gone = in->utils->host_new_handle(4);
         in->utils->host_dispose_handle(gone);
         return static_cast<char*>(*gone)[3] = 1, 0;
       }},
      {"returned sequence data it does not own", PF_Cmd_SEQUENCE_RESETUP,
       [](auto in, auto, auto) { return in->utils->host_dispose_handle(in->sequence_data), 0; }},
      {"dispose of a disposed handle", PF_Cmd_SEQUENCE_SETDOWN,
       [](auto in, auto out, auto) {
         in->utils->host_dispose_handle(in->sequence_data);
         out->sequence_data = nullptr;
         return in->utils->host_dispose_handle(in->sequence_data), 0;
       }},
      {"written by a failed command", PF_Cmd_USER_CHANGED_PARAM,
       [](auto, auto, auto params) { return params[1]->u.pd.value = 2, PF_Err{1}; }},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::Message() << "command " << c.cmd << ": " << c.error);
    Host host(Fake);
    host.GlobalSetup();
    host.ParamsSetup();
    Instance& instance = host.AddInstance(World(2, 2));
    host.SequenceSetup(instance);
    ASSERT_TRUE(host.host_errors().empty()) << host.host_errors()[0];
    ExpectHostErrors expected;
    g_body = c.body;
    c.cmd == PF_Cmd_PARAMS_SETUP ? host.Command(c.cmd) : host.Command(instance, c.cmd);
    g_body = nullptr;
    std::string errors;
    for (const std::string& error : host.host_errors()) errors += error + "\n";
    EXPECT_EQ(1u, host.host_errors().size()) << errors;
    EXPECT_NE(std::string::npos, errors.find(c.error)) << errors;
  }
}

// The broker hands out each suite of its table under its name and version
// alone, one function table per suite, the host's functions in it bound when
// it has any, and takes it back.
template <typename Table>
void ExpectServed(PF_InData* in, const Served<Table>& row, std::vector<const void*>& tables) {
  SCOPED_TRACE(row.name);
  const void* table = nullptr;
  EXPECT_EQ(0, in->pica_basicP->AcquireSuite(row.name, row.version, &table));
  ASSERT_NE(nullptr, table);
  EXPECT_EQ(std::find(tables.begin(), tables.end(), table), tables.end()) << "a table served twice";
  tables.push_back(table);
  const bool has_functions = std::any_of(std::begin(kHostFns), std::end(kHostFns),
                                         [&](const HostFnRow& fn) { return fn.suite == &row; });
  const Table empty{};
  EXPECT_EQ(has_functions, std::memcmp(table, &empty, sizeof empty) != 0) << "the host's functions bound";
  EXPECT_EQ(0, in->pica_basicP->ReleaseSuite(row.name, row.version));
  const void* other = &tables;
  EXPECT_EQ(kSuiteNotFound, in->pica_basicP->AcquireSuite(row.name, row.version + 1, &other));
  EXPECT_EQ(nullptr, other);
}

TEST(StrictHost, BrokerServesEachSuiteOfItsTable) {
  Host host(Fake);
  g_body = [](auto in, auto, auto) {
    std::vector<const void*> tables;
    std::apply([&](const auto&... row) { (ExpectServed(in, row, tables), ...); }, kServedSuites);
    return PF_Err_NONE;
  };
  EXPECT_EQ(PF_Err_NONE, host.Command(PF_Cmd_RENDER));
  g_body = nullptr;
  EXPECT_EQ(static_cast<int>(std::size(kSuites)), host.log().Count(HostFn::kReleaseSuite));
}

// A render in worlds without pixels takes no memory for them; a byte the
// module writes into one itself shows afterwards, and only in that world.
TEST(StrictHost, WorldWithoutPixelsShowsWhatTheModuleWroteItself) {
#if defined(_WIN32)
  GTEST_SKIP() << "worlds without pixels are made on POSIX systems only";
#endif
  for (const bool write : {false, true}) {
    Host host(Fake);
    Instance& instance = host.AddInstance(World::WithoutPixels(3000, 2000));
    World output = World::WithoutPixels(3000, 2000, true);
    g_body = [&](auto, auto, auto params) {
      if (write) reinterpret_cast<char*>(params[0]->u.ld.data)[params[0]->u.ld.rowbytes * 1999] = 1;
      return PF_Err_NONE;
    };
    host.Render(instance, output);
    g_body = nullptr;
    EXPECT_EQ(write, instance.input().PixelsTouched());
    EXPECT_FALSE(output.PixelsTouched());
  }
}

}  // namespace
}  // namespace cinebar_simhost
