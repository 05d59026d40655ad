// The simulated host driven by a tiny fake module: broker, faults, handles,
// callbacks and the bookkeeping of the effect's life cycle.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "host/sim_host.h"

namespace cinebar_simhost {
namespace {

using Body = std::function<PF_Err(PF_Cmd, PF_InData*, PF_OutData*, PF_ParamDef**, PF_LayerDef*, void*)>;
Body g_body;

PF_Err FakeEntry(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef* params[], PF_LayerDef* output,
                 void* extra) {
  return g_body ? g_body(cmd, in, out, params, output, extra) : PF_Err_NONE;
}

template <typename Suite>
const Suite* Acquire(PF_InData* in, const char* name, int version) {
  const void* suite = nullptr;
  in->pica_basicP->AcquireSuite(name, version, &suite);
  return static_cast<const Suite*>(suite);
}

class HostTest : public ::testing::Test {
 protected:
  void TearDown() override { g_body = nullptr; }
  // Runs `code` as the module's body of one command outside any instance.
  PF_Err During(const std::function<void(PF_InData*)>& code, PF_Cmd cmd = PF_Cmd_ABOUT) {
    g_body = [&](PF_Cmd, PF_InData* in, PF_OutData*, PF_ParamDef**, PF_LayerDef*, void*) {
      code(in);
      return PF_Err_NONE;
    };
    return host.Command(cmd);
  }
  Host host{FakeEntry};
};

// ---- suite broker --------------------------------------------------------------------

struct SuiteCase {
  const char* name;
  int version;
  bool served;
};

TEST_F(HostTest, BrokerServesFourSuitesAndRecordsEveryCall) {
  const SuiteCase cases[] = {{"PF Fill Matte Suite", 2, true},  {"PF World Transform Suite", 1, true},
                             {"PF Handle Suite", 2, true},      {"PF Param Utils Suite", 3, true},
                             {"PF Fill Matte Suite", 1, false}, {"PF Handle Suite", 1, false},
                             {"AEGP Layer Suite", 8, false}};
  for (const SuiteCase& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.version));
    host.log().Clear();
    const std::size_t errors = host.host_errors().size();
    SPErr acquired = -1, released = -1;
    const void* suite = &c;
    int held = -1;
    During([&](PF_InData* in) {
      acquired = in->pica_basicP->AcquireSuite(c.name, c.version, &suite);
      held = host.SuiteOutstanding(c.name, c.version);
      released = in->pica_basicP->ReleaseSuite(c.name, c.version);
    });
    EXPECT_EQ(acquired, c.served ? 0 : kSuiteNotFound);
    EXPECT_EQ(suite != nullptr, c.served);
    EXPECT_EQ(held, c.served ? 1 : 0);
    EXPECT_EQ(released, c.served ? 0 : kSuiteNotFound);
    EXPECT_EQ(host.SuitesOutstanding(), 0);
    EXPECT_EQ(host.host_errors().size(), errors + (c.served ? 0 : 1));  // releasing what was never given
    const auto calls = host.log().records();
    ASSERT_EQ(host.log().Functions(),
              (std::vector<std::string>{"EntryPointFunc", "AcquireSuite", "ReleaseSuite"}));
    EXPECT_EQ(calls[1].suite, c.name);
    EXPECT_EQ(calls[1].version, c.version);
    EXPECT_EQ(calls[1].result, acquired);
    EXPECT_EQ(calls[2].result, released);
  }
}

TEST_F(HostTest, BrokerRefusalsAffectOnlyTheNamedPair) {
  struct Case {
    Fault fault;
    SPErr expected;
  } cases[] = {{Fault::Error(77).Always(), 77}, {Fault::Null().Always(), 0}};
  for (const Case& c : cases) {
    host.faults().Clear();
    host.faults().Fail(AcquireKey("PF Fill Matte Suite", 2), c.fault);
    for (int round = 0; round < 2; ++round) {
      host.log().Clear();
      const void* refused = &c;
      SPErr err = -1;
      const void* other = nullptr;
      During([&](PF_InData* in) {
        err = in->pica_basicP->AcquireSuite("PF Fill Matte Suite", 2, &refused);
        other = Acquire<PF_WorldTransformSuite1>(in, "PF World Transform Suite", 1);
        in->pica_basicP->ReleaseSuite("PF World Transform Suite", 1);
      });
      EXPECT_EQ(err, c.expected);
      EXPECT_EQ(refused, nullptr);
      EXPECT_NE(other, nullptr);
      EXPECT_TRUE(host.log().Named("AcquireSuite")[0]->faulted);
      EXPECT_EQ(host.SuitesOutstanding(), 0);
    }
  }
}

