#include "tools/cinebar/controls.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "hostapi/ae_constants.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {

const char kPresetControl[] = "Preset";
const char kRatioControl[] = "Aspect Ratio";
const char kRenderControl[] = "Render";
const char kColorControl[] = "Color";

namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string ItemList(const Control& popup, bool short_forms) {
  std::string list;
  for (std::size_t i = 0; i < popup.items.size(); ++i) {
    if (popup.is_separator(i)) continue;
    if (short_forms && !RatioOfItem(popup.items[i])) continue;
    if (!list.empty()) list += ", ";
    list += short_forms ? ShortForm(popup.items[i]) : Slug(popup.items[i]);
  }
  return list;
}

}  // namespace

std::string ShortForm(const std::string& item) {
  const std::size_t paren = item.find(" (");
  return paren == std::string::npos ? item : item.substr(0, paren);
}

std::string Slug(const std::string& text) {
  std::string slug;
  for (char c : Lower(text)) slug += c == ' ' ? '-' : c;
  return slug;
}

std::optional<double> RatioOfItem(const std::string& item) {
  const std::string form = ShortForm(item);
  const std::size_t colon = form.find(':');
  if (colon == std::string::npos) return std::nullopt;
  const auto width = ParseNumber(form.substr(0, colon));
  const auto height = ParseNumber(form.substr(colon + 1));
  if (!width || !height || *width <= 0 || *height <= 0) return std::nullopt;
  return *width / *height;
}

namespace {

// How far a typed ratio may be from an item's: exact for W:H and W/H, else to
// the typed decimals ("1.78" is 16:9) or the slider's, whichever is coarser.
double Tolerance(const std::string& text, int ratio_precision) {
  if (text.find_first_of(":/") != std::string::npos) return 1e-9;
  const std::size_t point = text.find('.');
  const int decimals = point == std::string::npos ? 0 : static_cast<int>(text.size() - point - 1);
  return 0.5 * std::pow(10.0, -std::min(decimals, ratio_precision));
}

bool NamesItem(const std::string& wanted, const std::string& item) {
  const std::string form = Lower(ShortForm(item));
  if (wanted == Lower(item) || wanted == Slug(item) || wanted == form) return true;
  return form.size() > 2 && form.compare(form.size() - 2, 2, ":1") == 0 &&
         wanted == form.substr(0, form.size() - 2);
}

}  // namespace

std::vector<A_long> FindItem(const Control& popup, const std::string& text, int ratio_precision) {
  const std::string wanted = Lower(text);
  const auto number = ratio_precision >= 0 ? ParseRatio(text) : std::nullopt;
  std::vector<A_long> ratios, parts;  // items of the typed ratio; items that hold the text
  for (std::size_t i = 0; i < popup.items.size(); ++i) {
    if (popup.is_separator(i)) continue;
    const std::string& item = popup.items[i];
    const auto index = static_cast<A_long>(i + 1);
    if (NamesItem(wanted, item)) return {index};
    const auto ratio = number ? RatioOfItem(item) : std::nullopt;
    if (ratio && std::fabs(*ratio - *number) < Tolerance(text, ratio_precision)) ratios.push_back(index);
    if (!wanted.empty() && Lower(item).find(wanted) != std::string::npos) parts.push_back(index);
  }
  return ratios.empty() ? parts : ratios;
}

namespace {

std::string ItemNames(const Control& popup, const std::vector<A_long>& items) {
  std::string names;
  for (const A_long item : items)
    names += (names.empty() ? "" : ", ") + popup.items[static_cast<std::size_t>(item - 1)];
  return names;
}

Edit PresetEdit(const Session& session, const std::string& text) {
  const Control& preset = session.control(kPresetControl, PF_Param_POPUP);
  const Control& ratio = session.control(kRatioControl, PF_Param_FLOAT_SLIDER);
  std::vector<A_long> items = FindItem(preset, text, ratio.def.u.fs_d.precision);
  items.erase(
      std::remove_if(items.begin(), items.end(),
                     [&](A_long i) { return !RatioOfItem(preset.items[static_cast<std::size_t>(i - 1)]); }),
      items.end());
  if (items.size() > 1)
    throw ToolError(kExitUsage, "ambiguous preset \"" + text + "\": " + ItemNames(preset, items));
  if (items.empty())
    throw ToolError(kExitUsage, "unknown preset \"" + text + "\" (" + ItemList(preset, true) + ")");
  return Edit{preset.index, PF_Param_POPUP, items[0], 0.0, {}};
}

Edit RatioEdit(const Session& session, const RequestedEdit& request) {
  const Control& ratio = session.control(kRatioControl, PF_Param_FLOAT_SLIDER);
  const PF_FloatSliderDef& fs = ratio.def.u.fs_d;
  if (request.number < fs.valid_min || request.number > fs.valid_max) {
    char range[64];
    std::snprintf(range, sizeof range, "%g..%g", static_cast<double>(fs.valid_min),
                  static_cast<double>(fs.valid_max));
    throw ToolError(kExitUsage, "--ratio " + request.text + " is outside the " + ratio.name() +
                                    " control's range " + range);
  }
  return Edit{ratio.index, PF_Param_FLOAT_SLIDER, 0, request.number, {}};
}

Edit RenderEdit(const Session& session, const std::string& text) {
  const Control& render = session.control(kRenderControl, PF_Param_POPUP);
  const std::vector<A_long> items = FindItem(render, text);
  if (items.size() > 1)
    throw ToolError(kExitUsage, "ambiguous render mode \"" + text + "\": " + ItemNames(render, items));
  if (items.empty())
    throw ToolError(kExitUsage, "unknown render mode \"" + text + "\" (" + ItemList(render, false) + ")");
  return Edit{render.index, PF_Param_POPUP, items[0], 0.0, {}};
}

}  // namespace

std::vector<Edit> ResolveEdits(const Session& session, const std::vector<RequestedEdit>& requested) {
  std::vector<Edit> edits;
  for (const RequestedEdit& request : requested) {
    switch (request.kind) {
      case RequestedEdit::kPreset:
        edits.push_back(PresetEdit(session, request.text));
        break;
      case RequestedEdit::kRatio:
        edits.push_back(RatioEdit(session, request));
        break;
      case RequestedEdit::kRender:
        edits.push_back(RenderEdit(session, request.text));
        break;
      case RequestedEdit::kColor:
        edits.push_back(Edit{session.control(kColorControl, PF_Param_COLOR).index, PF_Param_COLOR, 0, 0.0,
                             request.color});
        break;
    }
  }
  return edits;
}

}  // namespace cinebar_tool
