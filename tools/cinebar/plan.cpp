#include "tools/cinebar/plan.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

namespace fs = std::filesystem;

bool EndsWithPng(const std::string& name) {
  std::string tail = name.size() < 4 ? "" : name.substr(name.size() - 4);
  for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return tail == ".png";
}

std::vector<std::string> List(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
    names.push_back(it->path().filename().string());
  if (error) throw ToolError(kExitInput, "cannot read the folder " + folder + ": " + error.message());
  std::sort(names.begin(), names.end(), NaturalLess);
  return names;
}

bool IsDirectory(const std::string& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

std::string Join(const std::string& folder, const std::string& name) {
  return (fs::path(folder) / name).string();
}

}  // namespace

bool NaturalLess(const std::string& a, const std::string& b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (std::isdigit(static_cast<unsigned char>(a[i])) && std::isdigit(static_cast<unsigned char>(b[j]))) {
      const std::size_t i0 = i, j0 = j;
      while (i < a.size() && std::isdigit(static_cast<unsigned char>(a[i]))) ++i;
      while (j < b.size() && std::isdigit(static_cast<unsigned char>(b[j]))) ++j;
      std::string x = a.substr(i0, i - i0), y = b.substr(j0, j - j0);
      x.erase(0, std::min(x.find_first_not_of('0'), x.size()));
      y.erase(0, std::min(y.find_first_not_of('0'), y.size()));
      if (x.size() != y.size()) return x.size() < y.size();
      if (x != y) return x < y;
    } else {
      if (a[i] != b[j]) return a[i] < b[j];
      ++i;
      ++j;
    }
  }
  if (a.size() - i != b.size() - j) return a.size() - i < b.size() - j;
  return a < b;
}

std::string NumberPattern::Format(long number) const {
  std::string digits = std::to_string(number);
  if (static_cast<int>(digits.size()) < width)
    digits.insert(0, static_cast<std::size_t>(width) - digits.size(), zero_pad ? '0' : ' ');
  return prefix + digits + suffix;
}

std::optional<long> NumberPattern::Match(const std::string& path) const {
  if (path.size() <= prefix.size() + suffix.size()) return std::nullopt;
  if (path.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  if (path.compare(path.size() - suffix.size(), suffix.size(), suffix) != 0) return std::nullopt;
  const std::string digits = path.substr(prefix.size(), path.size() - prefix.size() - suffix.size());
  if (digits.size() > 9 || (zero_pad && static_cast<int>(digits.size()) < width)) return std::nullopt;
  long number = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
    number = number * 10 + (c - '0');
  }
  if (Format(number) != path) return std::nullopt;  // "007" is not frame 7 of "%d"
  return number;
}

std::optional<NumberPattern> ParsePattern(const std::string& text) {
  NumberPattern pattern;
  bool found = false;
  std::string* part = &pattern.prefix;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      *part += text[i];
      continue;
    }
    if (i + 1 < text.size() && text[i + 1] == '%') {
      *part += '%';
      ++i;
      continue;
    }
    std::size_t j = i + 1;
    if (j < text.size() && text[j] == '0') {
      pattern.zero_pad = true;
      ++j;
    }
    int width = 0;
    while (j < text.size() && text[j] >= '0' && text[j] <= '9' && width < 100)
      width = width * 10 + (text[j++] - '0');
    if (found || j >= text.size() || text[j] != 'd' || width > 9)
      throw ToolError(kExitUsage, "\"" + text + "\" is not a frame pattern with one %d, %Nd or %0Nd");
    found = true;
    pattern.width = width;
    part = &pattern.suffix;
    i = j;
  }
  if (!found) return std::nullopt;
  return pattern;
}

namespace {

struct Found {  // an input of a sequence
  long number;
  std::string path, name;
};

// The inputs a pattern names, by number, and the numbers it skips.
std::vector<Found> FindNumbered(const NumberPattern& pattern, std::vector<long>& missing) {
  std::vector<Found> found;
  const std::size_t slash = pattern.prefix.find_last_of('/');
  const std::string lead = slash == std::string::npos ? "" : pattern.prefix.substr(0, slash + 1);
  for (const std::string& name : List(lead.empty() ? "." : lead)) {
    const std::string path = lead + name;
    if (const auto number = pattern.Match(path)) found.push_back(Found{*number, path, name});
  }
  std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.number < b.number; });
  for (std::size_t i = 1; i < found.size(); ++i)
    for (long n = found[i - 1].number + 1; n < found[i].number; ++n) missing.push_back(n);
  return found;
}

std::vector<Found> FindInFolder(const std::string& folder) {
  std::vector<Found> found;
  long number = 0;
  for (const std::string& name : List(folder)) {
    const std::string path = Join(folder, name);
    if (EndsWithPng(name) && !IsDirectory(path)) found.push_back(Found{++number, path, name});
  }
  return found;
}

// One file IN: OUT is a file, a folder to keep its name in, or the stream.
Plan PlanOne(const std::string& in, const std::string& out, bool out_pattern) {
  if (out_pattern) throw ToolError(kExitUsage, "OUT is a frame pattern but IN is a single file");
  std::error_code error;
  if (!fs::exists(in, error))
    throw ToolError(kExitInput, "cannot open " + in + ": " + (error ? error.message() : "no such file"));
  const bool into = out != kStream && (IsDirectory(out) || (!out.empty() && out.back() == '/'));
  Plan plan;
  plan.frames.push_back(FramePair{in, into ? Join(out, fs::path(in).filename().string()) : out});
  return plan;
}

