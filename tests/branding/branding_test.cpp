// The real module with and without the branding library. Bound cases run with
// the test double installed where the module looks for the library; unbound
// cases run in another process (the library stays mapped once loaded).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "paramindex/param_index.h"
#include "platform/platform.h"
#include "tests/fixtures/branding_double.h"
#include "tests/fixtures/effect_host.h"

namespace {

using cinebar_simhost::Host;
using cinebar_simhost::World;

std::filesystem::path InstalledLibraryPath() {
  char folder[cinebar_platform::kMaxPath] = {};
  cinebar_platform::GetCommonAppDataFolder(folder);
  return std::filesystem::path(folder) / "Tarnwick" / "Common" / "Libraries" / "TWBranding.dll";
}

template <typename T>
T Field(const void* record, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const unsigned char*>(record) + offset, sizeof value);
  return value;
}

bool Zero(const unsigned char* record, std::initializer_list<std::pair<size_t, size_t>> spans) {
  for (const auto& [from, to] : spans) {
    for (size_t i = from; i < to; ++i) {
      if (record[i] != 0) return false;
    }
  }
  return true;
}

// The ten pointer-sized fields of the global data: the reference, the eight entries, the library.
std::vector<uint64_t> GlobalFields(Host& host) {
  const std::vector<uint8_t> bytes = host.handles().Bytes(host.global_data());
  std::vector<uint64_t> fields(bytes.size() / 8);
  std::memcpy(fields.data(), bytes.data(), fields.size() * 8);
  return fields;
}

class BoundBranding : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    // Cases run in parallel processes: whoever comes first installs the
    // library, by renaming a copy into place (a loaded DLL is not replaced).
    const auto installed = InstalledLibraryPath();
    std::filesystem::create_directories(installed.parent_path());
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
    const auto find = [&](auto& entry, const char* name) {
      entry = reinterpret_cast<std::remove_reference_t<decltype(entry)>>(
          cinebar_platform::FindExport(library, name));
    };
    find(reset, "TWDouble_Reset");
    find(configure, "TWDouble_Configure");
    find(count, "TWDouble_CallCount");
    find(get, "TWDouble_GetCall");
    reset();
    configure(300.7f, 60.9f, 0);
    ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  }
  // The library's calls since the last reset: exactly one, of `entry`.
  SigilCall OnlyCall(const char* entry) {
    SigilCall call{};
    EXPECT_EQ(1, count());
    get(0, &call);
    EXPECT_STREQ(entry, call.entry);
    reset();
    return call;
  }

  TWDouble_ResetFn reset = nullptr;
  TWDouble_ConfigureFn configure = nullptr;
  TWDouble_CallCountFn count = nullptr;
  TWDouble_GetCallFn get = nullptr;
  Host host{TheModule()};
};

TEST_F(BoundBranding, GlobalSetupCreatesTheReferenceWithTheHeaderIdentity) {
  const SigilCall create = OnlyCall("Sigil_CreateAEBrandingRef");
  EXPECT_EQ((std::vector<std::string>{"Cadre", "Lenscraft Suite", "", "<null>", "<null>"}),
            std::vector<std::string>(std::begin(create.identity_texts), std::end(create.identity_texts)));
  EXPECT_EQ(
      (std::vector<uint32_t>{1, 1, 12, 0x41454658}),
      (std::vector<uint32_t>{Field<uint32_t>(create.identity, 32), Field<uint32_t>(create.identity, 36),
                             Field<uint32_t>(create.identity, 40), Field<uint32_t>(create.identity, 48)}));
  EXPECT_TRUE(Zero(create.identity, {{24, 32}, {44, 48}, {52, 64}, {72, 80}}));
  const std::vector<uint64_t> fields = GlobalFields(host);
  ASSERT_EQ(10u, fields.size());
  for (size_t field = 0; field < 10; ++field) EXPECT_NE(0u, fields[field]) << "field " << field;
}

