#include "tools/cinebar/frames.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

std::string Folder(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool PathExists(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0;
}

std::string Join(const std::string& folder, const std::string& name) {
  if (folder.empty() || folder == ".") return name;
  return folder.back() == '/' ? folder + name : folder + "/" + name;
}

bool EndsWithPng(const std::string& name) {
  if (name.size() < 4) return false;
  std::string tail = name.substr(name.size() - 4);
  for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return tail == ".png";
}

std::vector<std::string> List(const std::string& folder) {
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr)
    throw ToolError(kExitInput, "cannot read the folder " + folder + ": " + std::strerror(errno));
  std::vector<std::string> names;
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end(), NaturalLess);
  return names;
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa {
  }, sb{};
  return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
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

void MakeFolders(const std::string& path) {
  for (std::size_t i = 1; i <= path.size(); ++i) {
    if (i != path.size() && path[i] != '/') continue;
    const std::string partial = path.substr(0, i);
    if (!IsDirectory(partial) && mkdir(partial.c_str(), 0777) != 0 && errno != EEXIST)
      throw ToolError(kExitOutput, "cannot create the folder " + partial + ": " + std::strerror(errno));
  }
}

std::string FolderOf(const std::string& path) { return Folder(path); }

bool IsDirectory(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
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

std::vector<FramePair> PlanFrames(const std::string& in, const std::string& out) {
  const auto in_pattern = ParsePattern(in);
  const auto out_pattern = ParsePattern(out);
  const bool in_folder = !in_pattern && IsDirectory(in);
  std::vector<FramePair> frames;
  if (!in_pattern && !in_folder) {
    if (out_pattern) throw ToolError(kExitUsage, "OUT is a frame pattern but IN is a single file");
    if (IsDirectory(out)) throw ToolError(kExitUsage, "OUT " + out + " is a folder but IN is a single file");
    struct stat st {};
    if (stat(in.c_str(), &st) != 0)
      throw ToolError(kExitInput, "cannot open " + in + ": " + std::strerror(errno));
    frames.push_back(FramePair{in, out});
    return frames;
  }

  // (number, input path, input name)
  struct Found {
    long number;
    std::string path, name;
  };
  std::vector<Found> found;
  if (in_pattern) {
    const std::size_t slash = in_pattern->prefix.find_last_of('/');
    const std::string lead = slash == std::string::npos ? "" : in_pattern->prefix.substr(0, slash + 1);
    for (const std::string& name : List(lead.empty() ? "." : lead)) {
      const std::string path = lead + name;
      if (const auto number = in_pattern->Match(path)) found.push_back(Found{*number, path, name});
    }
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.number < b.number; });
  } else {
    long number = 0;
    for (const std::string& name : List(in)) {
      const std::string path = Join(in, name);
      if (EndsWithPng(name) && !IsDirectory(path)) found.push_back(Found{++number, path, name});
    }
  }
  if (found.empty()) throw ToolError(kExitInput, "no PNG frames found for " + in);
  if (in_folder && SameFile(in, out))
    throw ToolError(kExitUsage, "OUT " + out + " is the input folder: the frames would overwrite themselves");
  if (!out_pattern && !IsDirectory(out) && (EndsWithPng(out) || PathExists(out))) {
    throw ToolError(kExitUsage, "OUT " + out + " names one file but IN is a sequence of " +
                                    std::to_string(found.size()) +
                                    " frames: give a folder or a pattern such as out/frame_%04d.png");
  }
  for (const Found& f : found)
    frames.push_back(FramePair{f.path, out_pattern ? out_pattern->Format(f.number) : Join(out, f.name)});
  return frames;
}

}  // namespace cinebar_tool
