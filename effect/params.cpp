#include "effect/params.h"

#include <iterator>

#include "effect/sequence.h"
#include "framework/conversions.h"
#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "framework/param_descriptors.h"
#include "hostapi/ae_constants.h"

static_assert(kRenderItemString.size() <= DAE::Param_Popup_Menu::kItemBufferSize &&
                  kPresetItemString.size() <= DAE::Param_Popup_Menu::kItemBufferSize,
              "item strings fit the descriptor's buffer with their terminator");

float RatioOfPreset(A_long item) {
  if (item < PRESET_FIRST || item > PRESET_LAST_RATIO) return 0.0f;
  return kPresetItems[item - 1].ratio;
}

A_long PresetOfRatio(float ratio) {
  const double wide = static_cast<double>(ratio);
  if (wide == 0.0) return PRESET_CUSTOM;
  for (A_long item = PRESET_FIRST; item <= PRESET_CUSTOM; ++item) {
    if (wide == static_cast<double>(kPresetItems[item - 1].ratio)) return item;
  }
  return PRESET_CUSTOM;
}

float ReadFloatParam(PF_ParamDef* params[], A_long index) {
  return DAE::NarrowToFloat(params[index]->u.fs_d.value);
}

A_long ReadPopupParam(PF_ParamDef* params[], A_long index) { return params[index]->u.pd.value; }

PF_Pixel ReadColorParam(PF_ParamDef* params[], A_long index) { return params[index]->u.cd.value; }

PF_Pixel16 Pixel8To16(PF_Pixel pixel) {
  return PF_Pixel16{static_cast<A_u_short>(pixel.alpha << 7), static_cast<A_u_short>(pixel.red << 7),
                    static_cast<A_u_short>(pixel.green << 7), static_cast<A_u_short>(pixel.blue << 7)};
}

namespace {

// The flags a row adds to those every control carries, then the host's copy.
template <typename Descriptor>
void FlagAndAdd(Descriptor& descriptor, const ControlSpec& control) {
  descriptor.AddFlags(control.flags, control.ui_flags);
  descriptor.add();
}

// Adds the row at `at` and, while its descriptor lives, every row after it,
// then calls `finish`: the host may read a popup's item text, which the
// descriptor owns, at any point before setup returns. Each kind's setters are
// called in the order the descriptors require (items before the default).
template <typename Finish>
void AddControls(PF_InData* in_data, std::size_t at, Finish finish) {
  if (at == std::size(kControls)) return finish();
  const ControlSpec& control = kControls[at];
  switch (control.type) {
    case ControlType::kPopup: {
      DAE::Param_Popup_Menu popup(in_data, control.name, control.disk_id);
      popup.SetItems(control.items);
      popup.SetDefault(control.default_item);
      FlagAndAdd(popup, control);
      return AddControls(in_data, at + 1, finish);
    }
    case ControlType::kFloatSlider: {
      DAE::Param_Float_Slider slider(in_data, control.name, control.disk_id);
      slider.SetValidRange(control.valid_min, control.valid_max);
      slider.SetSliderRange(control.slider_min, control.slider_max);
      slider.SetDefault(control.default_value);
      slider.SetPrecision(control.precision);
      FlagAndAdd(slider, control);
      return AddControls(in_data, at + 1, finish);
    }
    case ControlType::kColor: {
      DAE::Param_Color color(in_data, control.name, control.disk_id);
      color.SetDefault(control.default_color);
      FlagAndAdd(color, control);
      return AddControls(in_data, at + 1, finish);
    }
  }
}

}  // namespace

void SetupEffectParams(PF_InData* in_data, PF_OutData* out_data, bool header_added) {
  AddControls(in_data, 0, [&] {
    out_data->num_params = PARAM_NUM_PARAMS;
    if (header_added) {
      PF_CustomUIInfo info{};
      info.events = PF_CustomEFlag_EFFECT;
      in_data->inter.register_ui(in_data->effect_ref, &info);
    }
  });
}

void HandleUserChangedParam(PF_InData* in_data, PF_OutData*, PF_ParamDef* params[], PF_LayerDef*,
                            const PF_UserChangedParamExtra* extra) {
  HostSuiteCache suites(in_data->pica_basicP);
  suites.Get<PF_ParamUtilsSuite3>();  // asked for at once, whatever changed; only "Aspect Ratio" needs it
  SequenceRecord* record = SequenceRecordOf(in_data->sequence_data);
  if (extra == nullptr) return;

  if (extra->param_index == PARAM_PRESET) {
    const float ratio = RatioOfPreset(ReadPopupParam(params, PARAM_PRESET));
    if (ratio == 0.0f) return;  // the separator or "Custom": nothing moves
    params[PARAM_ASPECT_RATIO]->u.fs_d.value = static_cast<double>(ratio);
    params[PARAM_ASPECT_RATIO]->uu.change_flags |= PF_ChangeFlag_CHANGED_VALUE;
    if (record != nullptr) record->preset = PresetOfRatio(ratio);
  } else if (extra->param_index == PARAM_ASPECT_RATIO) {
    // Checked before "Preset" is touched: a missing suite leaves it as it was.
    PF_ParamUtilsSuite3& param_utils = suites.Require<PF_ParamUtilsSuite3>();
    const A_long item = PresetOfRatio(ReadFloatParam(params, PARAM_ASPECT_RATIO));
    // The popup moves through a UI update only; its change flag stays clear.
    params[PARAM_PRESET]->u.pd.value = item;
    DAE::ThrowIfHostError(
        param_utils.PF_UpdateParamUI(in_data->effect_ref, PARAM_PRESET, params[PARAM_PRESET]));
    if (record != nullptr) record->preset = item;
  }
}

PF_Err UpdateParamsUI(PF_InData* in_data, PF_OutData*, PF_ParamDef* params[]) {
  HostSuiteCache suites(in_data->pica_basicP);
  const SequenceRecord* record = SequenceRecordOf(in_data->sequence_data);
  if (record == nullptr) return PF_Err_NONE;

  params[PARAM_PRESET]->u.pd.value = record->preset;
  PF_ParamUtilsSuite3* param_utils = suites.Get<PF_ParamUtilsSuite3>();
  // The popup is only brought in line with the record; a refusal changes nothing.
  if (param_utils != nullptr)
    param_utils->PF_UpdateParamUI(in_data->effect_ref, PARAM_PRESET, params[PARAM_PRESET]);
  return PF_Err_NONE;
}
