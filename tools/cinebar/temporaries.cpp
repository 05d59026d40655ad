// Frames are written to temporaries beside their names and renamed into place
// when whole, so a reader of the folder never sees half a frame.
#include "tools/cinebar/temporaries.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {

Temporaries::Temporaries() {
  sigemptyset(&signals_);
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals_, sig);
  pthread_sigmask(SIG_BLOCK, &signals_, &old_mask_);
  watcher_ = std::thread(&Temporaries::Watch, this);
}

Temporaries::~Temporaries() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& name : live_) unlink(name.c_str());
    live_.clear();
    live_.insert("");  // the watcher's cue to end quietly
  }
  pthread_kill(watcher_.native_handle(), SIGTERM);
  watcher_.join();
  pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
}

void Temporaries::Watch() {
  int sig = 0;
  sigwait(&signals_, &sig);
  std::lock_guard<std::mutex> lock(mutex_);
  if (live_.count("") != 0) return;
  for (const std::string& name : live_) unlink(name.c_str());
  // The lock stays held: no new temporary appears while the process ends.
  signal(sig, SIG_DFL);
  pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
  raise(sig);
}

std::string Temporaries::Write(const std::string& path, const Frame& frame, const WriteSettings& settings) {
  const std::size_t slash = path.find_last_of('/');
  std::string name = path.substr(0, slash + 1) + "." + path.substr(slash + 1) + ".XXXXXX";
  int fd = -1;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    fd = mkstemp(name.data());
    if (fd >= 0) live_.insert(name);
  }
  if (fd < 0) throw ToolError(kExitOutput, "cannot write " + path + ": " + std::strerror(errno));
  std::FILE* file = fdopen(fd, "wb");
  std::string why = file == nullptr ? std::strerror(errno) : "";
  if (file != nullptr) {
    why = WriteFrame(file, frame, settings);
    if ((std::fflush(file) != 0 || std::ferror(file)) && why.empty()) why = std::strerror(errno);
    if (std::fclose(file) != 0 && why.empty()) why = std::strerror(errno);
  } else {
    close(fd);
  }
  if (!why.empty()) {
    Remove(name);
    throw ToolError(kExitOutput, "cannot write " + path + ": " + why);
  }
  return name;
}

void Temporaries::Commit(const std::string& name, const std::string& path) {
  // mkstemp makes the file for its owner only; the result gets the usual mode.
  const mode_t mask = umask(0);
  umask(mask);
  std::lock_guard<std::mutex> lock(mutex_);
  std::string why;
  if (chmod(name.c_str(), 0666 & ~mask) != 0 || std::rename(name.c_str(), path.c_str()) != 0) {
    why = std::strerror(errno);
    unlink(name.c_str());
  }
  live_.erase(name);
  if (!why.empty()) throw ToolError(kExitOutput, "cannot write " + path + ": " + why);
}

void Temporaries::Remove(const std::string& name) {
  std::lock_guard<std::mutex> lock(mutex_);
  unlink(name.c_str());
  live_.erase(name);
}

}  // namespace cinebar_tool
