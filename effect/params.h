// The effect's controls: one table of indices, disk IDs, names and popup
// items; the value readers; and the handlers that keep "Preset" and
// "Aspect Ratio" in step.
#pragma once

#include <array>
#include <cstddef>
#include <iterator>

#include "hostapi/ae_effect.h"

// One control after the header row: where the host keeps it, the ID projects
// store it under (never changes) and the name the user sees.
struct ControlSpec {
  A_long index;
  A_long disk_id;
  const char* name;
};

inline constexpr ControlSpec kRenderControl{2, 1, "Render"};
inline constexpr ControlSpec kPresetControl{3, 2, "Preset"};
inline constexpr ControlSpec kAspectRatioControl{4, 3, "Aspect Ratio"};
inline constexpr ControlSpec kColorControl{5, 4, "Color"};

constexpr A_long PARAM_INPUT = 0;
constexpr A_long PARAM_RENDER = kRenderControl.index;
constexpr A_long PARAM_PRESET = kPresetControl.index;
constexpr A_long PARAM_ASPECT_RATIO = kAspectRatioControl.index;
constexpr A_long PARAM_COLOR = kColorControl.index;
constexpr A_long PARAM_NUM_PARAMS = PARAM_COLOR + 1;  // the input layer included

// One popup item, 1-based as the host numbers them; for "Preset" also the
// display ratio it stands for (width over height, 0 where it is none).
struct PopupItem {
  const char* text;
  float ratio = 0.0f;
};

inline constexpr PopupItem kRenderItems[] = {{"On Transparent"}, {"On Image"}};
inline constexpr PopupItem kPresetItems[] = {
    {"4:3 (Academy)", 4.0f / 3.0f},
    {"1.66:1 (Super 16)", 1.66f},
    {"16:9 (Widescreen TV)", 16.0f / 9.0f},
    {"1.85:1 (Theatrical)", 1.85f},
    {"2.35:1 (Anamorphic)", 2.35f},
    {"2.76:1 (Ultra)", 2.76f},
    {"(-"},  // the host's separator line
    {"Custom"},
};

constexpr A_long RENDER_ON_TRANSPARENT = 1;
constexpr A_long RENDER_ON_IMAGE = 2;
constexpr A_long PRESET_FIRST = 1;
constexpr A_long PRESET_LAST_RATIO = 6;
constexpr A_long PRESET_SEPARATOR = 7;
constexpr A_long PRESET_CUSTOM = 8;
static_assert(std::size(kRenderItems) == RENDER_ON_IMAGE && std::size(kPresetItems) == PRESET_CUSTOM &&
                  PRESET_SEPARATOR == PRESET_LAST_RATIO + 1 && PRESET_CUSTOM == PRESET_SEPARATOR + 1,
              "item numbers match the tables");
static_assert(kPresetItems[PRESET_LAST_RATIO - 1].ratio > 0.0f &&
                  kPresetItems[PRESET_SEPARATOR - 1].ratio == 0.0f &&
                  kPresetItems[PRESET_CUSTOM - 1].ratio == 0.0f,
              "ratios end at the separator");

namespace popup_items {

template <std::size_t N>
constexpr std::size_t JoinedSize(const PopupItem (&items)[N]) {
  std::size_t size = 0;
  for (const PopupItem& item : items) {
    for (const char* c = item.text; *c != '\0'; ++c, ++size) {
      if (*c == '|') throw "an item text may not hold the separator";  // not a constant: fails the build
    }
    ++size;  // the separator after it, or the terminator after the last
  }
  return size;
}

// The host's item string: the texts joined by '|', built at compile time.
template <const auto& Items>
constexpr auto Join() {
  std::array<char, JoinedSize(Items)> joined{};
  std::size_t at = 0;
  for (const PopupItem& item : Items) {
    if (at != 0) joined[at++] = '|';
    for (const char* c = item.text; *c != '\0'; ++c) joined[at++] = *c;
  }
  return joined;
}

}  // namespace popup_items

inline constexpr auto kRenderItemString = popup_items::Join<kRenderItems>();
inline constexpr auto kPresetItemString = popup_items::Join<kPresetItems>();

// The ratio of a preset item; 0 for the separator, "Custom" and any other number.
float RatioOfPreset(A_long item);
// The first preset whose ratio equals `ratio` exactly in single precision, else "Custom".
A_long PresetOfRatio(float ratio);

// Value readers over the host's parameter array.
float ReadFloatParam(PF_ParamDef* params[], A_long index);
A_long ReadPopupParam(PF_ParamDef* params[], A_long index);
PF_Pixel ReadColorParam(PF_ParamDef* params[], A_long index);
// A colour for 16-bit worlds: every channel ×128, so 255 becomes 32640,
// deliberately short of the host's 32768.
PF_Pixel16 Pixel8To16(PF_Pixel pixel);

// Nearest single-precision value of a double, as the hardware rounds it;
// huge values become infinities instead of undefined behaviour.
float NarrowToFloat(double value);

// Adds the four controls after the header row. `header_added` says whether
// the header was accepted; only then is the custom UI registered.
void SetupEffectParams(PF_InData* in_data, PF_OutData* out_data, bool header_added);
void HandleUserChangedParam(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                            PF_LayerDef* output, const PF_UserChangedParamExtra* extra);
PF_Err UpdateParamsUI(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[]);
