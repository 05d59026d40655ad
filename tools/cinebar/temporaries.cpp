#include "tools/cinebar/temporaries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tools/cinebar/plan.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

// ".cinebar-HOST-" : the hidden temporaries of this machine's runs.
std::string MachinePrefix() {
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  return ".cinebar-" + std::string(host) + "-";
}

// A hidden temporary's name in `folder`: the machine, this process, six random letters.
std::string HiddenTemplate(const std::string& folder) {
  return folder + "/" + MachinePrefix() + std::to_string(getpid()) + "-XXXXXX";
}

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
  throw ToolError(kExitOutput, "cannot write " + path + ": " + why);
}

[[noreturn]] void Taken(const std::string& path) {
  throw NameTaken(kExitOutput, path +
                                   " appeared while this run rendered it (another program wrote it); it is "
                                   "left as it is and this frame is not written");
}

// Links an open file into the tree under `path`, failing with EEXIST when the
// name is taken. AT_EMPTY_PATH needs a capability most users lack; the
// descriptor's /proc entry does the same without it.
int LinkDescriptor(int fd, const std::string& path) {
  if (linkat(fd, "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0) return 0;
  if (errno != ENOENT && errno != EPERM) return -1;
  const std::string self = "/proc/self/fd/" + std::to_string(fd);
  return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW);
}

// Renames without replacing; where the file system lacks RENAME_NOREPLACE, a
// hard link (which never replaces) and an unlink.
int RenameNoReplace(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (link(from.c_str(), to.c_str()) != 0) return -1;
  unlink(from.c_str());
  return 0;
}

}  // namespace

Temporary& Temporary::operator=(Temporary&& other) noexcept {
  std::swap(fd_, other.fd_);
  std::swap(hidden_, other.hidden_);
  return *this;
}

Temporary::~Temporary() {
  if (fd_ >= 0) close(fd_);
}

Temporaries::Temporaries(std::function<void()> on_signal, bool unnamed)
    : on_signal_(std::move(on_signal)), unnamed_(unnamed) {
  sigemptyset(&signals_);
  for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&signals_, sig);
  pthread_sigmask(SIG_BLOCK, &signals_, &old_mask_);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &ignore, &old_xfsz_);
  watcher_ = std::thread(&Temporaries::Watch, this);
}

Temporaries::~Temporaries() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& name : live_) unlink(name.c_str());
    live_.clear();
    ending_ = true;
  }
  pthread_kill(watcher_.native_handle(), SIGTERM);
  watcher_.join();
  pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
  sigaction(SIGXFSZ, &old_xfsz_, nullptr);
}

void Temporaries::Watch() {
  int sig = 0;
  sigwait(&signals_, &sig);
  std::lock_guard<std::mutex> lock(mutex_);
  if (ending_) return;
  for (const std::string& name : live_) unlink(name.c_str());
  if (on_signal_) on_signal_();
  // The lock stays held: no new temporary appears while the process ends.
  signal(sig, SIG_DFL);
  pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
  raise(sig);
}

Temporary Temporaries::Hidden(const std::string& folder, const std::string& path) {
  std::string name = HiddenTemplate(folder);
  std::lock_guard<std::mutex> lock(mutex_);
  const int fd = mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) Fail(path, std::strerror(errno));
  live_.insert(name);
  const mode_t mask = umask(0);  // mkstemp makes the file for its owner only
  umask(mask);
  fchmod(fd, 0666 & ~mask);
  return Temporary(fd, name);
}

Temporary Temporaries::Write(const std::string& path, const Frame& frame, const WriteSettings& settings) {
  return Write(path, [&](std::FILE* file) { return WriteFrame(file, frame, settings); });
}

