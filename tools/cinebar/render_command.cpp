#include "tools/cinebar/render_command.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iomanip>
#include <new>
#include <numeric>
#include <thread>

#include "hostapi/ae_constants.h"
#include "tools/cinebar/controls.h"
#include "tools/cinebar/layer.h"
#include "tools/cinebar/pipeline.h"
#include "tools/cinebar/plan.h"
#include "tools/cinebar/png/png_reader.h"
#include "tools/cinebar/session.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

using Clock = std::chrono::steady_clock;

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

// Plan: the frames, and every output checked before any work is done.
Plan PlanStage(const Options& options, Console& console) {
  if (options.no_gaps && options.in != kStream && !ParsePattern(options.in))
    throw ToolError(kExitUsage, "--no-gaps needs a numbered pattern IN such as in/frame_%04d.png (" +
                                    options.in + " has no numbers to miss)");
  Plan plan = PlanFrames(options.in, options.out);
  if (!plan.missing.empty()) {
    const std::size_t n = plan.missing.size();
    const std::string gap = std::to_string(n) + (n == 1 ? " frame" : " frames") + " missing from " +
                            options.in + ": number" + (n == 1 ? " " : "s ") + Ranges(plan.missing);
    if (options.no_gaps) throw ToolError(kExitInput, gap);
    console.err << "cinebar: warning: " << gap << " (rendering the others; --no-gaps stops)\n";
  }
  if (!plan.stream_out) CheckOutputs(plan.frames, options.overwrite);
  if (plan.stream_names) CheckFolderOf(plan.stream_names->Format(1));
  return plan;
}

struct Probe {
  Frame first;                          // the first readable frame (a header, or whole from the stream)
  std::string first_name;               // its name in messages
  std::vector<Frame> sizes;             // headers of each size and depth, with --dry-run
  std::vector<std::string> size_names;  // the first frame of each
};

// Probe: the first readable frame (with --skip-bad, past unreadable ones);
// with --dry-run a header of every size and depth.
Probe ProbeStage(const Options& options, const Plan& plan, std::FILE* stream) {
  Probe probe;
  if (plan.stream_in) {
    probe.first_name = "frame 1 of standard input";
    if (!ReadPng(stream, probe.first_name, probe.first))
      throw ToolError(kExitInput, "no frames on standard input");
    probe.sizes.push_back(probe.first);
    probe.size_names.push_back(probe.first_name);
    return probe;
  }
  for (const FramePair& frame : plan.frames) {
    Frame header;
    try {
      header = ReadHeader(frame.in);
    } catch (const ToolError& e) {
      if (!options.skip_bad || e.code() != kExitInput ||
          (probe.sizes.empty() && &frame == &plan.frames.back()))
        throw;
      continue;
    }
    if (probe.sizes.empty()) probe.first_name = frame.in;
    if (std::none_of(probe.sizes.begin(), probe.sizes.end(), [&](const Frame& s) {
          return s.width == header.width && s.height == header.height && s.deep == header.deep;
        })) {
      probe.sizes.push_back(header);
      probe.size_names.push_back(frame.in);
    }
    if (!options.dry_run) break;
  }
  probe.first = probe.sizes.front();
  return probe;
}

// The pixel aspect and where it came from: the option, else the first
// frame's pHYs read as x:y pixels per unit (pixel aspect y/x), else square.
PF_RationalScale PixelAspect(const Options& options, const Probe& probe, std::string* source) {
  if (options.pixel_aspect_given) {
    *source = "--pixel-aspect";
    return options.pixel_aspect;
  }
  const Frame& first = probe.first;
  if (first.phys_x == 0 || first.phys_y == 0) {
    *source = probe.first_name + " has no usable pHYs chunk; --pixel-aspect N/D sets one";
    return {1, 1};
  }
  std::uint64_t num = first.phys_y, den = first.phys_x;
  const std::uint64_t g = std::gcd(num, den);
  num /= g, den /= g;
  while (num > 0x7FFFFFFF || den > 0x7FFFFFFF) num = (num + 1) / 2, den = (den + 1) / 2;
  *source = "pHYs of " + probe.first_name;
  if (num != den)
    *source += ", " + first.pixel_aspect +
               ", read as x:y so the aspect is y/x (ffmpeg writes the inverse); " +
               "--pixel-aspect N/D overrides";
  return {static_cast<A_long>(num), static_cast<A_u_long>(den)};
}

