// The options as edits of the module's own controls: "--preset" chooses an
// item of the "Preset" popup, "--ratio" types into the "Aspect Ratio" slider,
// "--render" chooses an item of the "Render" popup, "--color" sets "Color".
// Names, items and ranges all come from the module's parameter setup.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/cinebar/layer.h"
#include "tools/cinebar/options.h"
#include "tools/cinebar/session.h"

namespace cinebar_tool {

extern const char kPresetControl[];
extern const char kRatioControl[];
extern const char kRenderControl[];
extern const char kColorControl[];

// The ratio a preset item names ("16:9 (Widescreen TV)" -> 16/9,
// "2.35:1 (Anamorphic)" -> 2.35); nullopt for items that name none.
std::optional<double> RatioOfItem(const std::string& item);
// The short form of an item: the text before " (" ("2.35:1").
std::string ShortForm(const std::string& item);
// "On Transparent" -> "on-transparent".
std::string Slug(const std::string& text);

// The 1-based popup items the text names: the one item of its full text, its
// slug or its short form (or that without ":1"); else, for presets
// (`ratio_precision` >= 0), the items of its ratio (1.78, 16/9, 16:9) to the
// decimals typed or the slider's; else every item whose text holds it
// ("anamorphic", "16"). More than one is ambiguous.
std::vector<A_long> FindItem(const Control& popup, const std::string& text, int ratio_precision = -1);

// Throws ToolError(kExitUsage) for a value the module's controls do not take.
std::vector<Edit> ResolveEdits(const Session& session, const std::vector<RequestedEdit>& requested);

}  // namespace cinebar_tool
