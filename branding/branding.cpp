#include "branding/branding.h"

#include <cstring>

#include "cinebar_identity.h"
#include "framework/conversions.h"
#include "hostapi/ae_constants.h"
#include "platform/platform.h"

namespace {

// The library lives in a fixed place below the common application-data
// folder. The suffix starts with a backslash and the format adds another;
// the doubled separator is kept on purpose (the loader accepts it).
constexpr char kLibraryPathFormat[] = "%s\\%s";
constexpr char kLibrarySuffix[] = "\\Tarnwick\\Common\\Libraries\\TWBranding.dll";

constexpr char kAboutFirstName[] = "Gamut Guard";  // the sibling product, as the library expects it here
constexpr char kBuildNumber[] = "0";
constexpr uint32_t kKindAfterEffects = 0x41454658;  // 'AEFX'
constexpr float kHeaderHeightReduction = 40.0f;

// Entries are held untyped in the binding and called through their own types.
template <typename Fn>
Fn Entry(SigilEntry entry) {
  return reinterpret_cast<Fn>(entry);
}

// Create, destroy, ideal size and events are required of any library that
// loads; one that lacks them still must not bring the host down, so a
// missing entry answers zero (no reference, no error) instead of being called.
template <typename Fn, typename... Args>
auto Call(SigilEntry entry, Args... args) {
  using Result = decltype(Entry<Fn>(entry)(args...));
  if (entry == nullptr) return Result{};
  return Entry<Fn>(entry)(args...);
}

// Locks a global-data handle. A host that handed out no handle is not asked;
// one whose lock fails leaves the binding unreachable, which callers treat as
// unbound.
BrandingBinding* LockBinding(PF_InData* in_data, PF_Handle handle) {
  if (handle == nullptr) return nullptr;
  return static_cast<BrandingBinding*>(in_data->utils->host_lock_handle(handle));
}

// The unlock pairs with the lock call, not with its result: the host sees one
// unlock for every lock it was asked for, also when the lock gave no record.
void UnlockBinding(PF_InData* in_data, PF_Handle handle) {
  if (handle != nullptr) in_data->utils->host_unlock_handle(handle);
}

void FillVersion(BrandingIdentity& identity) {
  identity.version[0] = cinebar_identity::kVersionMajor;
  identity.version[1] = cinebar_identity::kVersionMinor;
  identity.version[2] = cinebar_identity::kVersionBugfix;
}

void BindLibrary(BrandingBinding& binding) {
  char folder[cinebar_platform::kMaxPath] = {};
  // A failed query leaves the folder empty; the path then starts with two
  // backslashes and the loader tries it like any other.
  cinebar_platform::GetCommonAppDataFolder(folder);

  // One spare byte keeps the path terminated even when the bounded print
  // cuts it off without a terminator.
  char path[cinebar_platform::kMaxPath + 1] = {};
  cinebar_platform::BoundedPrint(path, cinebar_platform::kMaxPath, kLibraryPathFormat, folder,
                                 kLibrarySuffix);

  binding.library = cinebar_platform::LoadLibraryFile(path);
  if (binding.library == nullptr) return;

  void* library = binding.library;
  binding.get_version_info = cinebar_platform::FindExport(library, "Sigil_GetVersionInfo");
  binding.show_about_box = cinebar_platform::FindExport(library, "Sigil_ShowAboutBox");
  binding.create_ae_branding_ref = cinebar_platform::FindExport(library, "Sigil_CreateAEBrandingRef");
  binding.destroy_ae_branding_ref = cinebar_platform::FindExport(library, "Sigil_DestroyAEBrandingRef");
  binding.add_action_button = cinebar_platform::FindExport(library, "Sigil_AddActionButton");
  binding.get_ideal_dimensions = cinebar_platform::FindExport(library, "Sigil_GetIdealDimensions");
  binding.handle_event = cinebar_platform::FindExport(library, "Sigil_HandleEvent");
  binding.set_action_button_title = cinebar_platform::FindExport(library, "Sigil_SetActionButtonTitle");

  BrandingIdentity identity{};
  identity.first_name = cinebar_identity::kProductName;
  identity.family_name = cinebar_identity::kFamilyName;
  identity.product_name = "";
  FillVersion(identity);
  identity.kind_code = kKindAfterEffects;
  binding.reference = Call<Sigil_CreateAEBrandingRefFn>(binding.create_ae_branding_ref, &identity);
}

// Truncated toward zero and kept in the 16-bit size field, as the processor
// does it: sizes beyond 16 bits keep their low bits.
A_short ToControlSize(float value) { return DAE::LowInt16(DAE::TruncateToInt32(value)); }

}  // namespace

