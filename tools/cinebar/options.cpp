#include "tools/cinebar/options.h"

#include <cinebar_identity.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <tuple>
#include <utility>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const int lower = std::tolower(static_cast<unsigned char>(c));
  if (lower >= 'a' && lower <= 'f') return lower - 'a' + 10;
  return -1;
}

std::optional<long long> ParseWholeNumber(const std::string& text, long long max) {
  if (text.empty() || text.size() > 10) return std::nullopt;
  long long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (value < 0 || value > max) return std::nullopt;
  return value;
}

[[noreturn]] void Usage(const std::string& message) { throw ToolError(kExitUsage, message); }

// A whole number in [low, high], said in words when it is not.
CLI::Validator WholeNumber(int low, int high) {
  return CLI::Validator(
      [low, high](std::string& text) -> std::string {
        const auto value = ParseWholeNumber(text, high);
        if (value && *value >= low) return "";
        return "\"" + text + "\" is not a whole number from " + std::to_string(low) + " to " +
               std::to_string(high);
      },
      std::to_string(low) + ".." + std::to_string(high));
}

}  // namespace

std::optional<PF_Pixel> ParseColor(const std::string& text) {
  if ((text.size() != 7 && text.size() != 9) || text[0] != '#') return std::nullopt;
  int channel[4] = {0, 0, 0, 255};
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    const int hi = HexDigit(text[i + 1]);
    const int lo = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
    if (hi < 0 || lo < 0) return std::nullopt;
    channel[i / 2] = hi * 16 + lo;
  }
  return PF_Pixel{static_cast<A_u_char>(channel[3]), static_cast<A_u_char>(channel[0]),
                  static_cast<A_u_char>(channel[1]), static_cast<A_u_char>(channel[2])};
}

std::optional<PF_RationalScale> ParseRational(const std::string& text) {
  const std::size_t slash = text.find_first_of("/:");
  if (slash == std::string::npos) return std::nullopt;
  const auto num = ParseWholeNumber(text.substr(0, slash), std::numeric_limits<A_long>::max());
  const auto den = ParseWholeNumber(text.substr(slash + 1), std::numeric_limits<A_long>::max());
  if (!num || !den || *num == 0 || *den == 0) return std::nullopt;
  return PF_RationalScale{static_cast<A_long>(*num), static_cast<A_u_long>(*den)};
}

