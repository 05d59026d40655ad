#include "framework/param_descriptors.h"

#include <cstring>

#include "framework/dae_exceptions.h"
#include "hostapi/ae_constants.h"

namespace DAE {

Param_Parameter::Param_Parameter(PF_InData* in_data, PF_ParamType type, const char* name, A_long disk_id)
    : in_data_(in_data) {
  std::memset(&definition_, 0, sizeof definition_);
  definition_.param_type = type;
  in_data_->utils->ansi.strcpy(definition_.name, name);
  definition_.uu.id = disk_id;
  definition_.flags |= PF_ParamFlag_START_COLLAPSED;
}

void Param_Parameter::add() {
  ThrowIfHostError(in_data_->inter.add_param(in_data_->effect_ref, -1, &definition_));
}

Param_Popup_Menu::Param_Popup_Menu(PF_InData* in_data, const char* name, A_long disk_id)
    : Param_Parameter(in_data, PF_Param_POPUP, name, disk_id), items_{} {}

void Param_Popup_Menu::SetItems(const char* items) {
  in_data_->utils->ansi.strcpy(items_, items);
  definition_.u.pd.u.namesptr = items_;
  // Counted in the given text, not in the copy: a host whose strcpy fails
  // loses the item names but the popup keeps its number of choices, so its
  // default never lies beyond them.
  A_short choices = 1;
  for (const char* c = items; *c != '\0'; ++c) {
    if (*c == '|') ++choices;
  }
  definition_.u.pd.num_choices = choices;
  definition_.u.pd.dephault = 1;
}

Param_Float_Slider::Param_Float_Slider(PF_InData* in_data, const char* name, A_long disk_id)
    : Param_Parameter(in_data, PF_Param_FLOAT_SLIDER, name, disk_id) {
  definition_.u.fs_d.precision = 2;
}

void Param_Float_Slider::SetValidRange(PF_FpShort min, PF_FpShort max) {
  definition_.u.fs_d.valid_min = min;
  definition_.u.fs_d.valid_max = max;
}

void Param_Float_Slider::SetSliderRange(PF_FpShort min, PF_FpShort max) {
  definition_.u.fs_d.slider_min = min;
  definition_.u.fs_d.slider_max = max;
}

void Param_Float_Slider::SetDefault(PF_FpShort value) {
  definition_.u.fs_d.dephault = value;
  definition_.u.fs_d.value = static_cast<PF_FpLong>(value);
}

Param_Color::Param_Color(PF_InData* in_data, const char* name, A_long disk_id)
    : Param_Parameter(in_data, PF_Param_COLOR, name, disk_id) {}

void Param_Color::SetDefault(PF_Pixel pixel) {
  definition_.u.cd.value = pixel;
  definition_.u.cd.dephault = pixel;
}

}  // namespace DAE
