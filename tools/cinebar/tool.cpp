#include "tools/cinebar/tool.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <numeric>
#include <set>
#include <thread>

#include "hostapi/ae_constants.h"
#include "tools/cinebar/chart.h"
#include "tools/cinebar/controls.h"
#include "tools/cinebar/frame.h"
#include "tools/cinebar/layer.h"
#include "tools/cinebar/options.h"
#include "tools/cinebar/pipeline.h"
#include "tools/cinebar/plan.h"
#include "tools/cinebar/property_list.h"
#include "tools/cinebar/render_command.h"
#include "tools/cinebar/session.h"
#include "tools/cinebar/temporaries.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

constexpr int kChartWidth = 1920, kChartHeight = 1080;
constexpr int kThumbnailFactor = 4, kSheetColumns = 4;

std::string ModulePath(const Options& options, const Console& console) {
  return ChooseModulePath(options.module, console.module_env, console.executable_dir);
}

std::string FileSlug(const std::string& text) {
  std::string slug = Slug(text);
  for (char& c : slug) {
    if (c == ':') c = 'x';
  }
  return slug;
}

int Demo(const Options& options, Console& console) {
  if (options.out_dir.empty() && console.executable_dir.empty())
    throw ToolError(kExitUsage, "demo needs --out DIR here (the cinebar program's folder is unknown)");
  const std::string dir = options.out_dir.empty() ? console.executable_dir + "/previews" : options.out_dir;
  Session session(ModulePath(options, console));
  const Control& preset = session.control(kPresetControl, PF_Param_POPUP);
  const Control& render = session.control(kRenderControl, PF_Param_POPUP);
  const ModuleDescription about = Describe(WalkPropertyList(ReadPropertyList(session.module())));
  struct Preview {
    std::size_t preset, render;
    std::string path;
  };
  std::vector<Preview> previews;
  for (std::size_t p = 0; p < preset.items.size(); ++p) {
    if (preset.is_separator(p) || !RatioOfItem(preset.items[p])) continue;
    for (std::size_t r = 0; r < render.items.size(); ++r) {
      if (render.is_separator(r)) continue;
      previews.push_back(Preview{p, r,
                                 dir + "/preset-" + FileSlug(ShortForm(preset.items[p])) + "-" +
                                     FileSlug(render.items[r]) + ".png"});
    }
  }
  std::vector<FramePair> files{{"", dir + "/test-chart.png"}, {"", dir + "/contact-sheet.png"}};
  for (const Preview& p : previews) files.push_back(FramePair{"", p.path});
  CheckOutputs(files, options.overwrite);
  std::vector<std::string> paths;
  for (const FramePair& f : files) paths.push_back(f.out);
  const OutputFolders folders(paths);

  Temporaries temps;
  const WriteSettings settings;
  const auto write = [&](const std::string& path, const Frame& frame) {
    temps.Commit(temps.Write(path, frame, settings), path,
                 options.overwrite ? Replace::kAtomically : Replace::kNever);
  };
  const Frame chart = MakeTestChart(kChartWidth, kChartHeight);
  write(files[0].out, chart);
  std::vector<Tile> tiles;
  Frame image;
  for (const Preview& p : previews) {
    Layer layer(session);
    layer.Change(Edit{render.index, PF_Param_POPUP, static_cast<A_long>(p.render + 1), 0.0, {}});
    layer.Change(Edit{preset.index, PF_Param_POPUP, static_cast<A_long>(p.preset + 1), 0.0, {}});
    layer.Render(chart, image, nullptr);
    write(p.path, image);
    tiles.push_back(
        Tile{Shrink(image, kThumbnailFactor), preset.items[p.preset] + " - " + render.items[p.render]});
  }
  const std::string title = about.name.value_or("?") + " " +
                            (about.version ? VersionText(*about.version) : "") + " - presets on a " +
                            std::to_string(kChartWidth) + "x" + std::to_string(kChartHeight) + " test chart";
  write(files[1].out, MakeContactSheet(tiles, kSheetColumns, title));
  console.out << "wrote the test chart, " << previews.size() << " previews and the contact sheet to " << dir
              << "\n";
  return kExitOk;
}

std::string Hex(PF_Pixel c) {
  char text[16];
  std::snprintf(text, sizeof text, "#%02X%02X%02X%02X", c.red, c.green, c.blue, c.alpha);
  return text;
}

