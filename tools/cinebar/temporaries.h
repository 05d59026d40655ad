// How a frame appears under its name only when it is whole and on disk: it is
// written to an unnamed file in the output's folder (O_TMPFILE), synced, and
// then linked in under its name, which fails if the name is taken. Where the
// file system has no unnamed files, a hidden temporary is renamed instead
// (renameat2 with RENAME_NOREPLACE); its name carries the machine and the
// process, so that a later run removes what a killed one left.
#pragma once

#include <signal.h>

#include <cstdio>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {

// A frame written and synced, not yet under its name. Owns its descriptor.
class Temporary {
 public:
  Temporary() = default;
  Temporary(int fd, std::string hidden) : fd_(fd), hidden_(std::move(hidden)) {}
  Temporary(Temporary&& other) noexcept { *this = std::move(other); }
  Temporary& operator=(Temporary&& other) noexcept;
  ~Temporary();
  bool empty() const { return fd_ < 0; }

 private:
  friend class Temporaries;
  int fd_ = -1;
  std::string hidden_;  // the fallback's hidden name; empty for an unnamed file
};

enum class Replace { kNever, kAtomically };

// The name was taken by another program while the frame was made.
class NameTaken : public ToolError {
 public:
  using ToolError::ToolError;
};

// The temporaries of a run. While the object lives, SIGINT, SIGTERM, SIGHUP
// and SIGQUIT are taken by a watcher thread that removes every hidden
// temporary and then ends the process with the same signal, and SIGXFSZ is
// ignored so that a file-size limit fails the write instead of killing the
// process. Unnamed files need none of it: a process killed any way leaves
// nothing behind.
class Temporaries {
 public:
  // Call before starting other threads: they inherit the blocked signals.
  // `on_signal` runs on a signal before the process ends; `unnamed` false
  // takes the hidden temporaries even where unnamed files work.
  explicit Temporaries(std::function<void()> on_signal = {}, bool unnamed = true);
  ~Temporaries();
  Temporaries(const Temporaries&) = delete;
  Temporaries& operator=(const Temporaries&) = delete;

  // Writes and syncs the frame in `path`'s folder. Throws ToolError(kExitOutput).
  Temporary Write(const std::string& path, const Frame& frame, const WriteSettings& settings);
  // The same with a writer of the file's bytes, which returns "" or the reason of a failure.
  Temporary Write(const std::string& path, const std::function<std::string(std::FILE*)>& write);
  // Gives the frame its name. With Replace::kNever a name that exists stays
  // as it is and NameTaken (kExitOutput) says so.
  void Commit(Temporary temporary, const std::string& path, Replace replace);
  void Discard(Temporary& temporary);
  // Removes from the outputs' folders the hidden temporaries that a run on
  // this machine left when it was killed outright (their process is gone);
  // the folders where some were, and how many.
  static std::vector<std::pair<std::string, std::size_t>> RemoveStranded(
      const std::vector<std::string>& outputs);

 private:
  void Watch();
  Temporary Hidden(const std::string& folder, const std::string& path);
  std::string LinkUnnamed(Temporary& temporary, const std::string& path, Replace replace);
  const std::function<void()> on_signal_;
  const bool unnamed_;
  std::mutex mutex_;
  std::set<std::string> live_;  // hidden temporaries
  bool ending_ = false;
  sigset_t signals_{}, old_mask_{};
  struct sigaction old_xfsz_ {};
  std::thread watcher_;
};

}  // namespace cinebar_tool