// ---- fault injection on every host function -----------------------------------------

struct Ctx {
  Instance* instance;
  PF_Handle locked, unlocked;  // 8 bytes locked five times; 16 bytes unlocked
  World* world8;
  World* world16;
};

// The six handle functions, from the utility callbacks or from the Handle Suite.
struct HandleFns {
  PF_NewHandleFn make;
  PF_LockHandleFn lock;
  PF_UnlockHandleFn unlock;
  PF_DisposeHandleFn dispose;
  A_HandleSize (*size)(PF_Handle);
  PF_Err (*resize)(A_HandleSize, PF_Handle*);
};
template <typename Table>
HandleFns Fns(const Table& t) {
  return HandleFns{t.host_new_handle,
                   t.host_lock_handle,
                   t.host_unlock_handle,
                   t.host_dispose_handle,
                   reinterpret_cast<A_HandleSize (*)(PF_Handle)>(t.host_get_handle_size),
                   reinterpret_cast<PF_Err (*)(A_HandleSize, PF_Handle*)>(t.host_resize_handle)};
}

// Calls one host function once: 0 when it did its work, else its failure answer.
using Invoke = std::function<int(PF_InData*, Ctx&, Host&)>;
struct FaultCase {
  std::string function;
  Invoke invoke;
  bool error_coded;  // fails with the fault's PF_Err (else null / -1 / ignored)
};

