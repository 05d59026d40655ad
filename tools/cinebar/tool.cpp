#include "tools/cinebar/tool.h"

#include <cinebar_identity.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <set>
#include <thread>

#include "hostapi/ae_constants.h"
#include "tools/cinebar/chart.h"
#include "tools/cinebar/controls.h"
#include "tools/cinebar/frame_io.h"
#include "tools/cinebar/frames.h"
#include "tools/cinebar/options.h"
#include "tools/cinebar/property_list.h"
#include "tools/cinebar/sequence.h"
#include "tools/cinebar/session.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

constexpr int kChartWidth = 1920, kChartHeight = 1080;
constexpr int kThumbnailFactor = 4, kSheetColumns = 4;

std::string ModulePath(const Options& options, const Console& console) {
  return ChooseModulePath(options.module, console.module_env, console.executable_dir);
}

void Progress(Console& console, std::size_t done, std::size_t total, const std::string& name) {
  if (!console.err_is_terminal || total < 2) return;
  constexpr std::size_t kWidth = 30;
  const std::size_t filled = done * kWidth / total;
  console.err << "\r[" << std::string(filled, '#') << std::string(kWidth - filled, '.') << "] " << done << "/"
              << total << " " << name << "\x1b[K";
  if (done == total) console.err << "\n";
  console.err.flush();
}

// The first frame's pHYs as a pixel aspect (height per pixel over width per pixel).
PF_RationalScale PixelAspectOf(const PngChunks& chunks) {
  if (!chunks.phys_x || *chunks.phys_x == 0 || *chunks.phys_y == 0) return {1, 1};
  std::uint64_t num = *chunks.phys_y, den = *chunks.phys_x;
  while (num > 0x7FFFFFFF || den > 0x7FFFFFFF) {
    num = (num + 1) / 2;
    den = (den + 1) / 2;
  }
  return {static_cast<A_long>(num), static_cast<A_u_long>(den)};
}

int Render(const Options& options, Console& console) {
  const std::vector<FramePair> frames = PlanFrames(options.operands[0], options.operands[1]);
  CheckOutputs(frames, options.overwrite);
  std::unique_ptr<cinebar_simhost::World> first;
  const FrameForm form = ReadFrame(frames[0].in, first);
  const PF_RationalScale aspect =
      options.pixel_aspect_given ? options.pixel_aspect : PixelAspectOf(form.chunks);
  Session session(ModulePath(options, console), aspect, options.downsample_x, options.downsample_y);
  const std::vector<Edit> edits = ResolveEdits(session, options.edits);
  Layer layer(session, *first);
  for (const Edit& edit : edits) layer.Change(edit);
  std::set<std::string> folders;
  for (const FramePair& f : frames) folders.insert(FolderOf(f.out));
  for (const std::string& folder : folders) MakeFolders(folder);
  SequenceSettings settings;
  settings.jobs =
      options.jobs > 0 ? options.jobs : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  settings.write.level = options.compression;
  settings.first = std::move(first);
  settings.first_form = form;
  RenderSequence(frames, session, layer, settings,
                 [&](std::size_t done) { Progress(console, done, frames.size(), frames[done - 1].out); });
  console.out << "rendered " << frames.size() << (frames.size() == 1 ? " frame" : " frames") << " to "
              << options.operands[1] << "\n";
  return kExitOk;
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

  MakeFolders(dir);
  const Image chart = MakeTestChart(kChartWidth, kChartHeight);
  WritePng(dir + "/test-chart.png", chart);
  std::vector<Tile> tiles;
  std::size_t written = 1;
  for (std::size_t p = 0; p < preset.items.size(); ++p) {
    if (preset.is_separator(p) || !RatioOfItem(preset.items[p])) continue;
    for (std::size_t r = 0; r < render.items.size(); ++r) {
      if (render.is_separator(r)) continue;
      Layer layer(session, chart);
      layer.Change(Edit{render.index, PF_Param_POPUP, static_cast<A_long>(r + 1), 0.0, {}});
      layer.Change(Edit{preset.index, PF_Param_POPUP, static_cast<A_long>(p + 1), 0.0, {}});
      const Image image = layer.Render(chart);
      const std::string name =
          "preset-" + FileSlug(ShortForm(preset.items[p])) + "-" + FileSlug(render.items[r]);
      WritePng(dir + "/" + name + ".png", image);
      ++written;
      tiles.push_back(Tile{Shrink(image, kThumbnailFactor), preset.items[p] + " - " + render.items[r]});
    }
  }
  const std::string title = about.name.value_or("?") + " " +
                            (about.version ? VersionText(*about.version) : "") + " - presets on a " +
                            std::to_string(kChartWidth) + "x" + std::to_string(kChartHeight) + " test chart";
  WritePng(dir + "/contact-sheet.png", MakeContactSheet(tiles, kSheetColumns, title));
  console.out << "wrote the test chart, " << written - 1 << " previews and the contact sheet to " << dir
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

// The module's own preset and render-mode names, for --help.
void Presets(const Options& options, Console& console) {
  try {
    Session session(ModulePath(options, console));
    const Control& preset = session.control(kPresetControl, PF_Param_POPUP);
    const Control& render = session.control(kRenderControl, PF_Param_POPUP);
    console.out << "  Presets (--preset takes the full name, the short form or the ratio):\n";
    for (std::size_t i = 0; i < preset.items.size(); ++i) {
      if (!preset.is_separator(i) && RatioOfItem(preset.items[i]))
        console.out << "    " << preset.items[i] << "\n";
    }
    console.out << "  Render modes:";
    for (std::size_t i = 0; i < render.items.size(); ++i) {
      if (!render.is_separator(i)) console.out << " " << Slug(render.items[i]);
    }
    console.out << "\n";
  } catch (const std::exception& e) {
    console.out << "  (presets unknown: " << e.what() << ")\n";
  }
}

}  // namespace

int RunTool(const std::vector<std::string>& args, Console& console) {
  try {
    const Options options = ParseCommandLine(args);
    if (options.command == "help") {
      console.out << kUsage;
      Presets(options, console);
      return kExitOk;
    }
    if (options.command == "version") {
      console.out << "cinebar " << cinebar_identity::kVersionMajor << "." << cinebar_identity::kVersionMinor
                  << "." << cinebar_identity::kVersionBugfix << "\n";
      return kExitOk;
    }
    if (options.command == "render") return Render(options, console);
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
