// The effect's controls: indices, disk IDs, the preset table, value readers
// and the handlers that keep "Preset" and "Aspect Ratio" in step.
#pragma once

#include "hostapi/ae_effect.h"

constexpr A_long PARAM_INPUT = 0;
constexpr A_long PARAM_RENDER = 2;
constexpr A_long PARAM_PRESET = 3;
constexpr A_long PARAM_ASPECT_RATIO = 4;
constexpr A_long PARAM_COLOR = 5;
constexpr A_long PARAM_NUM_PARAMS = 6;

// Disk IDs are stored in projects and never change.
constexpr A_long DISK_ID_RENDER = 1;
constexpr A_long DISK_ID_PRESET = 2;
constexpr A_long DISK_ID_ASPECT_RATIO = 3;
constexpr A_long DISK_ID_COLOR = 4;

constexpr A_long RENDER_ON_TRANSPARENT = 1;
constexpr A_long RENDER_ON_IMAGE = 2;

constexpr A_long PRESET_FIRST = 1;
constexpr A_long PRESET_LAST_RATIO = 6;
constexpr A_long PRESET_SEPARATOR = 7;
constexpr A_long PRESET_CUSTOM = 8;

struct PresetEntry {
  const char* text;
  float ratio;  // width over height; 0 for the separator and "Custom"
};
// Items 1 to 8 of the "Preset" popup, at index item - 1.
extern const PresetEntry kPresets[PRESET_CUSTOM];

// The ratio of a preset item; 0 for the separator, "Custom" and any other number.
float RatioOfPreset(A_long item);
// The first preset whose ratio equals `ratio` exactly in single precision, else "Custom".
A_long PresetOfRatio(float ratio);

// Value readers over the host's parameter array.
float ReadFloatParam(PF_ParamDef* params[], A_long index);
A_long ReadPopupParam(PF_ParamDef* params[], A_long index);
PF_Pixel ReadColorParam(PF_ParamDef* params[], A_long index);

// Nearest single-precision value of a double, as the hardware rounds it;
// huge values become infinities instead of undefined behaviour.
float NarrowToFloat(double value);

// Adds the four controls after the header row. `header_added` says whether
// the header was accepted; only then is the custom UI registered.
void SetupEffectParams(PF_InData* in_data, PF_OutData* out_data, bool header_added);
void HandleUserChangedParam(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                            PF_LayerDef* output, const PF_UserChangedParamExtra* extra);
PF_Err UpdateParamsUI(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[]);