std::vector<FaultCase> FaultCases() {
  std::vector<FaultCase> cases = {
      {"add_param",
       [](PF_InData* in, Ctx&, Host&) {
         PF_ParamDef def{};
         def.param_type = PF_Param_FLOAT_SLIDER;
         return in->inter.add_param(in->effect_ref, -1, &def);
       },
       true},
      {"register_ui",
       [](PF_InData* in, Ctx&, Host&) {
         PF_CustomUIInfo info{};
         return in->inter.register_ui(in->effect_ref, &info);
       },
       true},
      {"get_platform_data",
       [](PF_InData* in, Ctx&, Host&) {
         void* window = nullptr;
         return in->utils->get_platform_data(in->effect_ref, PF_PlatData_MAIN_WND, &window);
       },
       true},
      {"sprintf",
       [](PF_InData* in, Ctx&, Host&) {
         char text[16] = "";
         return in->utils->ansi.sprintf(text, "%s %d", "Cinebar", 13) == 10 &&
                        std::strcmp(text, "Cinebar 13") == 0
                    ? 0
                    : -1;
       },
       false},
      {"strcpy",
       [](PF_InData* in, Ctx&, Host&) {
         char text[8] = "";
         return in->utils->ansi.strcpy(text, "abc") == text && std::strcmp(text, "abc") == 0 ? 0 : -1;
       },
       false},
      {"AcquireSuite",
       [](PF_InData* in, Ctx&, Host&) {
         const void* suite = nullptr;
         const SPErr err = in->pica_basicP->AcquireSuite("PF Handle Suite", 2, &suite);
         return err != 0 ? err : suite ? 0 : -1;
       },
       true},
      {"ReleaseSuite",
       [](PF_InData* in, Ctx&, Host&) {
         Acquire<void>(in, "PF Handle Suite", 2);
         return in->pica_basicP->ReleaseSuite("PF Handle Suite", 2);
       },
       true},
      {"fill",
       [](PF_InData* in, Ctx& c, Host&) {
         const PF_Pixel color{1, 2, 3, 4};
         return Acquire<PF_FillMatteSuite2>(in, "PF Fill Matte Suite", 2)
             ->fill(in->effect_ref, &color, nullptr, c.world8->layer());
       },
       true},
      {"fill16",
       [](PF_InData* in, Ctx& c, Host&) {
         const PF_Pixel16 color{1, 2, 3, 4};
         return Acquire<PF_FillMatteSuite2>(in, "PF Fill Matte Suite", 2)
             ->fill16(in->effect_ref, &color, nullptr, c.world16->layer());
       },
       true},
      {"copy",
       [](PF_InData* in, Ctx& c, Host&) {
         return Acquire<PF_WorldTransformSuite1>(in, "PF World Transform Suite", 1)
             ->copy(in->effect_ref, c.world8->layer(), c.world8->layer(), nullptr, nullptr);
       },
       true},
      {"PF_UpdateParamUI",
       [](PF_InData* in, Ctx& c, Host&) {
         return Acquire<PF_ParamUtilsSuite3>(in, "PF Param Utils Suite", 3)
             ->PF_UpdateParamUI(in->effect_ref, 1, &c.instance->param(1));
       },
       true},
  };
  const std::pair<std::string, HandleFns (*)(PF_InData*)> families[] = {
      {"", [](PF_InData* in) { return Fns(*in->utils); }},
      {"HandleSuite.",
       [](PF_InData* in) { return Fns(*Acquire<PF_HandleSuite1>(in, "PF Handle Suite", 2)); }}};
  for (const auto& [prefix, get] : families) {
    const auto fns = get;
    cases.push_back({prefix + "host_new_handle",
                     [fns](PF_InData* in, Ctx&, Host&) { return fns(in).make(4) ? 0 : -1; }, false});
    cases.push_back({prefix + "host_lock_handle",
                     [fns](PF_InData* in, Ctx& c, Host&) { return fns(in).lock(c.locked) ? 0 : -1; }, false});
    cases.push_back({prefix + "host_unlock_handle",
                     [fns](PF_InData* in, Ctx& c, Host& h) {
                       const int before = h.handles().LockCount(c.locked);
                       fns(in).unlock(c.locked);
                       return h.handles().LockCount(c.locked) == before - 1 ? 0 : -1;
                     },
                     false});
    cases.push_back({prefix + "host_dispose_handle",
                     [fns](PF_InData* in, Ctx&, Host& h) {
                       PF_Handle handle = h.handles().New(4);
                       fns(in).dispose(handle);
                       return h.handles().IsLive(handle) ? -1 : 0;
                     },
                     false});
    cases.push_back({prefix + "host_get_handle_size",
                     [fns](PF_InData* in, Ctx& c, Host&) { return fns(in).size(c.unlocked) == 16 ? 0 : -1; },
                     false});
    cases.push_back({prefix + "host_resize_handle",
                     [fns](PF_InData* in, Ctx& c, Host&) { return fns(in).resize(16, &c.unlocked); }, true});
  }
  return cases;
}

TEST_F(HostTest, EveryHostFunctionFailsOnTheChosenCall) {
  const std::vector<FaultCase> cases = FaultCases();
  ASSERT_EQ(cases.size(), kHostFunctions.size());
  for (const bool and_later : {false, true}) {
    for (const FaultCase& c : cases) {
      SCOPED_TRACE(c.function + (and_later ? " from call 2" : " on call 2"));
      Host h(FakeEntry);
      g_body = [](PF_Cmd, PF_InData* in, PF_OutData* out, PF_ParamDef**, PF_LayerDef*, void*) {
        PF_ParamDef def{};
        def.param_type = PF_Param_POPUP;
        out->num_params = 2;
        return in->inter.add_param(in->effect_ref, -1, &def);
      };
      ASSERT_EQ(h.ParamsSetup(), PF_Err_NONE);
      World world8(3, 2), world16(3, 2, true);
      Instance& instance = h.AddInstance(World(2, 2));
      Ctx ctx{&instance, h.handles().New(8), h.handles().New(16), &world8, &world16};
      void* ignored;
      for (int i = 0; i < 5; ++i) h.handles().Lock(ctx.locked, &ignored);
      h.faults().Clear();  // forget the calls made while setting up
      h.log().Clear();
      h.faults().Fail(c.function, and_later ? Fault::Error(42).FromCall(2) : Fault::Error(42).OnCall(2));
      int answers[3];
      g_body = [&](PF_Cmd, PF_InData* in, PF_OutData*, PF_ParamDef**, PF_LayerDef*, void*) {
        for (int& answer : answers) answer = c.invoke(in, ctx, h);
        return PF_Err_NONE;
      };
      h.Command(instance, PF_Cmd_PARAMS_SETUP);
      const int failed = c.error_coded ? 42 : -1;
      EXPECT_EQ(answers[0], 0);
      EXPECT_EQ(answers[1], failed);
      EXPECT_EQ(answers[2], and_later ? failed : 0);
      const auto calls = h.log().Named(c.function);
      ASSERT_EQ(calls.size(), 3u);
      EXPECT_FALSE(calls[0]->faulted);
      EXPECT_TRUE(calls[1]->faulted);
      EXPECT_EQ(calls[2]->faulted, and_later);
    }
  }
}

