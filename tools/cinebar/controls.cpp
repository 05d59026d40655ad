#include "tools/cinebar/controls.h"

#include <cctype>
#include <cmath>

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

std::optional<A_long> FindItem(const Control& popup, const std::string& text, int ratio_precision) {
  const std::string wanted = Lower(text);
  const auto number = ParseNumber(text);
  std::vector<A_long> parts;  // items that hold the text
  for (std::size_t i = 0; i < popup.items.size(); ++i) {
    if (popup.is_separator(i)) continue;
    const std::string& item = popup.items[i];
    const std::string form = Lower(ShortForm(item));
    bool match = wanted == Lower(item) || wanted == Slug(item) || wanted == form;
    if (!match && form.size() > 2 && form.compare(form.size() - 2, 2, ":1") == 0)
      match = wanted == form.substr(0, form.size() - 2);
    if (!match && number && ratio_precision >= 0) {
      const auto ratio = RatioOfItem(item);
      match = ratio && std::fabs(*ratio - *number) < 0.5 * std::pow(10.0, -ratio_precision);
    }
    if (match) return static_cast<A_long>(i + 1);
    if (!number && !wanted.empty() && Lower(item).find(wanted) != std::string::npos)
      parts.push_back(static_cast<A_long>(i + 1));
  }
  if (parts.size() == 1) return parts[0];
  return std::nullopt;
}

std::vector<Edit> ResolveEdits(const Session& session, const std::vector<RequestedEdit>& requested) {
  std::vector<Edit> edits;
  for (const RequestedEdit& request : requested) {
    Edit edit;
    switch (request.kind) {
      case RequestedEdit::kPreset: {
        const Control& preset = session.control(kPresetControl, PF_Param_POPUP);
        const Control& ratio = session.control(kRatioControl, PF_Param_FLOAT_SLIDER);
        const auto item = FindItem(preset, request.text, ratio.def.u.fs_d.precision);
        if (!item || !RatioOfItem(preset.items[static_cast<std::size_t>(*item - 1)])) {
          throw ToolError(kExitUsage,
                          "unknown preset \"" + request.text + "\" (" + ItemList(preset, true) + ")");
        }
        edit.index = preset.index;
        edit.type = PF_Param_POPUP;
        edit.popup = *item;
        break;
      }
      case RequestedEdit::kRatio: {
        const Control& ratio = session.control(kRatioControl, PF_Param_FLOAT_SLIDER);
        const PF_FloatSliderDef& fs = ratio.def.u.fs_d;
        const std::optional<double> value = request.number;
        if (!value || *value < fs.valid_min || *value > fs.valid_max) {
          char range[64];
          std::snprintf(range, sizeof range, "%g..%g", static_cast<double>(fs.valid_min),
                        static_cast<double>(fs.valid_max));
          throw ToolError(kExitUsage, "--ratio " + request.text + " is outside the " + ratio.name() +
                                          " control's range " + range);
        }
        edit.index = ratio.index;
        edit.type = PF_Param_FLOAT_SLIDER;
        edit.number = *value;
        break;
      }
      case RequestedEdit::kRender: {
        const Control& render = session.control(kRenderControl, PF_Param_POPUP);
        const auto item = FindItem(render, request.text);
        if (!item) {
          throw ToolError(kExitUsage,
                          "unknown render mode \"" + request.text + "\" (" + ItemList(render, false) + ")");
        }
        edit.index = render.index;
        edit.type = PF_Param_POPUP;
        edit.popup = *item;
        break;
      }
      case RequestedEdit::kColor: {
        edit.index = session.control(kColorControl, PF_Param_COLOR).index;
        edit.type = PF_Param_COLOR;
        edit.color = request.color;
        break;
      }
    }
    edits.push_back(edit);
  }
  return edits;
}

}  // namespace cinebar_tool