TEST_F(BoundBranding, HeaderTakesTheLibrarysSizeTruncatedIntoSixteenBitsLessFortyInHeight) {
  const struct {
    float width, height;
    A_short ui_width, ui_height;  // INT16_MIN: anything, as long as it is no undefined behaviour
  } kSizes[] = {{300.7f, 60.9f, 300, 20},
                {300.7f, 30.0f, 300, -10},
                {0.0f, 0.0f, 0, -40},
                {640.2f, 40.0f, 640, 0},
                {40000.0f, 40040.0f, -25536, -25536},
                {-40000.9f, 65576.5f, 25536, 0},
                {NAN, INFINITY, INT16_MIN, INT16_MIN},
                {-INFINITY, 3e38f, INT16_MIN, INT16_MIN}};
  for (const auto& size : kSizes) {
    SCOPED_TRACE(::testing::Message() << size.width << " x " << size.height);
    configure(size.width, size.height, 0);
    Host fresh(TheModule());
    ASSERT_EQ(PF_Err_NONE, fresh.GlobalSetup());
    reset();
    ASSERT_EQ(PF_Err_NONE, fresh.ParamsSetup());
    const PF_ParamDef& header = fresh.added_params().at(0).def;
    EXPECT_EQ(PF_PUI_CONTROL | PF_PUI_DONT_ERASE_CONTROL, header.ui_flags) << "a header the library draws";
    EXPECT_TRUE(size.ui_width == INT16_MIN || size.ui_width == header.ui_width) << header.ui_width;
    EXPECT_TRUE(size.ui_height == INT16_MIN || size.ui_height == header.ui_height) << header.ui_height;
    const SigilCall ideal = OnlyCall("Sigil_GetIdealDimensions");
    EXPECT_EQ(GlobalFields(fresh)[0], ideal.args[0]);
    EXPECT_EQ(0u, ideal.args[3] + ideal.args[4]) << "both zeroed before the call";
    EXPECT_EQ(1u, fresh.registered_ui().size());
    // The one unlock that hands the host the record's address, not the handle.
    EXPECT_EQ(static_cast<void*>(*fresh.global_data()), fresh.log().Last(HostFn::kUnlockHandle)->handle);
  }
}

TEST_F(BoundBranding, EventsForTheHeaderReachTheLibraryAndNoErrorReachesTheHost) {
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  auto applied = host.Apply(World(32, 18));
  configure(300.7f, 60.9f, 42);
  for (const A_long index : {1, 2, 3, 4, 5}) {
    for (const PF_EventType type : {PF_Event_NEW_CONTEXT, PF_Event_DO_CLICK, PF_Event_DRAG, PF_Event_DRAW,
                                    PF_Event_ADJUST_CURSOR, PF_Event_KEYDOWN}) {
      SCOPED_TRACE(::testing::Message() << "index " << index << " type " << type);
      reset();
      PF_EventExtra extra{};
      extra.e_type = type;
      extra.effect_win.index = index;
      EXPECT_EQ(PF_Err_NONE, host.Event(applied.instance, extra));
      if (index != 1) {
        EXPECT_EQ(0, count());
        continue;
      }
      const SigilCall event = OnlyCall("Sigil_HandleEvent");
      EXPECT_EQ(std::vector<int32_t>({type, 1}), std::vector<int32_t>({event.event_type, event.event_index}));
      EXPECT_EQ(GlobalFields(host)[0], event.args[0]);
      PF_InData in_data = host.in_data();  // a host that leaves out_data null reaches it too
      in_data.global_data = host.global_data();
      EXPECT_EQ(PF_Err_NONE, host.CallRaw(PF_Cmd_EVENT, &in_data, nullptr, nullptr, nullptr, &extra));
      OnlyCall("Sigil_HandleEvent");
    }
  }
}