TEST_F(HostTest, FaultPlanRejectsUnknownNames) {
  EXPECT_THROW(host.faults().Fail("fil", Fault::Error(1)), std::invalid_argument);
  EXPECT_THROW(host.faults().Fail("fill", Fault::Error(1).OnCall(0)), std::invalid_argument);
}

// ---- handles, platform data, strings --------------------------------------------------

TEST_F(HostTest, HandlesArePatternedTrackedAndCounted) {
  PF_Handle handle = nullptr;
  void* block = nullptr;
  During([&](PF_InData* in) {
    handle = in->utils->host_new_handle(12);
    block = in->utils->host_lock_handle(handle);
  });
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(block, *handle);
  EXPECT_EQ(host.handles().Bytes(handle), std::vector<std::uint8_t>(12, kFreshHandleByte));
  EXPECT_EQ(host.handles().LockCount(handle), 1);
  EXPECT_EQ(host.LiveHandleCount(), 1u);
  EXPECT_EQ(host.handles().LiveBytes(), 12u);
  host.handles().SetBytes(handle, {1, 2, 3});
  EXPECT_EQ(static_cast<std::uint8_t*>(*handle)[2], 3);
  ASSERT_EQ(host.handles().Resize(handle, 5), "resize of a locked handle");
  host.handles().Unlock(handle);
  ASSERT_EQ(host.handles().Resize(handle, 5), "");
  EXPECT_EQ(host.handles().Bytes(handle),
            (std::vector<std::uint8_t>{1, 2, 3, kFreshHandleByte, kFreshHandleByte}));
  During([&](PF_InData* in) { in->utils->host_dispose_handle(handle); });
  EXPECT_EQ(host.LiveHandleCount(), 0u);
  EXPECT_TRUE(host.host_errors().empty());
}

TEST_F(HostTest, HandleMisuseIsAHostErrorNotACrash) {
  PF_Handle kept = host.handles().New(8);
  void* ignored;
  host.handles().Lock(kept, &ignored);
  const std::vector<std::function<void(PF_InData*)>> misuses = {
      [&](PF_InData* in) { in->utils->host_unlock_handle(reinterpret_cast<PF_Handle>(*kept)); },  // by record
      [&](PF_InData* in) { in->utils->host_dispose_handle(reinterpret_cast<PF_Handle>(&ignored)); },
      [&](PF_InData* in) { in->utils->host_dispose_handle(nullptr); },
      [&](PF_InData* in) { EXPECT_EQ(in->utils->host_lock_handle(nullptr), nullptr); },
      [&](PF_InData* in) {
        PF_Handle gone = in->utils->host_new_handle(4);
        in->utils->host_dispose_handle(gone);
        in->utils->host_dispose_handle(gone);
      },
      [&](PF_InData* in) {
        in->utils->host_unlock_handle(kept);
        in->utils->host_unlock_handle(kept);
      },
  };
  for (std::size_t i = 0; i < misuses.size(); ++i) {
    const std::size_t before = host.host_errors().size();
    During(misuses[i]);
    EXPECT_EQ(host.host_errors().size(), before + 1) << "misuse " << i;
    EXPECT_EQ(host.LiveHandleCount(), 1u) << "misuse " << i;
  }
}