// The rectangle the module leaves the picture at one size, said in a line.
void SayPicture(Layer& layer, const Frame& f, const std::string& name, std::ostream& out, std::ostream& err) {
  Picture p;
  bool replayed = false;
  const std::string size = std::to_string(f.width) + "x" + std::to_string(f.height);
  try {
    p = layer.Measure(f.width, f.height, f.deep, &replayed);
  } catch (const std::bad_alloc&) {
    throw ToolError(kExitMemory, "out of memory probing the module at " + size + " (" + name + ")");
  }
  if (!replayed)
    err << "cinebar: note: at " << size
        << " the module's drawing could not be replayed from the host's record;"
        << " measured by rendering in worlds of that size\n";
  out << f.width << "x" << f.height << (f.deep ? " 16-bit" : " 8-bit") << ": ";
  if (p.empty()) {
    out << "no picture, all bar\n";
    err << "cinebar: warning: at " << size
        << " the picture is less than a pixel at this ratio and pixel aspect: the whole frame is bar\n";
    return;
  }
  out << "picture " << p.right - p.left << "x" << p.bottom - p.top << " from (" << p.left << "," << p.top
      << ") to (" << p.right << "," << p.bottom << ")\n";
}

// What the render uses: the module's own values, and per frame size the rectangle it leaves the picture.
void SayWhatIsUsed(const Session& session, Layer& layer, const Probe& probe, const std::string& aspect_source,
                   std::ostream& out, std::ostream& err) {
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
  for (std::size_t i = 0; i < probe.sizes.size(); ++i)
    SayPicture(layer, probe.sizes[i], probe.size_names[i], out, err);
  out.flush();
}

int Jobs(const Options& options) {
  return options.jobs > 0 ? options.jobs
                          : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

// Report: the summary, what was passed over, and the exit code.
int ReportStage(const PipelineResult& result, const Options& options, double seconds, std::ostream& say,
                std::ostream& err) {
  if (!result.dropped.empty()) {
    err << "cinebar: note: not copied to the outputs:";
    for (const std::string& type : result.dropped) err << " " << type;
    err << " (they would no longer be true of them)\n";
  }
  const std::size_t written = result.written;
  say << "rendered " << written << (written == 1 ? " frame" : " frames") << " to "
      << (options.out == kStream ? "standard output" : options.out) << " in " << std::fixed
      << std::setprecision(1) << seconds << " s (" << written / std::max(seconds, 1e-6) << " frames/s)\n";
  for (const Skipped& s : result.skipped) err << "cinebar: skipped " << s.in << ": " << s.why << "\n";
  for (const Skipped& s : result.lost) err << "cinebar: " << s.why << "\n";
  const std::size_t n = written + result.skipped.size() + result.lost.size();
  if (!result.lost.empty()) {
    err << "cinebar: " << result.lost.size() << " of " << n
        << " frames not written: their names were taken by another program\n";
    return kExitOutput;
  }
  if (!result.skipped.empty()) {
    err << "cinebar: " << result.skipped.size() << " of " << n << " frames skipped\n";
    return kExitInput;
  }
  return kExitOk;
}

// Draws "done/n frames, rate, time left" on a terminal.
void ShowProgress(std::ostream& err, std::size_t done, std::size_t n, double seconds) {
  const double rate = done / std::max(seconds, 1e-6);
  err << "\r" << done;
  if (n > 0) err << "/" << n;
  err << " frames, " << std::fixed << std::setprecision(1) << rate << " frames/s";
  if (n > 0) err << ", " << std::setprecision(0) << (n - done) / rate << " s left";
  err << "\x1b[K" << (done == n ? "\n" : "") << std::flush;
}

// Keeps SIGPIPE from ending the process while frames go to a pipe: a reader
// that goes away is a failed write, reported as one.
class PipeGuard {
 public:
  explicit PipeGuard(bool active) : active_(active) {
    if (active_) old_ = std::signal(SIGPIPE, SIG_IGN);
  }
  ~PipeGuard() {
    if (active_) std::signal(SIGPIPE, old_);
  }
  PipeGuard(const PipeGuard&) = delete;
  PipeGuard& operator=(const PipeGuard&) = delete;

 private:
  bool active_;
  void (*old_)(int) = SIG_DFL;
};

}  // namespace