PF_Err LoadBranding(PF_InData* in_data, PF_OutData* out_data) {
  out_data->global_data = in_data->utils->host_new_handle(sizeof(BrandingBinding));
  BrandingBinding* binding = LockBinding(in_data, out_data->global_data);
  if (binding != nullptr) {
    std::memset(binding, 0, sizeof *binding);
    BindLibrary(*binding);
  }
  UnlockBinding(in_data, out_data->global_data);
  if (binding == nullptr && out_data->global_data != nullptr) {
    // A block that could not be locked could not be cleared either: its
    // uncleared library field would read as bound and later commands would
    // call through whatever it held. It goes back, and the effect runs
    // unbound with no global data.
    in_data->utils->host_dispose_handle(out_data->global_data);
    out_data->global_data = nullptr;
  }
  return PF_Err_NONE;
}

PF_Err AddHeaderParam(PF_InData* in_data) {
  BrandingBinding* binding = LockBinding(in_data, in_data->global_data);

  PF_ParamDef header;
  std::memset(&header, 0, sizeof header);
  header.uu.id = HEADER_DISK_ID;
  header.param_type = PF_Param_NO_DATA;
  in_data->utils->ansi.strcpy(header.name, "");
  header.flags = PF_ParamFlag_SKIP_REVEAL_WHEN_UNHIDDEN;

  if (binding != nullptr && binding->library != nullptr) {
    header.ui_flags = PF_PUI_CONTROL | PF_PUI_DONT_ERASE_CONTROL;
    float width = 0.0f;
    float height = 0.0f;
    Call<Sigil_GetIdealDimensionsFn>(binding->get_ideal_dimensions, binding->reference, &width, &height);
    header.ui_width = ToControlSize(width);
    // The control area is registered 40 pixels shorter than the library asks.
    header.ui_height = ToControlSize(height - kHeaderHeightReduction);
  } else {
    header.ui_flags = PF_PUI_TOPIC;
  }

  const PF_Err result = in_data->inter.add_param(in_data->effect_ref, -1, &header);

  // This one unlock hands the host the locked record's address, not the
  // handle; the host has always accepted it, and it is kept as it is.
  if (in_data->global_data != nullptr)
    in_data->utils->host_unlock_handle(reinterpret_cast<PF_Handle>(binding));
  return result;
}

PF_Err HandleHeaderEvent(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output,
                         PF_EventExtra* extra, bool* handled) {
  if (extra == nullptr || extra->effect_win.index != PARAM_HEADER) {
    *handled = false;
    return PF_Err_NONE;
  }
  // The host is asked to lock and unlock the global data whatever it holds,
  // a null handle included; no record back means no library to call.
  PF_Err error = PF_Err_NONE;
  auto* binding = static_cast<BrandingBinding*>(in_data->utils->host_lock_handle(in_data->global_data));
  if (binding != nullptr && binding->library != nullptr) {
    error = Call<Sigil_HandleEventFn>(binding->handle_event, binding->reference, in_data, out_data, params,
                                      output, extra);
  }
  in_data->utils->host_unlock_handle(in_data->global_data);
  *handled = true;
  return error;
}

bool ShowBrandedAbout(PF_InData* in_data, PF_OutData*) {
  void* main_window = nullptr;
  in_data->utils->get_platform_data(in_data->effect_ref, PF_PlatData_MAIN_WND, &main_window);

  BrandingBinding* binding = LockBinding(in_data, in_data->global_data);
  // The about box is the one entry tested before use.
  if (binding == nullptr || binding->library == nullptr || binding->show_about_box == nullptr) {
    UnlockBinding(in_data, in_data->global_data);
    return false;
  }

  BrandingIdentity identity{};
  identity.first_name = kAboutFirstName;
  identity.family_name = cinebar_identity::kFamilyName;
  identity.product_name = cinebar_identity::kProductName;
  FillVersion(identity);
  identity.display_name = cinebar_identity::kDisplayName;
  identity.product_page = cinebar_identity::kProductPage;

  BrandingBuildInfo build{};
  build.build_block = &build.empty_text;
  build.empty_text = "";
  build.build_date = cinebar_identity::kBuildDate;
  build.build_time = cinebar_identity::kBuildTime;
  build.build_number = kBuildNumber;

  Entry<Sigil_ShowAboutBoxFn>(binding->show_about_box)(main_window, &identity, &build);
  UnlockBinding(in_data, in_data->global_data);
  return true;
}

PF_Err UnloadBranding(PF_InData* in_data, PF_OutData* out_data) {
  // The handle stays locked and is not disposed of, and the library stays
  // mapped until the process ends: the host owns the global data's end.
  BrandingBinding* binding = LockBinding(in_data, out_data->global_data);
  if (binding != nullptr && binding->library != nullptr) {
    Call<Sigil_DestroyAEBrandingRefFn>(binding->destroy_ae_branding_ref, binding->reference);
    binding->library = nullptr;
  }
  return PF_Err_NONE;
}
