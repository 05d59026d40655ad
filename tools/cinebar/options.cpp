#include "tools/cinebar/options.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {

const char kUsage[] =
    "usage: cinebar render IN OUT [--preset NAME] [--ratio R] [--render on-image|on-transparent]\n"
    "                             [--color #RRGGBB[AA]] [--pixel-aspect N/D] [--downsample N/D[,N/D]]\n"
    "                             [--overwrite] [--jobs N] [--compression 0-9]\n"
    "       cinebar demo [--out DIR]       (default DIR: previews next to the cinebar program)\n"
    "       cinebar info | --help | --version\n"
    "  IN and OUT: PNG files, printf-style patterns (frame_%04d.png) or folders of PNG files; a\n"
    "    sequence is taken in numeric order (2 before 10) and needs a folder or pattern OUT.\n"
    "  --ratio takes 2.39, 2.39:1, 16:9 or 16/9. --pixel-aspect: without it, the first frame's pHYs\n"
    "    chunk gives the pixel aspect (1/1 when it has none).\n"
    "  Outputs keep the input's depth, grey or colour and chunks (gAMA, sRGB, iCCP, pHYs, text), with\n"
    "    alpha where the input or the bars need it. An output that is an input, a link or not a regular\n"
    "    file is refused; an existing one too unless --overwrite. Each frame is written to a temporary\n"
    "    file and renamed, so an interrupted render leaves whole frames only.\n"
    "  --jobs N: frames in flight (default: one per hardware thread).\n"
    "  --compression L: deflate level 0-9 (default 1 with rows unfiltered: speed over size; 4-9 add\n"
    "    the Sub row filter for smaller files).\n"
    "  A frame is refused from its header when its world would pass the simulated host's 1 GiB.\n"
    "  Every command takes --module PATH (or $CINEBAR_MODULE) to choose the module file.\n"
    "  Exit codes: 2 usage, 3 input file, 4 module, 5 output file, 6 out of memory.\n";

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const int lower = std::tolower(static_cast<unsigned char>(c));
  if (lower >= 'a' && lower <= 'f') return lower - 'a' + 10;
  return -1;
}

std::optional<long long> ParsePositiveInteger(const std::string& text, long long max) {
  if (text.empty() || text.size() > 10) return std::nullopt;
  long long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (value <= 0 || value > max) return std::nullopt;
  return value;
}

[[noreturn]] void Usage(const std::string& message) { throw ToolError(kExitUsage, message); }

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
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) return std::nullopt;
  const auto num = ParsePositiveInteger(text.substr(0, slash), std::numeric_limits<A_long>::max());
  const auto den = ParsePositiveInteger(text.substr(slash + 1), std::numeric_limits<A_long>::max());
  if (!num || !den) return std::nullopt;
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

Options ParseCommandLine(const std::vector<std::string>& args) {
  Options options;
  if (args.empty()) Usage("no command given (render, demo, info)");
  options.command = args[0];
  if (options.command == "-h" || options.command == "--help" || options.command == "help") {
    options.command = "help";
    return options;
  }
  if (options.command == "--version" || options.command == "version") {
    options.command = "version";
    return options;
  }
  if (options.command != "render" && options.command != "demo" && options.command != "info")
    Usage("unknown command \"" + options.command + "\" (render, demo, info)");

  const bool render = options.command == "render";
  for (std::size_t i = 1; i < args.size(); ++i) {
    std::string arg = args[i];
    if (arg.size() >= 2 && arg[0] == '-' && arg[1] != '-')
      Usage("unknown option " + arg + " (options are spelt out: --preset, --ratio, ...)");
    if (arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
      options.operands.push_back(arg);
      continue;
    }
    std::string value;
    const std::size_t eq = arg.find('=');
    const bool flag = arg == "--help" || arg == "--overwrite";
    if (eq != std::string::npos) {
      value = arg.substr(eq + 1);
      arg.resize(eq);
    } else if (!flag) {
      if (i + 1 >= args.size()) Usage(arg + " needs a value");
      value = args[++i];
    }
    if (arg == "--help") {
      options.command = "help";
      return options;
    }
    if (render && arg == "--overwrite") {
      options.overwrite = true;
    } else if (render && arg == "--jobs") {
      const auto n = ParsePositiveInteger(value, 1024);
      if (!n) Usage("--jobs \"" + value + "\" is not a whole number from 1 to 1024");
      options.jobs = static_cast<int>(*n);
    } else if (render && arg == "--compression") {
      if (value.size() != 1 || value[0] < '0' || value[0] > '9')
        Usage("--compression \"" + value + "\" is not a level from 0 to 9");
      options.compression = value[0] - '0';
    } else if (arg == "--module") {
      options.module = value;
    } else if (arg == "--out" && options.command == "demo") {
      options.out_dir = value;
    } else if (render && (arg == "--preset" || arg == "--ratio" || arg == "--render")) {
      const RequestedEdit::Kind kind = arg == "--preset"  ? RequestedEdit::kPreset
                                       : arg == "--ratio" ? RequestedEdit::kRatio
                                                          : RequestedEdit::kRender;
      const auto ratio = ParseRatio(value);
      if (kind == RequestedEdit::kRatio && !ratio)
        Usage("--ratio \"" + value + "\" is not a number, W:H or W/H");
      options.edits.push_back(RequestedEdit{kind, value, ratio.value_or(0), {}});
    } else if (render && arg == "--color") {
      const auto color = ParseColor(value);
      if (!color) Usage("--color \"" + value + "\" is not a colour of the form #RRGGBB or #RRGGBBAA");
      options.edits.push_back(RequestedEdit{RequestedEdit::kColor, value, 0, *color});
    } else if (render && arg == "--pixel-aspect") {
      const auto ratio = ParseRational(value);
      if (!ratio) Usage("--pixel-aspect \"" + value + "\" is not N/D with positive whole numbers");
      options.pixel_aspect = *ratio;
      options.pixel_aspect_given = true;
    } else if (render && arg == "--downsample") {
      const std::size_t comma = value.find(',');
      const auto x = ParseRational(value.substr(0, comma));
      const auto y = comma == std::string::npos ? x : ParseRational(value.substr(comma + 1));
      if (!x || !y) Usage("--downsample \"" + value + "\" is not N/D or N/D,N/D with positive whole numbers");
      options.downsample_x = *x;
      options.downsample_y = *y;
    } else {
      Usage("unknown option " + arg + " for " + options.command);
    }
  }
  const std::size_t wanted = render ? 2 : 0;
  if (options.operands.size() != wanted) {
    if (!render) Usage(options.command + " takes no file arguments");
    Usage(options.operands.empty()       ? "render needs IN and OUT, the files to read and to write"
          : options.operands.size() == 1 ? "render needs OUT after IN " + options.operands[0]
                                         : "render takes one IN and one OUT; extra: " + options.operands[2]);
  }
  return options;
}

}  // namespace cinebar_tool