TEST_F(HostTest, PlatformDataNamesTheModuleAndAFakeWindow) {
  int module_tag = 0;
  host.SetModuleHandle(&module_tag);
  void* answers[3] = {};
  PF_Err errs[3] = {};
  const A_long selectors[3] = {PF_PlatData_MAIN_WND, PF_PlatData_RES_DLLINSTANCE, 99};
  During([&](PF_InData* in) {
    for (int i = 0; i < 3; ++i)
      errs[i] = in->utils->get_platform_data(in->effect_ref, selectors[i], &answers[i]);
  });
  EXPECT_EQ(answers[0], reinterpret_cast<void*>(kFakeMainWindow));
  EXPECT_EQ(answers[1], &module_tag);
  EXPECT_EQ(errs[2], PF_Err_BAD_CALLBACK_PARAM);
  EXPECT_EQ(host.log().Last("get_platform_data")->index, 99);
}

// ---- life cycle ------------------------------------------------------------------------

// A small effect: global data of 8 bytes, a popup, a float slider and a colour,
// 4 bytes of sequence data holding 7; user changes couple the parameters.
struct FakeEffect {
  bool dispose_on_setdown = true;
  PF_Cmd last_cmd = -1;
  PF_Handle in_seq = nullptr, out_seq = nullptr, in_global = nullptr, out_global = nullptr;
  A_long width = 0, height = 0;
  bool out_was_reset = true;

  PF_Err operator()(PF_Cmd cmd, PF_InData* in, PF_OutData* out, PF_ParamDef* params[], PF_LayerDef* output,
                    void* extra) {
    last_cmd = cmd;
    in_seq = in->sequence_data, out_seq = out->sequence_data;
    in_global = in->global_data, out_global = out->global_data;
    width = in->width, height = in->height;
    out_was_reset = out_was_reset && out->my_version == 0 && out->return_msg[0] == 0 && out->out_flags == 0;
    std::strcpy(out->return_msg, "left over");
    auto handles = [in] { return Acquire<PF_HandleSuite1>(in, "PF Handle Suite", 2); };
    switch (cmd) {
      case PF_Cmd_GLOBAL_SETUP:
        out->global_data = in->utils->host_new_handle(8);
        break;
      case PF_Cmd_PARAMS_SETUP: {
        char items[32] = "One|Two|Three";
        PF_ParamDef def{};
        def.param_type = PF_Param_POPUP;
        def.u.pd.num_choices = 3;
        def.u.pd.dephault = 2;
        def.u.pd.u.namesptr = items;
        in->inter.add_param(in->effect_ref, -1, &def);
        std::strcpy(items, "gone");
        def = PF_ParamDef{};
        def.param_type = PF_Param_FLOAT_SLIDER;
        def.u.fs_d.value = 1.5;
        in->inter.add_param(in->effect_ref, -1, &def);
        def = PF_ParamDef{};
        def.param_type = PF_Param_COLOR;
        def.u.cd.dephault = PF_Pixel{255, 1, 2, 3};
        in->inter.add_param(in->effect_ref, -1, &def);
        out->num_params = 4;
        break;
      }
      case PF_Cmd_SEQUENCE_SETUP:
        out->sequence_data = handles()->host_new_handle(4);
        std::memcpy(*out->sequence_data, "\x07\0\0\0", 4);
        break;
      case PF_Cmd_SEQUENCE_SETDOWN:
        if (dispose_on_setdown) handles()->host_dispose_handle(in->sequence_data);
        break;
      case PF_Cmd_USER_CHANGED_PARAM:
        if (static_cast<PF_UserChangedParamExtra*>(extra)->param_index == 1) {
          params[2]->u.fs_d.value = params[1]->u.pd.value * 10.0;
          params[2]->uu.change_flags = PF_ChangeFlag_CHANGED_VALUE;
          params[3]->u.cd.value = PF_Pixel{9, 9, 9, 9};  // not flagged: must not stick
        } else {
          params[1]->u.pd.value = 3;
          Acquire<PF_ParamUtilsSuite3>(in, "PF Param Utils Suite", 3)
              ->PF_UpdateParamUI(in->effect_ref, 1, params[1]);
        }
        break;
      case PF_Cmd_RENDER:
        Acquire<PF_FillMatteSuite2>(in, "PF Fill Matte Suite", 2)
            ->fill(in->effect_ref, &params[3]->u.cd.value, nullptr, output);
        break;
    }
    return PF_Err_NONE;
  }
};

