// The real module with and without the branding library. Bound cases run with
// the test double installed where the module looks for the library; unbound
// cases run in another process (the library stays mapped once loaded).
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "host/sim_host.h"
#include "platform/platform.h"
#include "tests/fixtures/branding_double.h"
#include "tests/fixtures/the_module.h"

namespace {

using cinebar_simhost::Host;
using cinebar_simhost::World;

std::filesystem::path InstalledLibraryPath() {
  char folder[cinebar_platform::kMaxPath] = {};
  cinebar_platform::GetCommonAppDataFolder(folder);
  return std::filesystem::path(folder) / "Tarnwick" / "Common" / "Libraries" / "TWBranding.dll";
}

// The double's own exports, reached through the same mapped library the module uses.
struct Double {
  TWDouble_ResetFn reset;
  TWDouble_ConfigureFn configure;
  TWDouble_CallCountFn count;
  TWDouble_GetCallFn get;

  std::vector<SigilCall> Calls() const {
    std::vector<SigilCall> calls(static_cast<size_t>(count()));
    for (size_t i = 0; i < calls.size(); ++i) get(static_cast<int32_t>(i), &calls[i]);
    return calls;
  }
  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const SigilCall& call : Calls()) names.push_back(call.entry);
    return names;
  }
};

template <typename T>
T Field(const unsigned char* record, size_t offset) {
  T value;
  std::memcpy(&value, record + offset, sizeof value);
  return value;
}

bool ZeroBytes(const unsigned char* record, size_t from, size_t to) {
  for (size_t i = from; i < to; ++i) {
    if (record[i] != 0) return false;
  }
  return true;
}

// The ten pointer-sized fields of the global data, as the host holds them.
std::vector<uint64_t> GlobalFields(Host& host) {
  const std::vector<uint8_t> bytes = host.handles().Bytes(host.global_data());
  std::vector<uint64_t> fields(bytes.size() / 8);
  std::memcpy(fields.data(), bytes.data(), fields.size() * 8);
  return fields;
}
constexpr size_t kReferenceField = 0, kShowAboutField = 2, kLibraryField = 9;

const PF_ParamDef& HeaderDefinition(Host& host) { return host.added_params().at(0).def; }

// ---- bound -------------------------------------------------------------------

class BoundBranding : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const auto installed = InstalledLibraryPath();
    std::filesystem::create_directories(installed.parent_path());
    // Bound cases run in parallel, each in its own process: whoever comes
    // first installs the library; a copy is renamed into place so that no
    // process ever maps a half-written file (a loaded DLL is not replaced).
    std::error_code error;
    if (std::filesystem::file_size(installed, error) == std::filesystem::file_size(CINEBAR_BRANDING_DOUBLE))
      return;
    const auto staged = installed.string() + "." + std::to_string(std::random_device{}());
    std::filesystem::copy_file(CINEBAR_BRANDING_DOUBLE, staged,
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::rename(staged, installed, error);
    std::filesystem::remove(staged, error);
  }

  void SetUp() override {
    void* library = cinebar_platform::LoadLibraryFile(InstalledLibraryPath().string().c_str());
    ASSERT_NE(nullptr, library);
    double_.reset =
        reinterpret_cast<TWDouble_ResetFn>(cinebar_platform::FindExport(library, "TWDouble_Reset"));
    double_.configure =
        reinterpret_cast<TWDouble_ConfigureFn>(cinebar_platform::FindExport(library, "TWDouble_Configure"));
    double_.count =
        reinterpret_cast<TWDouble_CallCountFn>(cinebar_platform::FindExport(library, "TWDouble_CallCount"));
    double_.get =
        reinterpret_cast<TWDouble_GetCallFn>(cinebar_platform::FindExport(library, "TWDouble_GetCall"));
    double_.reset();
    double_.configure(300.7f, 60.9f, 0);
    ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  }

  Double double_{};
  Host host{TheModule()};
};

