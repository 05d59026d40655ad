#include "effect/params.h"

#include <cfloat>
#include <cmath>
#include <limits>

#include "effect/sequence.h"
#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "framework/param_descriptors.h"
#include "hostapi/ae_constants.h"

namespace {

constexpr char kRenderItems[] = "On Transparent|On Image";
constexpr char kPresetItems[] =
    "4:3 (Academy)|1.66:1 (Super 16)|16:9 (Widescreen TV)|1.85:1 (Theatrical)|2.35:1 (Anamorphic)|2.76:1 "
    "(Ultra)|(-|Custom";
constexpr char kParamUtilsSuiteName[] = "PF Param Utils Suite";

}  // namespace

const PresetEntry kPresets[PRESET_CUSTOM] = {
    {"4:3 (Academy)", 4.0f / 3.0f},
    {"1.66:1 (Super 16)", 1.66f},
    {"16:9 (Widescreen TV)", 16.0f / 9.0f},
    {"1.85:1 (Theatrical)", 1.85f},
    {"2.35:1 (Anamorphic)", 2.35f},
    {"2.76:1 (Ultra)", 2.76f},
    {"(-", 0.0f},
    {"Custom", 0.0f},
};

float RatioOfPreset(A_long item) {
  if (item < PRESET_FIRST || item > PRESET_LAST_RATIO) return 0.0f;
  return kPresets[item - 1].ratio;
}

A_long PresetOfRatio(float ratio) {
  const double wide = static_cast<double>(ratio);
  if (wide == 0.0) return PRESET_CUSTOM;
  for (A_long item = PRESET_FIRST; item <= PRESET_CUSTOM; ++item) {
    if (wide == static_cast<double>(kPresets[item - 1].ratio)) return item;
  }
  return PRESET_CUSTOM;
}

float NarrowToFloat(double value) {
  // Beyond FLT_MAX plus half a unit in the last place the hardware rounds to
  // infinity; below that it rounds to FLT_MAX.
  constexpr double kOverflowThreshold = static_cast<double>(FLT_MAX) + 0x1p103;
  if (std::isnan(value)) return std::numeric_limits<float>::quiet_NaN();
  if (value >= kOverflowThreshold) return std::numeric_limits<float>::infinity();
  if (value <= -kOverflowThreshold) return -std::numeric_limits<float>::infinity();
  if (value > static_cast<double>(FLT_MAX)) return FLT_MAX;
  if (value < -static_cast<double>(FLT_MAX)) return -FLT_MAX;
  return static_cast<float>(value);
}

float ReadFloatParam(PF_ParamDef* params[], A_long index) {
  return NarrowToFloat(params[index]->u.fs_d.value);
}

A_long ReadPopupParam(PF_ParamDef* params[], A_long index) { return params[index]->u.pd.value; }

PF_Pixel ReadColorParam(PF_ParamDef* params[], A_long index) { return params[index]->u.cd.value; }

void SetupEffectParams(PF_InData* in_data, PF_OutData* out_data, bool header_added) {
  {
    DAE::Param_Popup_Menu render(in_data, "Render", DISK_ID_RENDER);
    render.SetItems(kRenderItems);
    render.SetDefault(static_cast<A_short>(RENDER_ON_IMAGE));
    render.add();
  }
  {
    DAE::Param_Popup_Menu preset(in_data, "Preset", DISK_ID_PRESET);
    preset.SetItems(kPresetItems);
    preset.SetDefault(static_cast<A_short>(PRESET_FIRST));
    preset.SetSupervised();
    preset.SetCannotTimeVary();
    preset.SetStandardControlOnly();
    preset.add();
  }
  {
    DAE::Param_Float_Slider ratio(in_data, "Aspect Ratio", DISK_ID_ASPECT_RATIO);
    ratio.SetValidRange(0.0f, 12.0f);
    ratio.SetSliderRange(0.0f, 3.0f);
    ratio.SetDefault(RatioOfPreset(PRESET_FIRST));
    ratio.SetPrecision(3);
    ratio.SetSupervised();
    ratio.add();
  }
  {
    DAE::Param_Color color(in_data, "Color", DISK_ID_COLOR);
    color.SetDefault(0, 0, 0, 255);
    color.add();
  }
  out_data->num_params = PARAM_NUM_PARAMS;

  if (header_added) {
    PF_CustomUIInfo info{};
    info.events = PF_CustomEFlag_EFFECT;
    in_data->inter.register_ui(in_data->effect_ref, &info);
  }
}

void HandleUserChangedParam(PF_InData* in_data, PF_OutData*, PF_ParamDef* params[], PF_LayerDef*,
                            const PF_UserChangedParamExtra* extra) {
  HostSuiteCache suites(in_data->pica_basicP);
  PF_ParamUtilsSuite3* param_utils = suites.ParamUtilsSuite3();
  SequenceRecord* record = SequenceRecordOf(in_data->sequence_data);
  if (extra == nullptr) return;

  if (extra->param_index == PARAM_PRESET) {
    const float ratio = RatioOfPreset(ReadPopupParam(params, PARAM_PRESET));
    if (ratio == 0.0f) return;  // the separator or "Custom": nothing moves
    params[PARAM_ASPECT_RATIO]->u.fs_d.value = static_cast<double>(ratio);
    params[PARAM_ASPECT_RATIO]->uu.change_flags |= PF_ChangeFlag_CHANGED_VALUE;
    if (record != nullptr) record->preset = PresetOfRatio(ratio);
  } else if (extra->param_index == PARAM_ASPECT_RATIO) {
    const A_long item = PresetOfRatio(ReadFloatParam(params, PARAM_ASPECT_RATIO));
    // The popup moves through a UI update only; its change flag stays clear.
    params[PARAM_PRESET]->u.pd.value = item;
    if (param_utils == nullptr) throw DAE::DAESuiteXCP(kParamUtilsSuiteName);
    DAE::ThrowIfHostError(
        param_utils->PF_UpdateParamUI(in_data->effect_ref, PARAM_PRESET, params[PARAM_PRESET]));
    if (record != nullptr) record->preset = item;
  }
}

PF_Err UpdateParamsUI(PF_InData* in_data, PF_OutData*, PF_ParamDef* params[]) {
  HostSuiteCache suites(in_data->pica_basicP);
  const SequenceRecord* record = SequenceRecordOf(in_data->sequence_data);
  if (record == nullptr) return PF_Err_NONE;

  params[PARAM_PRESET]->u.pd.value = record->preset;
  PF_ParamUtilsSuite3* param_utils = suites.ParamUtilsSuite3();
  // The popup is only brought in line with the record; a refusal changes nothing.
  if (param_utils != nullptr)
    param_utils->PF_UpdateParamUI(in_data->effect_ref, PARAM_PRESET, params[PARAM_PRESET]);
  return PF_Err_NONE;
}