class LifeCycleTest : public HostTest {
 protected:
  void SetUp() override {
    g_body = std::ref(effect);
    ASSERT_EQ(host.GlobalSetup(), PF_Err_NONE);
    ASSERT_EQ(host.ParamsSetup(), PF_Err_NONE);
  }
  FakeEffect effect;
};

TEST_F(LifeCycleTest, ParamsSetupBuildsTheArrayFromCopiedDefinitions) {
  ASSERT_EQ(host.added_params().size(), 3u);
  EXPECT_EQ(host.added_params()[0].popup_items, "One|Two|Three");
  Instance& instance = host.AddInstance(World(8, 6));
  ASSERT_EQ(instance.param_count(), 4);
  EXPECT_EQ(instance.param(0).param_type, PF_Param_LAYER);
  EXPECT_EQ(instance.param(0).u.ld.width, 8);
  EXPECT_EQ(instance.param(1).u.pd.value, 2);
  EXPECT_STREQ(instance.param(1).u.pd.u.namesptr, "One|Two|Three");
  EXPECT_EQ(instance.param(2).u.fs_d.value, 1.5);
  EXPECT_EQ(instance.param(3).u.cd.value.alpha, 255);
  EXPECT_EQ(instance.param(3).u.cd.value.blue, 3);
  EXPECT_THROW(instance.param(4), std::out_of_range);
  EXPECT_TRUE(host.host_errors().empty());
}

TEST_F(LifeCycleTest, EveryCallGetsTheKeptHandlesAndAFreshOutData) {
  PF_Handle global = host.global_data();
  ASSERT_NE(global, nullptr);
  NewInstance applied = host.Apply(World(8, 6));
  PF_Handle sequence = applied.instance.sequence_data();
  ASSERT_NE(sequence, nullptr);
  World output(10, 4, false, 4);
  const std::function<PF_Err()> calls[] = {
      [&] { return host.UpdateParamsUI(applied.instance); },
      [&] { return host.Render(applied.instance, output); },
      [&] {
        return host.ChangeColor(applied.instance, 3, PF_Pixel{1, 1, 1, 1});
      },
      [&] {
        PF_EventExtra event{};
        return host.Event(applied.instance, event);
      },
  };
  for (const auto& call : calls) {
    ASSERT_EQ(call(), PF_Err_NONE);
    EXPECT_EQ(effect.in_seq, sequence);
    EXPECT_EQ(effect.out_seq, sequence);
    EXPECT_EQ(effect.in_global, global);
    EXPECT_EQ(effect.out_global, global);
  }
  EXPECT_TRUE(effect.out_was_reset);
  ASSERT_EQ(host.Render(applied.instance, output), PF_Err_NONE);  // in_data describes the output
  EXPECT_EQ(effect.width, 10);
  EXPECT_EQ(effect.height, 4);
  EXPECT_EQ(output.Get8(9, 3).alpha, 1);  // the colour the user chose
  EXPECT_TRUE(output.GuardsIntact());
  EXPECT_EQ(host.SuiteOutstanding("PF Fill Matte Suite", 2), 2);  // the fake never releases: the host notices
}

TEST_F(LifeCycleTest, UserChangesTakeFlaggedValuesAndUiUpdatesOnly) {
  Instance& instance = host.Apply(World(4, 4)).instance;
  ASSERT_EQ(host.ChangePopup(instance, 1, 3), PF_Err_NONE);
  EXPECT_EQ(instance.param(1).u.pd.value, 3);
  EXPECT_EQ(instance.param(2).u.fs_d.value, 30.0);
  EXPECT_EQ(instance.param(3).u.cd.value.red, 1);  // the unflagged write was dropped
  instance.param(1).u.pd.value = 1;
  ASSERT_EQ(host.ChangeFloat(instance, 2, 2.5), PF_Err_NONE);
  EXPECT_EQ(instance.param(2).u.fs_d.value, 2.5);
  EXPECT_EQ(instance.param(1).u.pd.value, 3);
  EXPECT_STREQ(instance.param(1).u.pd.u.namesptr, "One|Two|Three");
  EXPECT_EQ(host.log().Last("PF_UpdateParamUI")->index, 1);
  EXPECT_THROW(host.ChangeFloat(instance, 1, 1.0), std::invalid_argument);
  EXPECT_THROW(host.UserChanged(instance, 0), std::out_of_range);
}