TEST_F(BoundBranding, GlobalSetupCreatesTheReferenceWithTheHeaderIdentity) {
  const std::vector<SigilCall> calls = double_.Calls();
  ASSERT_EQ(1u, calls.size());
  const SigilCall& create = calls[0];
  EXPECT_STREQ("Sigil_CreateAEBrandingRef", create.entry);
  EXPECT_STREQ("Cadre", create.identity_texts[0]);
  EXPECT_STREQ("Lenscraft Suite", create.identity_texts[1]);
  EXPECT_STREQ("", create.identity_texts[2]);
  EXPECT_STREQ("<null>", create.identity_texts[3]);
  EXPECT_STREQ("<null>", create.identity_texts[4]);
  EXPECT_EQ(1u, Field<uint32_t>(create.identity, 32));
  EXPECT_EQ(1u, Field<uint32_t>(create.identity, 36));
  EXPECT_EQ(12u, Field<uint32_t>(create.identity, 40));
  const unsigned char kind[4] = {0x58, 0x46, 0x45, 0x41};
  EXPECT_EQ(0, std::memcmp(kind, create.identity + 48, 4));
  EXPECT_TRUE(ZeroBytes(create.identity, 24, 32) && ZeroBytes(create.identity, 44, 48) &&
              ZeroBytes(create.identity, 52, 64) && ZeroBytes(create.identity, 72, 80));

  const std::vector<uint64_t> fields = GlobalFields(host);
  ASSERT_EQ(10u, fields.size());
  EXPECT_NE(0u, fields[kReferenceField]);
  EXPECT_NE(0u, fields[kLibraryField]);
  for (size_t entry = 1; entry <= 8; ++entry) EXPECT_NE(0u, fields[entry]) << "entry " << entry;
}

TEST_F(BoundBranding, HeaderTakesTheLibrarysSizeLessFortyPixelsInHeight) {
  const struct {
    float width, height;
    A_short ui_width, ui_height;
  } kSizes[] = {
      {300.7f, 60.9f, 300, 20}, {300.7f, 30.0f, 300, -10}, {0.0f, 0.0f, 0, -40}, {640.2f, 40.0f, 640, 0}};
  for (const auto& size : kSizes) {
    SCOPED_TRACE(::testing::Message() << size.width << " x " << size.height);
    double_.configure(size.width, size.height, 0);
    Host fresh(TheModule());
    ASSERT_EQ(PF_Err_NONE, fresh.GlobalSetup());
    double_.reset();
    ASSERT_EQ(PF_Err_NONE, fresh.ParamsSetup());
    const PF_ParamDef& header = HeaderDefinition(fresh);
    EXPECT_EQ(5, header.uu.id);
    EXPECT_EQ(PF_Param_NO_DATA, header.param_type);
    EXPECT_STREQ("", header.name);
    EXPECT_EQ(0x200, header.flags);
    EXPECT_EQ(0x82, header.ui_flags);
    EXPECT_EQ(size.ui_width, header.ui_width);
    EXPECT_EQ(size.ui_height, header.ui_height);

    const std::vector<SigilCall> calls = double_.Calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_STREQ("Sigil_GetIdealDimensions", calls[0].entry);
    EXPECT_EQ(GlobalFields(fresh)[kReferenceField], calls[0].args[0]);
    EXPECT_EQ(0.0f, Field<float>(reinterpret_cast<const unsigned char*>(&calls[0].args[3]), 0))
        << "zeroed first";
    EXPECT_EQ(0.0f, Field<float>(reinterpret_cast<const unsigned char*>(&calls[0].args[4]), 0))
        << "zeroed first";
    ASSERT_EQ(1u, fresh.registered_ui().size());
    EXPECT_EQ(PF_CustomEFlag_EFFECT, fresh.registered_ui()[0].events);
  }
}

TEST_F(BoundBranding, HeaderUnlocksTheRecordAddressNotTheHandle) {
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  const auto unlocks = host.log().Named("host_unlock_handle");
  ASSERT_FALSE(unlocks.empty());
  EXPECT_EQ(reinterpret_cast<PF_Handle>(*host.global_data()), unlocks.back()->handle);
}

TEST_F(BoundBranding, EventsForTheHeaderReachTheLibraryAndNoErrorReachesTheHost) {
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  auto applied = host.Apply(World(32, 18));
  double_.configure(300.7f, 60.9f, 42);
  const PF_EventType kTypes[] = {PF_Event_NEW_CONTEXT,   PF_Event_ACTIVATE,    PF_Event_DO_CLICK,
                                 PF_Event_DRAG,          PF_Event_DRAW,        PF_Event_DEACTIVATE,
                                 PF_Event_CLOSE_CONTEXT, PF_Event_IDLE,        PF_Event_ADJUST_CURSOR,
                                 PF_Event_KEYDOWN,       PF_Event_MOUSE_EXITED};
  for (const A_long index : {1, 2, 3, 4, 5}) {
    for (const PF_EventType type : kTypes) {
      SCOPED_TRACE(::testing::Message() << "index " << index << " type " << type);
      double_.reset();
      PF_EventExtra extra{};
      extra.e_type = type;
      extra.effect_win.index = index;
      extra.effect_win.area = PF_EA_CONTROL;
      EXPECT_EQ(PF_Err_NONE, host.Event(applied.instance, extra));
      const std::vector<SigilCall> calls = double_.Calls();
      if (index != 1) {
        EXPECT_TRUE(calls.empty());
        continue;
      }
      ASSERT_EQ(1u, calls.size());
      EXPECT_STREQ("Sigil_HandleEvent", calls[0].entry);
      EXPECT_EQ(type, calls[0].event_type);
      EXPECT_EQ(1, calls[0].event_index);
      EXPECT_EQ(GlobalFields(host)[kReferenceField], calls[0].args[0]);
    }
  }
}