int RenderCommand(const Options& options, const std::string& module_path, Console& console) {
  const Clock::time_point start = Clock::now();
  const auto seconds = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
  const Plan plan = PlanStage(options, console);
  std::ostream& say = plan.stream_out ? console.err : console.out;  // stdout may carry the frames
  // The module names the controls: a usage error in an edit is found before any frame is read.
  Session session(module_path, {1, 1}, options.downsample_x, options.downsample_y);
  const std::vector<Edit> edits = ResolveEdits(session, options.edits);
  Probe probe = ProbeStage(options, plan, console.in);
  std::string aspect_source;
  session.SetPixelAspect(PixelAspect(options, probe, &aspect_source));
  Layer layer(session);
  for (const Edit& edit : edits) layer.Change(edit);
  SayWhatIsUsed(session, layer, probe, aspect_source, say, console.err);
  if (options.dry_run) return kExitOk;

  const PipeGuard pipe(plan.stream_out);
  std::vector<std::string> outputs;
  for (const FramePair& f : plan.frames) outputs.push_back(f.out);
  if (plan.stream_names) outputs.push_back(plan.stream_names->Format(1));
  const std::vector<std::string> files = plan.stream_out ? std::vector<std::string>{} : outputs;
  const OutputFolders folders(files);
  for (const auto& [folder, count] : Temporaries::RemoveStranded(files))
    console.err << "cinebar: removed " << count << (count == 1 ? " hidden temporary" : " hidden temporaries")
                << " from " << folder << ", left by a run on this machine that was killed\n";
  std::atomic<std::size_t> finished{0};
  Temporaries temps([&] {  // before the workers start: they inherit its blocked signals
    say.flush();
    console.err << (console.err_is_terminal ? "\r\x1b[K" : "") << "cinebar: interrupted after " << finished
                << (finished == 1 ? " frame" : " frames") << std::endl;
  });
  const PF_Pixel color = layer.param(session.control(kColorControl, PF_Param_COLOR).index).u.cd.value;
  PipelineSettings settings;
  settings.jobs = Jobs(options);
  settings.write.level = options.compression;
  settings.skip_bad = options.skip_bad;
  settings.opaque = options.opaque_bars ? &color : nullptr;
  settings.replace = options.overwrite ? Replace::kAtomically : Replace::kNever;
  settings.out = plan.stream_out ? console.out_file : nullptr;
  settings.names = plan.stream_names;
  bool first_taken = false;
  if (plan.stream_in) {
    settings.in = console.in;
    settings.read = [&](std::FILE* in, const std::string& name, Frame& frame) {
      if (first_taken) return ReadPng(in, name, frame);
      first_taken = true;  // the probe read the first frame already
      frame = std::move(probe.first);
      return true;
    };
  }
  const std::size_t n = plan.frames.size();
  const PipelineResult result = RenderSequence(plan.frames, layer, temps, settings, [&](std::size_t done) {
    finished = done;
    if (console.err_is_terminal && n != 1) ShowProgress(console.err, done, n, seconds());
  });
  if (console.err_is_terminal && plan.stream_in) console.err << "\n";
  return ReportStage(result, options, seconds(), say, console.err);
}

}  // namespace cinebar_tool
