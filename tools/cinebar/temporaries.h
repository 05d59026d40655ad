// Temporaries: how a frame appears under its name only when it is whole.
#pragma once

#include <signal.h>

#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "tools/cinebar/frame.h"

namespace cinebar_tool {

// Temporaries being written. While one lives, SIGINT, SIGTERM and SIGHUP are
// taken by a watcher thread that removes every temporary and then ends the
// process with the same signal; the destructor removes what is left.
class Temporaries {
 public:
  Temporaries();  // call before starting other threads: they inherit the blocked signals
  ~Temporaries();
  Temporaries(const Temporaries&) = delete;
  Temporaries& operator=(const Temporaries&) = delete;

  // Writes the frame to a new temporary beside `path`; returns its name.
  // Throws ToolError(kExitOutput).
  std::string Write(const std::string& path, const Frame& frame, const WriteSettings& settings);
  // Renames the temporary to `path`; throws ToolError(kExitOutput) (the temporary is then removed).
  void Commit(const std::string& name, const std::string& path);
  void Remove(const std::string& name);

 private:
  void Watch();
  std::mutex mutex_;
  std::set<std::string> live_;
  sigset_t signals_{}, old_mask_{};
  std::thread watcher_;
};

}  // namespace cinebar_tool