Temporary Temporaries::Write(const std::string& path, const std::function<std::string(std::FILE*)>& write) {
  const std::string folder = FolderOf(path);
  Temporary temporary;
  if (unnamed_) temporary.fd_ = open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
  if (temporary.empty()) {
    if (unnamed_ && errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
      Fail(path, std::strerror(errno));
    temporary = Hidden(folder, path);
  }
  const int copy = dup(temporary.fd_);
  std::FILE* file = copy >= 0 ? fdopen(copy, "wb") : nullptr;
  std::string why = file == nullptr ? std::strerror(errno) : "";
  if (file != nullptr) {
    why = write(file);
    if ((std::fflush(file) != 0 || std::ferror(file)) && why.empty()) why = std::strerror(errno);
    if (std::fclose(file) != 0 && why.empty()) why = std::strerror(errno);
  } else if (copy >= 0) {
    close(copy);
  }
  if (why.empty() && fsync(temporary.fd_) != 0) why = std::strerror(errno);  // whole on disk before its name
  if (!why.empty()) {
    Discard(temporary);
    Fail(path, why);
  }
  return temporary;
}

std::string Temporaries::LinkUnnamed(Temporary& temporary, const std::string& path, Replace replace) {
  if (replace == Replace::kNever) {
    if (LinkDescriptor(temporary.fd_, path) == 0) return "";
    return errno == EEXIST ? "taken" : std::strerror(errno);
  }
  // An atomic replacement needs a name to rename from: a hidden one, for two calls.
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string name = HiddenTemplate(FolderOf(path));
    const int probe = mkstemp(name.data());  // a fresh unique name, then freed for the link
    if (probe < 0) return std::strerror(errno);
    close(probe);
    unlink(name.c_str());
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (LinkDescriptor(temporary.fd_, name) != 0) {
        if (errno == EEXIST) continue;
        return std::strerror(errno);
      }
      live_.insert(name);
    }
    temporary.hidden_ = name;
    return std::rename(name.c_str(), path.c_str()) == 0 ? "" : std::strerror(errno);
  }
  return "no free temporary name";
}

void Temporaries::Commit(Temporary temporary, const std::string& path, Replace replace) {
  std::string why;
  if (temporary.hidden_.empty()) {
    why = LinkUnnamed(temporary, path, replace);
  } else if ((replace == Replace::kNever ? RenameNoReplace(temporary.hidden_, path)
                                         : std::rename(temporary.hidden_.c_str(), path.c_str())) != 0) {
    why = errno == EEXIST ? "taken" : std::strerror(errno);
  }
  if (why.empty()) {
    std::lock_guard<std::mutex> lock(mutex_);
    live_.erase(temporary.hidden_);
    temporary.hidden_.clear();
  }
  Discard(temporary);
  if (why == "taken") Taken(path);
  if (!why.empty()) Fail(path, why);
}

void Temporaries::Discard(Temporary& temporary) {
  if (!temporary.hidden_.empty()) {
    std::lock_guard<std::mutex> lock(mutex_);
    unlink(temporary.hidden_.c_str());
    live_.erase(temporary.hidden_);
    temporary.hidden_.clear();
  }
  Temporary gone = std::move(temporary);
}

std::vector<std::pair<std::string, std::size_t>> Temporaries::RemoveStranded(
    const std::vector<std::string>& outputs) {
  std::set<std::string> folders;
  for (const std::string& output : outputs) folders.insert(FolderOf(output));
  const std::string mine = MachinePrefix();
  std::vector<std::pair<std::string, std::size_t>> removed;
  for (const std::string& folder : folders) {
    std::size_t count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
      const std::string name = entry.path().filename().string();
      if (name.rfind(mine, 0) != 0 || !entry.is_regular_file(error)) continue;
      const long pid = std::strtol(name.c_str() + mine.size(), nullptr, 10);
      // A process that is alive, or another user's, may still be writing it.
      if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH &&
          unlink(entry.path().c_str()) == 0)
        ++count;
    }
    if (count > 0) removed.emplace_back(folder, count);
  }
  return removed;
}

}  // namespace cinebar_tool
