// The effect's controls: one table holding each whole control and its popup
// items; the value readers; and the handlers that keep "Preset" and
// "Aspect Ratio" in step.
#pragma once

#include <array>
#include <cstddef>
#include <iterator>
#include <span>

#include "hostapi/ae_constants.h"
#include "hostapi/ae_effect.h"
#include "paramindex/param_index.h"

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
static_assert(kRenderItemString.end()[-2] != '\0' && kPresetItemString.end()[-2] != '\0',
              "each item string fills its array up to its one terminator");

enum class ControlType { kPopup, kFloatSlider, kColor };

// One control after the header row, whole: where the host keeps it, the ID
// projects store it under (never changes), the name the user sees, its kind
// and the values and flags its definition carries. Only the fields of its
// kind are read; the first four have no default, so a row without them does
// not compile.
struct ControlSpec {
  A_long index;
  A_long disk_id;
  const char* name;
  ControlType type;
  const char* items = nullptr;  // popup: the item string
  A_short default_item = 0;     // popup: 1-based
  float valid_min = 0.0f;       // slider
  float valid_max = 0.0f;
  float slider_min = 0.0f;
  float slider_max = 0.0f;
  float default_value = 0.0f;
  A_short precision = 0;
  PF_Pixel default_color{};  // colour
  PF_ParamFlags flags = 0;   // beyond the flags every control carries
  PF_ParamUIFlags ui_flags = 0;
};

inline constexpr ControlSpec kControls[] = {
    {.index = PARAM_RENDER,
     .disk_id = 1,
     .name = "Render",
     .type = ControlType::kPopup,
     .items = kRenderItemString.data(),
     .default_item = RENDER_ON_IMAGE},
    {.index = PARAM_PRESET,
     .disk_id = 2,
     .name = "Preset",
     .type = ControlType::kPopup,
     .items = kPresetItemString.data(),
     .default_item = PRESET_FIRST,
     .flags = PF_ParamFlag_SUPERVISE | PF_ParamFlag_CANNOT_TIME_VARY,
     .ui_flags = PF_PUI_STD_CONTROL_ONLY},
    {.index = PARAM_ASPECT_RATIO,
     .disk_id = 3,
     .name = "Aspect Ratio",
     .type = ControlType::kFloatSlider,
     .valid_min = 0.0f,
     .valid_max = 12.0f,
     .slider_min = 0.0f,
     .slider_max = 3.0f,
     .default_value = kPresetItems[PRESET_FIRST - 1].ratio,
     .precision = 3,
     .flags = PF_ParamFlag_SUPERVISE},
    {.index = PARAM_COLOR,
     .disk_id = 4,
     .name = "Color",
     .type = ControlType::kColor,
     .default_color = {.alpha = 255, .red = 0, .green = 0, .blue = 0}},
};

// The rows are added in order, so each must sit at the index the effect reads
// it from, ending with the last parameter; disk IDs never repeat, the header
// row's included.
constexpr bool InHostOrder(std::span<const ControlSpec> rows) {
  for (std::size_t at = 0; at < rows.size(); ++at) {
    if (rows[at].index != PARAM_RENDER + static_cast<A_long>(at)) return false;
    if (rows[at].disk_id == HEADER_DISK_ID) return false;
    for (std::size_t other = 0; other < at; ++other) {
      if (rows[other].disk_id == rows[at].disk_id) return false;
    }
  }
  return rows.size() == static_cast<std::size_t>(PARAM_NUM_PARAMS - PARAM_RENDER);
}
static_assert(InHostOrder(kControls), "controls follow the header in index order, disk IDs unique");

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

// Adds the controls of the table after the header row. `header_added` says whether
// the header was accepted; only then is the custom UI registered.
void SetupEffectParams(PF_InData* in_data, PF_OutData* out_data, bool header_added);
void HandleUserChangedParam(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                            PF_LayerDef* output, const PF_UserChangedParamExtra* extra);
PF_Err UpdateParamsUI(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[]);
