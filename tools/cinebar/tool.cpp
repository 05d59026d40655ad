#include "tools/cinebar/tool.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iomanip>
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

int Jobs(const Options& options) {
  return options.jobs > 0 ? options.jobs
                          : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

// "5, 7-9"
std::string Ranges(const std::vector<long>& numbers) {
  std::string text;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    std::size_t j = i;
    while (j + 1 < numbers.size() && numbers[j + 1] == numbers[j] + 1) ++j;
    text += (text.empty() ? "" : ", ") + std::to_string(numbers[i]) +
            (j > i ? "-" + std::to_string(numbers[j]) : "");
    i = j;
  }
  return text;
}

// The pixel aspect and where it came from: the option, else the first
// frame's pHYs read as x:y pixels per unit (pixel aspect y/x), else square.
PF_RationalScale PixelAspect(const Options& options, const Frame& first, const std::string& name,
                             std::string* source) {
  if (options.pixel_aspect_given) {
    *source = "--pixel-aspect";
    return options.pixel_aspect;
  }
  if (first.phys_x == 0 || first.phys_y == 0) {
    *source = name + " has no usable pHYs chunk; --pixel-aspect N/D sets one";
    return {1, 1};
  }
  std::uint64_t num = first.phys_y, den = first.phys_x;
  const std::uint64_t g = std::gcd(num, den);
  num /= g, den /= g;
  while (num > 0x7FFFFFFF || den > 0x7FFFFFFF) num = (num + 1) / 2, den = (den + 1) / 2;
  *source = "pHYs of " + name + ", " + first.pixel_aspect +
            ", read as x:y so the aspect is y/x (ffmpeg writes " +
            "the inverse); --pixel-aspect N/D overrides";
  return {static_cast<A_long>(num), static_cast<A_u_long>(den)};
}

// What the render uses, per frame size: the module's own values and the
// rectangle it leaves the picture.
void SayWhatIsUsed(Session& session, Layer& layer, const std::vector<Frame>& sizes,
                   const std::string& aspect_source, std::ostream& out, std::ostream& err) {
  const PF_RationalScale aspect = session.pixel_aspect();
  const Control& preset = session.control(kPresetControl, PF_Param_POPUP);
  const Control& ratio = session.control(kRatioControl, PF_Param_FLOAT_SLIDER);
  const Control& mode = session.control(kRenderControl, PF_Param_POPUP);
  const auto item = [&](const Control& c) {
    const auto v = static_cast<std::size_t>(layer.param(c.index).u.pd.value);
    return v >= 1 && v <= c.items.size() ? c.items[v - 1] : std::string("?");
  };
  char number[32];
  std::snprintf(number, sizeof number, "%.*f", ratio.def.u.fs_d.precision,
                layer.param(ratio.index).u.fs_d.value);
  out << "pixel aspect " << aspect.num << "/" << aspect.den << " (" << aspect_source << ")\n"
      << "ratio " << number << " (preset " << item(preset) << "), " << item(mode) << "\n";
  for (const Frame& f : sizes) {
    const Picture p = layer.Find(f.width, f.height, f.deep);
    out << f.width << "x" << f.height << (f.deep ? " 16-bit" : " 8-bit") << ": picture " << p.right - p.left
        << "x" << p.bottom - p.top << " from (" << p.left << "," << p.top << ") to (" << p.right << ","
        << p.bottom << ")\n";
    if (p.empty())
      err << "cinebar: warning: at " << f.width << "x" << f.height
          << " the whole frame is bar (a ratio of 0 or a degenerate pixel aspect)\n";
  }
}