TEST_F(BoundBranding, AboutShowsTheLibrarysBoxAndSetdownDestroysTheReferenceOnce) {
  reset();
  ASSERT_EQ(PF_Err_NONE, host.About());
  EXPECT_STREQ("", host.out_data().return_msg) << "no fallback text";
  const SigilCall about = OnlyCall("Sigil_ShowAboutBox");
  EXPECT_EQ(cinebar_simhost::kFakeMainWindow, about.args[0]);
  EXPECT_EQ((std::vector<std::string>{"Gamut Guard", "Lenscraft Suite", "Cadre", "Tarnwick Cadre"}),
            std::vector<std::string>(about.identity_texts, about.identity_texts + 4));
  EXPECT_EQ(0u, std::string(about.identity_texts[4]).rfind("https://", 0)) << about.identity_texts[4];
  EXPECT_EQ(12u, Field<uint32_t>(about.identity, 40));
  EXPECT_EQ(0u, Field<uint32_t>(about.identity, 48)) << "no kind code in the about record";
  EXPECT_EQ(about.build_address + 48, Field<uint64_t>(about.build, 8)) << "points at its own build block";
  EXPECT_TRUE(Zero(about.build, {{0, 8}, {16, 48}, {80, 88}}));
  EXPECT_STREQ("", about.build_texts[0]);
  EXPECT_EQ(11u, std::strlen(about.build_texts[1])) << about.build_texts[1];  // "Mmm dd yyyy"
  EXPECT_TRUE(std::strlen(about.build_texts[2]) == 8 && about.build_texts[2][2] == ':')
      << about.build_texts[2];
  EXPECT_STREQ("0", about.build_texts[3]);

  const uint64_t reference = GlobalFields(host)[0];
  const PF_Handle global = host.global_data();
  PF_InData in_data = host.in_data();
  PF_OutData out_data{};
  in_data.global_data = out_data.global_data = global;
  // A host that leaves out_data null gets the box too.
  ASSERT_EQ(PF_Err_NONE, host.CallRaw(PF_Cmd_ABOUT, &in_data, nullptr, nullptr, nullptr, nullptr));
  OnlyCall("Sigil_ShowAboutBox");
  for (const int setdown : {1, 2}) {  // the second finds the binding cleared by the first
    ASSERT_EQ(PF_Err_NONE,
              host.CallRaw(PF_Cmd_GLOBAL_SETDOWN, &in_data, &out_data, nullptr, nullptr, nullptr));
    if (setdown == 1) {
      EXPECT_EQ(reference, OnlyCall("Sigil_DestroyAEBrandingRef").args[0]);
    }
  }
  EXPECT_EQ(0, count());
}

TEST(UnboundBranding, GlobalDataIsZeroTheHeaderAnEmptyTopicAndEverythingStillAnswers) {
  ASSERT_FALSE(std::filesystem::exists(InstalledLibraryPath()))
      << "this process must run without the library";
  Host host(TheModule());
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  EXPECT_EQ(std::vector<uint8_t>(80, 0), host.handles().Bytes(host.global_data()));
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  PF_ParamDef header;  // every byte as the host receives it: the rest stays zero
  std::memset(&header, 0, sizeof header);
  header.uu.id = HEADER_DISK_ID;
  header.param_type = PF_Param_NO_DATA;
  header.flags = 0x200;
  header.ui_flags = PF_PUI_TOPIC;
  EXPECT_EQ(0, std::memcmp(&header, &host.added_params().at(0).def, sizeof header));
  auto applied = host.Apply(World(32, 18));
  PF_EventExtra extra{};
  extra.effect_win.index = PARAM_HEADER;
  extra.e_type = PF_Event_DRAW;
  EXPECT_EQ(PF_Err_NONE, host.Event(applied.instance, extra));
  EXPECT_EQ(PF_Err_NONE, host.About());
  const std::string about = host.out_data().return_msg;
  EXPECT_EQ(0u, about.rfind("Tarnwick Cadre 1.1.12\r", 0)) << about;
  EXPECT_EQ(std::string::npos, about.find('\n')) << "lines are separated by carriage returns";
  EXPECT_EQ(0, host.out_data().out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE);
  EXPECT_EQ(PF_Err_NONE, host.GlobalSetdown());
}

}  // namespace