// A sequence IN (a pattern or a folder) into a folder, a pattern or the stream.
Plan PlanSequence(const std::string& in, const std::optional<NumberPattern>& in_pattern,
                  const std::string& out, const std::optional<NumberPattern>& out_pattern) {
  Plan plan;
  plan.numbered = in_pattern.has_value();
  const std::vector<Found> found = in_pattern ? FindNumbered(*in_pattern, plan.missing) : FindInFolder(in);
  if (found.empty()) throw ToolError(kExitInput, "no PNG frames found for " + in);
  std::error_code error;
  if (!in_pattern && out != kStream && fs::equivalent(in, out, error))
    throw ToolError(kExitUsage, "OUT " + out + " is the input folder: the frames would overwrite themselves");
  if (out != kStream && !out_pattern && !IsDirectory(out) &&
      (EndsWithPng(out) || fs::exists(fs::symlink_status(out)))) {
    throw ToolError(kExitUsage, "OUT " + out + " names one file but IN is a sequence of " +
                                    std::to_string(found.size()) +
                                    " frames: give a folder or a pattern such as out/frame_%04d.png");
  }
  for (const Found& f : found) {
    const std::string name = out == kStream ? out
                             : out_pattern  ? out_pattern->Format(f.number)
                                            : Join(out, f.name);
    plan.frames.push_back(FramePair{f.path, name});
  }
  return plan;
}

}  // namespace

Plan PlanFrames(const std::string& in, const std::string& out) {
  const auto out_pattern = out == kStream ? std::nullopt : ParsePattern(out);
  Plan plan;
  if (in == kStream) {
    if (out != kStream && !out_pattern)
      throw ToolError(
          kExitUsage,
          "IN - (standard input) is a sequence: OUT is - or a pattern such as out/frame_%04d.png");
    plan.stream_in = true;
    plan.stream_names = out_pattern;
  } else if (const auto in_pattern = ParsePattern(in); in_pattern || IsDirectory(in)) {
    plan = PlanSequence(in, in_pattern, out, out_pattern);
  } else {
    plan = PlanOne(in, out, out_pattern.has_value());
  }
  plan.stream_out = out == kStream;
  return plan;
}

namespace {

// The output's refusal, if any: an input, a link, not a regular file, one that exists.
void CheckOutput(const std::string& path, bool overwrite, const std::set<std::pair<dev_t, ino_t>>& inputs) {
  struct stat st {};
  if (stat(path.c_str(), &st) == 0 && inputs.count({st.st_dev, st.st_ino}) != 0)
    throw ToolError(kExitUsage, "refusing to write " + path + ": it is an input of this render");
  if (lstat(path.c_str(), &st) != 0) return;  // a new file
  if (S_ISLNK(st.st_mode))
    throw ToolError(kExitOutput, "refusing to replace " + path + ": it is a symbolic link");
  if (!S_ISREG(st.st_mode)) {
    const char* kind = S_ISDIR(st.st_mode)    ? "a folder"
                       : S_ISFIFO(st.st_mode) ? "a FIFO"
                       : S_ISSOCK(st.st_mode) ? "a socket"
                                              : "a device";
    throw ToolError(kExitOutput, "refusing to replace " + path + ": it is " + kind + ", not a regular file");
  }
  if (!overwrite) throw ToolError(kExitOutput, path + " exists (--overwrite replaces existing outputs)");
}

}  // namespace

void CheckFolderOf(const std::string& path) {
  fs::path folder = FolderOf(path);
  std::error_code error;
  while (!fs::exists(folder, error) && folder.has_parent_path() && folder.parent_path() != folder)
    folder = folder.parent_path();
  if (!fs::exists(folder, error)) folder = ".";
  if (!fs::is_directory(folder, error))
    throw ToolError(kExitOutput, "cannot write " + path + ": " + folder.string() + " is not a folder");
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    throw ToolError(kExitOutput, "cannot write " + path + ": cannot write into " + folder.string() + ": " +
                                     std::strerror(errno));
}

void CheckOutputs(const std::vector<FramePair>& frames, bool overwrite) {
  std::set<std::pair<dev_t, ino_t>> inputs;
  for (const FramePair& f : frames) {
    struct stat st {};
    if (stat(f.in.c_str(), &st) == 0) inputs.insert({st.st_dev, st.st_ino});
  }
  std::set<std::string> folders;
  for (const FramePair& f : frames) {
    CheckOutput(f.out, overwrite, inputs);
    if (folders.insert(FolderOf(f.out)).second) CheckFolderOf(f.out);
  }
}

OutputFolders::OutputFolders(const std::vector<std::string>& paths) {
  std::set<std::string> folders;
  for (const std::string& path : paths) folders.insert(FolderOf(path));
  for (const std::string& folder : folders) {
    std::vector<fs::path> missing;
    std::error_code error;
    for (fs::path f = folder; !f.empty() && !fs::exists(f, error); f = f.parent_path()) missing.push_back(f);
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
      if (!fs::create_directory(*it, error) && error) {
        throw ToolError(kExitOutput, "cannot create the folder " + folder + ": " + error.message());
      }
      created_.push_back(it->string());
    }
  }
}

OutputFolders::~OutputFolders() {
  for (auto it = created_.rbegin(); it != created_.rend(); ++it) rmdir(it->c_str());  // only if empty
}

std::string FolderOf(const std::string& path) {
  const std::string folder = fs::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

}  // namespace cinebar_tool
