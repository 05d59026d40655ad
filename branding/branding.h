// Binding to the maker's branding library (TWBranding.dll): it draws the
// header row above the effect's controls and supplies the about box. The
// library is optional; without it every operation still answers the host.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hostapi/ae_effect.h"
#include "paramindex/param_index.h"

// Records handed to the library. Their layouts are fixed by the library.
struct BrandingIdentity {
  const char* first_name;
  const char* family_name;
  const char* product_name;
  uint64_t reserved0;
  uint32_t version[3];
  uint32_t reserved1;
  uint32_t kind_code;
  uint8_t reserved2[12];
  const char* display_name;
  uint64_t reserved3;
  const char* product_page;
};
static_assert(sizeof(BrandingIdentity) == 88, "the library reads 88 bytes");
static_assert(offsetof(BrandingIdentity, kind_code) == 48 && offsetof(BrandingIdentity, display_name) == 64 &&
                  offsetof(BrandingIdentity, product_page) == 80,
              "identity fields where the library reads them");

struct BrandingBuildInfo {
  uint64_t reserved0;
  const void* build_block;  // points at `empty_text` of this same record
  uint8_t reserved1[32];
  const char* empty_text;
  const char* build_date;
  const char* build_time;
  const char* build_number;
  uint64_t reserved2;
};
static_assert(sizeof(BrandingBuildInfo) == 88, "the library reads 88 bytes");
static_assert(offsetof(BrandingBuildInfo, empty_text) == 48 &&
                  offsetof(BrandingBuildInfo, build_number) == 72,
              "build fields where the library reads them");

using SigilEntry = void (*)();
using Sigil_ShowAboutBoxFn = intptr_t (*)(void* parent_window, const BrandingIdentity*,
                                          const BrandingBuildInfo*);
using Sigil_CreateAEBrandingRefFn = void* (*)(const BrandingIdentity*);
using Sigil_DestroyAEBrandingRefFn = intptr_t (*)(void* reference);
using Sigil_GetIdealDimensionsFn = intptr_t (*)(void* reference, float* width, float* height);
using Sigil_HandleEventFn = PF_Err (*)(void* reference, PF_InData*, PF_OutData*, PF_ParamDef**, PF_LayerDef*,
                                       PF_EventExtra*);

// The effect's whole global data, held in a host handle.
struct BrandingBinding {
  void* reference;
  SigilEntry get_version_info;
  SigilEntry show_about_box;
  SigilEntry create_ae_branding_ref;
  SigilEntry destroy_ae_branding_ref;
  SigilEntry add_action_button;
  SigilEntry get_ideal_dimensions;
  SigilEntry handle_event;
  SigilEntry set_action_button_title;
  void* library;  // null when unbound: the one field every operation tests
};
static_assert(sizeof(BrandingBinding) == 80, "ten pointer-sized fields");

PF_Err LoadBranding(PF_InData* in_data, PF_OutData* out_data);
PF_Err AddHeaderParam(PF_InData* in_data);
PF_Err HandleHeaderEvent(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output,
                         PF_EventExtra* extra, bool* handled);
bool ShowBrandedAbout(PF_InData* in_data, PF_OutData* out_data);
PF_Err UnloadBranding(PF_InData* in_data, PF_OutData* out_data);