std::optional<double> ParseNumber(const std::string& text) {
  if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return std::nullopt;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<double> ParseRatio(const std::string& text) {
  const std::size_t sep = text.find_first_of(":/");
  if (sep == std::string::npos) return ParseNumber(text);
  const auto w = ParseNumber(text.substr(0, sep));
  const auto h = ParseNumber(text.substr(sep + 1));
  if (!w || !h || *h <= 0) return std::nullopt;
  return *w / *h;
}

namespace {

// A value of a form that `parse` accepts, said in words when it is not.
template <typename Parse>
CLI::Validator FormOf(Parse parse, const std::string& form) {
  return CLI::Validator(
      [parse, form](std::string& text) -> std::string {
        return parse(text) ? "" : "\"" + text + "\" is not " + form;
      },
      form);
}

std::optional<std::pair<PF_RationalScale, PF_RationalScale>> ParseDownsample(const std::string& text) {
  const std::size_t comma = text.find(',');
  const auto x = ParseRational(text.substr(0, comma));
  const auto y = comma == std::string::npos ? x : ParseRational(text.substr(comma + 1));
  if (!x || !y) return std::nullopt;
  return std::pair{*x, *y};
}

// The options of `render`: each value's form checked as it is parsed, its
// value stored by the option's callback.
void AddRender(CLI::App& app, Options& o) {
  CLI::App* render = app.add_subcommand("render", "renders IN to OUT");
  render
      ->add_option("IN", o.in,
                   "a PNG file, a numbered pattern (frame_%04d.png), a folder of PNGs or - (stdin)")
      ->required();
  render
      ->add_option("OUT", o.out, "the same form as IN (a folder or a pattern for a sequence), or - (stdout)")
      ->required();
  const auto edit = [&o](RequestedEdit::Kind kind) {
    return [&o, kind](const std::string& text) {
      RequestedEdit e{kind, text, kind == RequestedEdit::kRatio ? *ParseRatio(text) : 0, {}};
      if (kind == RequestedEdit::kColor) e.color = *ParseColor(text);
      o.edits.push_back(e);
    };
  };
  auto* p = render->add_option_function<std::string>("--preset", edit(RequestedEdit::kPreset),
                                                     "a preset by name, part of it, short form or ratio");
  render
      ->add_option_function<std::string>("--ratio", edit(RequestedEdit::kRatio),
                                         "Aspect Ratio: 2.39, 2.39:1, 16:9 or 16/9")
      ->check(FormOf(ParseRatio, "a number, W:H or W/H"))
      ->excludes(p);
  render->add_option_function<std::string>("--render", edit(RequestedEdit::kRender),
                                           "on-image or on-transparent");
  render
      ->add_option_function<std::string>("--color", edit(RequestedEdit::kColor),
                                         "bar colour #RRGGBB or #RRGGBBAA")
      ->check(FormOf(ParseColor, "a colour of the form #RRGGBB or #RRGGBBAA"));
  render->add_flag("--opaque-bars", o.opaque_bars,
                   "opaque bars of the colour at full scale (16 bits: 0x10 -> 0x1010), no alpha added");
  render
      ->add_option_function<std::string>(
          "--pixel-aspect",
          [&o](const std::string& text) {
            o.pixel_aspect = *ParseRational(text), o.pixel_aspect_given = true;
          },
          "N/D or N:D, width of a pixel over its height (default: from pHYs)")
      ->check(FormOf(ParseRational, "N/D or N:D with positive whole numbers"));
  render
      ->add_option_function<std::string>(
          "--downsample",
          [&o](const std::string& text) {
            std::tie(o.downsample_x, o.downsample_y) = *ParseDownsample(text);
          },
          "N/D or N/D,N/D: the host's preview downsampling")
      ->check(FormOf(ParseDownsample, "N/D or N/D,N/D with positive whole numbers"));
  render->add_flag("--dry-run", o.dry_run, "print what would be used per frame size, render nothing");
  render->add_flag("--overwrite", o.overwrite, "replace existing outputs");
  render->add_flag("--skip-bad", o.skip_bad, "go on past unreadable frames; list them, exit 3");
  render->add_flag("--no-gaps", o.no_gaps, "refuse a numbered sequence with missing numbers");
  render->add_option("--jobs", o.jobs, "frames in flight (default: one per hardware thread)")
      ->check(WholeNumber(1, 1024));
  render->add_option("--compression", o.compression, "deflate level 0-12, 0 without row filter")
      ->check(WholeNumber(0, 12))
      ->capture_default_str();
}

void AddOthers(CLI::App& app, Options& o) {
  CLI::App* demo = app.add_subcommand("demo", "writes every preset in both modes on a test chart");
  demo->add_option("--out", o.out_dir, "the folder (default: previews beside the cinebar program)");
  demo->add_flag("--overwrite", o.overwrite, "replace existing files");
  app.add_subcommand("info", "describes the module and its controls");
}

void AddFooter(CLI::App& app) {
  app.footer(
      "16-bit frames: the picture keeps every sample. The bars are what the module paints in a 16-bpc\n"
      "project, as After Effects shows them: its 8-bit colour times 128 of 32768 (black bars have alpha\n"
      "65279 of 65535, so an alpha channel is added); --opaque-bars gives delivery bars instead.\n"
      "Outputs keep the input's depth, grey or colour, and the chunks that stay true (gAMA, cHRM, sRGB,\n"
      "iCCP, pHYs, eXIf, text, bKGD while its form fits); tIME, sBIT and hIST are dropped and named.\n"
      "Palette and 1/2/4-bit grey frames are written as the 8-bit RGB(A) or grey they stand for; a tRNS\n"
      "chunk becomes alpha. Chunk CRCs and the image data's Adler-32 are checked.\n"
      "pHYs is read as x:y pixels per unit, so the pixel aspect is y/x (ffmpeg writes the sample aspect\n"
      "num:den there, the inverse); --pixel-aspect overrides it.\n"
      "A frame is refused from its header when the host cannot hold it (1 GiB, 32767 pixels a side) or\n"
      "its file is too short to inflate to it. A gap in a numbered sequence is named (--no-gaps stops).\n"
      "Exit codes: 0 done, 2 usage, 3 input file, 4 module, 5 output file, 6 out of memory.");
}

// A parse error in one line: an unknown option or command named as such.
[[noreturn]] void Explain(const CLI::App& app, const CLI::ParseError& e) {
  if (const auto* extras = dynamic_cast<const CLI::ExtrasError*>(&e)) {
    const std::string what = extras->what();
    std::istringstream words(what.substr(what.find(':') + 1));
    std::string options, others, word;
    while (words >> word) (word[0] == '-' ? options : others) += " " + word;
    Usage(options.empty() ? "unexpected argument" + others : "unknown option" + options);
  }
  // An unknown option or word before the subcommand is a missing subcommand to CLI11: name it.
  for (const std::string& extra : app.remaining()) {
    if (extra.size() > 1 && extra[0] == '-') Usage("unknown option " + extra);
    if (app.get_subcommands().empty()) Usage("unknown command " + extra + " (render, demo or info)");
  }
  Usage(e.what());
}

}  // namespace

Options ParseCommandLine(const std::vector<std::string>& args) {
  Options o;
  CLI::App app{
      "cinebar lays Cinebar's aspect-ratio bars over PNG frames through the module file and a\n"
      "simulated After Effects host, makes preview sheets and shows what the host would show."};
  app.set_version_flag("--version", "cinebar " + std::to_string(cinebar_identity::kVersionMajor) + "." +
                                        std::to_string(cinebar_identity::kVersionMinor) + "." +
                                        std::to_string(cinebar_identity::kVersionBugfix));
  app.name("cinebar");
  app.require_subcommand(1);
  app.fallthrough();
  app.add_option("--module", o.module,
                 "the module file (default: $CINEBAR_MODULE, else the one beside cinebar)");
  AddRender(app, o);
  AddOthers(app, o);
  AddFooter(app);
  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    o.command = "help";
    const auto named = app.get_subcommands();
    o.help_topic = named.empty() ? "" : named.front()->get_name();
    o.text = named.empty() ? app.help("", CLI::AppFormatMode::All) : named.front()->help();
    return o;
  } catch (const CLI::CallForVersion& e) {
    o.command = "version";
    o.text = e.what();
    return o;
  } catch (const CLI::ParseError& e) {
    Explain(app, e);
  }
  o.command = app.get_subcommands().front()->get_name();
  // The module takes the render mode, then the preset or ratio, then the colour.
  std::vector<RequestedEdit> ordered;
  for (const auto& kinds :
       {std::vector{RequestedEdit::kRender}, std::vector{RequestedEdit::kPreset, RequestedEdit::kRatio},
        std::vector{RequestedEdit::kColor}})
    for (const RequestedEdit& e : o.edits)
      if (std::find(kinds.begin(), kinds.end(), e.kind) != kinds.end()) ordered.push_back(e);
  o.edits = std::move(ordered);
  return o;
}

}  // namespace cinebar_tool