TEST_F(LifeCycleTest, SaveReopenAndDuplicateCarryBytesAndValues) {
  Instance& original = host.Apply(World(4, 4)).instance;
  host.ChangePopup(original, 1, 1);
  host.handles().SetBytes(original.sequence_data(), {7, 1, 2, 3});
  const SavedInstance saved = host.Save(original);
  EXPECT_EQ(saved.sequence_bytes, (std::vector<std::uint8_t>{7, 1, 2, 3}));
  const std::function<NewInstance()> copies[] = {[&] { return host.Reopen(saved, World(4, 4)); },
                                                 [&] { return host.Duplicate(original); }};
  for (const auto& make : copies) {
    const NewInstance copy = make();
    EXPECT_EQ(copy.err, PF_Err_NONE);
    EXPECT_EQ(effect.last_cmd, PF_Cmd_SEQUENCE_RESETUP);
    EXPECT_NE(copy.instance.sequence_data(), original.sequence_data());
    EXPECT_EQ(effect.in_seq, copy.instance.sequence_data());
    EXPECT_EQ(effect.out_seq, copy.instance.sequence_data());
    EXPECT_EQ(host.handles().Bytes(copy.instance.sequence_data()), saved.sequence_bytes);
    EXPECT_EQ(copy.instance.param(1).u.pd.value, 1);
    EXPECT_EQ(copy.instance.param(2).u.fs_d.value, 10.0);
    EXPECT_STREQ(copy.instance.param(1).u.pd.u.namesptr, "One|Two|Three");
  }
}

TEST_F(LifeCycleTest, RemoveAndGlobalSetdownReportHandlesLeftBehind) {
  for (const bool dispose : {true, false}) {
    effect.dispose_on_setdown = dispose;
    Instance& instance = host.Apply(World(4, 4)).instance;
    PF_Handle sequence = instance.sequence_data();
    ASSERT_EQ(host.Remove(instance), PF_Err_NONE);
    EXPECT_EQ(effect.in_seq, sequence);
    EXPECT_EQ(instance.sequence_data(), nullptr);
    EXPECT_EQ(host.ForgottenHandles(), dispose ? std::vector<PF_Handle>{} : std::vector<PF_Handle>{sequence});
    EXPECT_THROW(host.Render(instance, instance.input()), std::logic_error);
  }
  PF_Handle global = host.global_data();
  ASSERT_EQ(host.GlobalSetdown(), PF_Err_NONE);
  EXPECT_EQ(effect.in_global, global);
  EXPECT_EQ(host.global_data(), nullptr);
  EXPECT_EQ(host.ForgottenHandles().back(), global);
}

TEST_F(HostTest, ParamsSetupChecksAddParamUseAndCount) {
  PF_Err outside = 0;
  During([&](PF_InData* in) {
    PF_ParamDef def{};
    outside = in->inter.add_param(in->effect_ref, -1, &def);
  });
  EXPECT_EQ(outside, PF_Err_INVALID_CALLBACK);
  EXPECT_EQ(host.host_errors().size(), 1u);
  During(
      [&](PF_InData* in) {
        PF_ParamDef def{};
        in->inter.add_param(in->effect_ref, -1, &def);  // num_params stays 0: one too few reported
      },
      PF_Cmd_PARAMS_SETUP);
  EXPECT_EQ(host.added_params().size(), 1u);
  EXPECT_EQ(host.host_errors().size(), 2u);
}

TEST(ModuleTest, MissingFileOrEntryIsAClearError) {
#ifdef _WIN32
  const char* without_entry = "kernel32.dll";
#else
  const char* without_entry = "libm.so.6";
#endif
  const std::pair<std::string, std::string> cases[] = {{"/no/such/KSCinebar.aex", "cannot load"},
                                                       {without_entry, "does not export EntryPointFunc"}};
  for (const auto& c : cases) {
    try {
      Module module(c.first);
      ADD_FAILURE() << c.first << " loaded";
    } catch (const ModuleError& e) {
      EXPECT_NE(std::string(e.what()).find(c.second), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find(c.first), std::string::npos) << e.what();
    }
  }
}

}  // namespace
}  // namespace cinebar_simhost