std::string Number(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

void DescribeControl(const Control& control, std::ostream& out) {
  const PF_ParamDef& def = control.def;
  out << "  " << control.index << "  ";
  const std::string name = control.name().empty() ? "(no name)" : "\"" + control.name() + "\"";
  switch (def.param_type) {
    case PF_Param_POPUP: {
      out << name << " popup: ";
      for (std::size_t i = 0; i < control.items.size(); ++i)
        out << (i ? " | " : "") << (control.is_separator(i) ? "----" : control.items[i]);
      const std::size_t d = static_cast<std::size_t>(def.u.pd.dephault);
      out << "; default " << (d >= 1 && d <= control.items.size() ? control.items[d - 1] : "?");
      break;
    }
    case PF_Param_FLOAT_SLIDER: {
      const PF_FloatSliderDef& fs = def.u.fs_d;
      const int decimals = fs.precision;
      out << name << " number: valid " << Number(fs.valid_min, decimals) << " to "
          << Number(fs.valid_max, decimals) << ", slider " << Number(fs.slider_min, decimals) << " to "
          << Number(fs.slider_max, decimals) << ", default " << Number(fs.dephault, decimals) << " ("
          << Number(fs.dephault, 9) << "), " << decimals << " decimals";
      break;
    }
    case PF_Param_COLOR:
      out << name << " colour: default " << Hex(def.u.cd.dephault) << " (#RRGGBBAA)";
      break;
    case PF_Param_NO_DATA:
      out << name << " header row"
          << ((def.ui_flags & PF_PUI_TOPIC) ? " (a topic: drawn without the branding library)"
                                            : " (custom UI)");
      break;
    default:
      out << name << " kind " << def.param_type;
  }
  if ((def.flags & PF_ParamFlag_CANNOT_TIME_VARY) != 0) out << "; cannot be animated";
  out << "\n";
}

int Info(const Options& options, Console& console) {
  Session session(ModulePath(options, console));
  const ModuleDescription d = Describe(WalkPropertyList(ReadPropertyList(session.module())));
  std::ostream& out = console.out;
  out << "Module:      " << session.module().path() << "\n";
  out << "Name:        " << d.name.value_or("(none)") << "\n";
  out << "Category:    " << d.category.value_or("(none)") << "\n";
  out << "Match name:  " << d.match_name.value_or("(none)") << "\n";
  out << "Version:     " << (d.version ? VersionText(*d.version) : "(none)") << "\n";
  out << "Out flags:   " << (d.out_flags ? OutFlagsText(*d.out_flags) : "(none)") << "\n";
  out << "Controls (index, name, kind, values):\n";
  for (const Control& control : session.controls()) DescribeControl(control, out);
  return kExitOk;
}

// The module's own preset and render-mode names and the defaults, for --help.
void Presets(const Options& options, Console& console) {
  try {
    Session session(ModulePath(options, console));
    const Control& preset = session.control(kPresetControl, PF_Param_POPUP);
    const Control& render = session.control(kRenderControl, PF_Param_POPUP);
    const auto dephault = [](const Control& c) {
      const auto d = static_cast<std::size_t>(c.def.u.pd.dephault);
      return d >= 1 && d <= c.items.size() ? c.items[d - 1] : std::string("?");
    };
    console.out
        << "\nPresets (--preset takes the name, any unambiguous part of it, the short form or the ratio):\n";
    for (std::size_t i = 0; i < preset.items.size(); ++i) {
      if (!preset.is_separator(i) && RatioOfItem(preset.items[i]))
        console.out << "  " << preset.items[i] << "\n";
    }
    console.out << "Render modes:";
    for (std::size_t i = 0; i < render.items.size(); ++i) {
      if (!render.is_separator(i)) console.out << " " << Slug(render.items[i]);
    }
    console.out << "\nDefaults: preset " << dephault(preset) << ", render " << dephault(render) << ", color "
                << Hex(session.control(kColorControl, PF_Param_COLOR).def.u.cd.dephault) << ", jobs "
                << std::max(1u, std::thread::hardware_concurrency())
                << " (this machine's threads), compression " << kDefaultCompression << "\n";
  } catch (const std::exception& e) {
    console.out << "(presets unknown: " << e.what() << ")\n";
  }
}

}  // namespace

int RunTool(const std::vector<std::string>& args, Console& console) {
  std::string frame;
  try {
    const Options options = ParseCommandLine(args);
    if (options.command == "help" || options.command == "version") {
      console.out << options.text << "\n";
      if (options.command == "help" && (options.help_topic.empty() || options.help_topic == "render"))
        Presets(options, console);
      return kExitOk;
    }
    if (options.command == "render") return RenderCommand(options, ModulePath(options, console), console);
    if (options.command == "demo") return Demo(options, console);
    return Info(options, console);
  } catch (const ToolError& e) {
    if (console.err_is_terminal) console.err << "\r\x1b[K";
    console.err << "cinebar: " << e.what() << (e.code() == kExitUsage ? " (see cinebar --help)" : "") << "\n";
    return e.code();
  } catch (const std::bad_alloc&) {
    console.err << "cinebar: out of memory\n";
    return kExitMemory;
  } catch (const std::exception& e) {
    console.err << "cinebar: " << e.what() << "\n";
    return kExitModule;
  }
}

}  // namespace cinebar_tool