int Render(const Options& options, Console& console) {
  const Plan plan = PlanFrames(options.in, options.out);
  const std::vector<FramePair>& frames = plan.frames;
  if (!plan.missing.empty()) {
    const std::string gap =
        std::to_string(plan.missing.size()) + " missing from " + options.in + ": " + Ranges(plan.missing);
    if (options.no_gaps) throw ToolError(kExitInput, "frames " + gap);
    console.err << "cinebar: warning: frames " << gap << " (rendering the others; --no-gaps stops)\n";
  }
  if (!options.dry_run) PrepareOutputs(frames, options.overwrite);
  Frame first;  // the first readable frame's header (with --skip-bad, past unreadable ones)
  std::size_t at = 0;
  for (;; ++at) {
    try {
      first = ReadHeader(frames[at].in);
      break;
    } catch (const ToolError& e) {
      if (!options.skip_bad || e.code() != kExitInput || at + 1 == frames.size()) throw;
    }
  }
  std::string aspect_source;
  const PF_RationalScale aspect = PixelAspect(options, first, frames[at].in, &aspect_source);
  Session session(ModulePath(options, console), aspect, options.downsample_x, options.downsample_y);
  const std::vector<Edit> edits = ResolveEdits(session, options.edits);
  Layer layer(session);
  for (const Edit& edit : edits) layer.Change(edit);
  std::vector<Frame> sizes{first};
  for (std::size_t i = at + 1; options.dry_run && i < frames.size(); ++i) {
    Frame f;
    try {
      f = ReadHeader(frames[i].in);
    } catch (const ToolError& e) {
      if (options.skip_bad && e.code() == kExitInput) continue;
      throw;
    }
    if (std::none_of(sizes.begin(), sizes.end(), [&](const Frame& s) {
          return s.width == f.width && s.height == f.height && s.deep == f.deep;
        }))
      sizes.push_back(std::move(f));
  }
  SayWhatIsUsed(session, layer, sizes, aspect_source, console.out, console.err);
  if (options.dry_run) return kExitOk;

  std::atomic<std::size_t> finished{0};
  // Before the workers start: they inherit its blocked signals.
  Temporaries temps([&] {
    console.out.flush();
    console.err << (console.err_is_terminal ? "\r\x1b[K" : "") << "cinebar: interrupted after " << finished
                << (finished == 1 ? " frame" : " frames") << std::endl;
  });
  const PF_Pixel color = layer.param(session.control(kColorControl, PF_Param_COLOR).index).u.cd.value;
  PipelineSettings settings;
  settings.jobs = Jobs(options);
  settings.write.level = options.compression;
  settings.skip_bad = options.skip_bad;
  settings.replace = options.overwrite ? Replace::kAtomically : Replace::kNever;
  settings.opaque = options.opaque_bars ? &color : nullptr;
  const auto start = std::chrono::steady_clock::now();
  const auto seconds = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  const std::size_t n = frames.size();
  const PipelineResult result = RenderSequence(frames, layer, temps, settings, [&](std::size_t done) {
    finished = done;
    if (!console.err_is_terminal || n < 2) return;
    const double rate = done / std::max(seconds(), 1e-6);
    console.err << "\r" << done << "/" << n << " frames, " << std::fixed << std::setprecision(1) << rate
                << " frames/s, " << std::setprecision(0) << (n - done) / rate << " s left\x1b[K"
                << (done == n ? "\n" : "") << std::flush;
  });
  if (!result.dropped.empty())
    console.err << "cinebar: note: not copied to the outputs: " << result.dropped
                << " (they would no longer be true of them)\n";
  const std::size_t written = n - result.skipped.size() - result.lost.size();
  console.out << "rendered " << written << (written == 1 ? " frame" : " frames") << " to " << options.out
              << " in " << std::fixed << std::setprecision(1) << seconds() << " s ("
              << written / std::max(seconds(), 1e-6) << " frames/s)\n";
  for (const Skipped& s : result.skipped) console.err << "cinebar: skipped " << s.in << ": " << s.why << "\n";
  for (const Skipped& s : result.lost) console.err << "cinebar: " << s.why << "\n";
  if (!result.lost.empty()) {
    console.err << "cinebar: " << result.lost.size() << " of " << n
                << " frames not written: their names were taken by another program\n";
    return kExitOutput;
  }
  if (!result.skipped.empty()) {
    console.err << "cinebar: " << result.skipped.size() << " of " << n << " frames skipped\n";
    return kExitInput;
  }
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
  PrepareOutputs(files, options.overwrite);

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