TEST_F(BoundBranding, AboutShowsTheLibrarysBoxWithTheAboutIdentity) {
  double_.reset();
  ASSERT_EQ(PF_Err_NONE, host.About());
  EXPECT_STREQ("", host.out_data().return_msg) << "no fallback text";
  const std::vector<SigilCall> calls = double_.Calls();
  ASSERT_EQ(1u, calls.size());
  const SigilCall& about = calls[0];
  EXPECT_STREQ("Sigil_ShowAboutBox", about.entry);
  EXPECT_EQ(cinebar_simhost::kFakeMainWindow, about.args[0]);
  EXPECT_STREQ("Gamut Guard", about.identity_texts[0]);
  EXPECT_STREQ("Lenscraft Suite", about.identity_texts[1]);
  EXPECT_STREQ("Cadre", about.identity_texts[2]);
  EXPECT_STREQ("Tarnwick Cadre", about.identity_texts[3]);
  EXPECT_EQ(0u, std::string(about.identity_texts[4]).rfind("https://", 0)) << about.identity_texts[4];
  EXPECT_EQ(12u, Field<uint32_t>(about.identity, 40));
  EXPECT_EQ(0u, Field<uint32_t>(about.identity, 48)) << "no kind code in the about record";

  EXPECT_EQ(about.build_address + 48, Field<uint64_t>(about.build, 8)) << "points at its own build block";
  EXPECT_TRUE(ZeroBytes(about.build, 0, 8) && ZeroBytes(about.build, 16, 48) &&
              ZeroBytes(about.build, 80, 88));
  EXPECT_STREQ("", about.build_texts[0]);
  EXPECT_EQ(11u, std::strlen(about.build_texts[1])) << about.build_texts[1];  // "Mmm dd yyyy"
  const std::string time = about.build_texts[2];
  ASSERT_EQ(8u, time.size());
  EXPECT_EQ(':', time[2]);
  EXPECT_EQ(':', time[5]);
  EXPECT_STREQ("0", about.build_texts[3]);
}

TEST_F(BoundBranding, SetdownDestroysTheReferenceOnce) {
  const uint64_t reference = GlobalFields(host)[kReferenceField];
  double_.reset();
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetdown());
  ASSERT_EQ(std::vector<std::string>{"Sigil_DestroyAEBrandingRef"}, double_.Entries());
  EXPECT_EQ(reference, double_.Calls()[0].args[0]);
  double_.reset();
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetdown());
  EXPECT_TRUE(double_.Entries().empty());
}

// ---- unbound -----------------------------------------------------------------

class UnboundBranding : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(std::filesystem::exists(InstalledLibraryPath()))
        << "this process must run without the library";
    ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  }
  Host host{TheModule()};
};

TEST_F(UnboundBranding, GlobalDataIsAZeroBlockOfEightyBytes) {
  const std::vector<uint8_t> bytes = host.handles().Bytes(host.global_data());
  EXPECT_EQ(std::vector<uint8_t>(80, 0), bytes);
}

TEST_F(UnboundBranding, HeaderIsAnEmptyTopic) {
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  const PF_ParamDef& header = HeaderDefinition(host);
  EXPECT_EQ(5, header.uu.id);
  EXPECT_EQ(PF_PUI_TOPIC, header.ui_flags);
  EXPECT_EQ(0, header.ui_width);
  EXPECT_EQ(0, header.ui_height);
  EXPECT_EQ(0x200, header.flags);
}

TEST_F(UnboundBranding, EventsAboutAndSetdownStillAnswer) {
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  auto applied = host.Apply(World(32, 18));
  PF_EventExtra extra{};
  extra.effect_win.index = 1;
  extra.e_type = PF_Event_DRAW;
  EXPECT_EQ(PF_Err_NONE, host.Event(applied.instance, extra));
  EXPECT_EQ(PF_Err_NONE, host.About());
  EXPECT_EQ(0u, std::string(host.out_data().return_msg).rfind("Tarnwick Cadre 1.1.12", 0));
  EXPECT_EQ(std::vector<uint8_t>(80, 0), host.handles().Bytes(host.global_data()));
  EXPECT_EQ(PF_Err_NONE, host.GlobalSetdown());
}

}  // namespace
