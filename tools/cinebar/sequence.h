// Rendering the frames of a sequence: what must hold before the first file
// is touched, the temporaries that make every output appear whole or not at
// all, and frames in flight on a pool of threads, written in order.
#pragma once

#include <signal.h>

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tools/cinebar/frame_io.h"
#include "tools/cinebar/frames.h"
#include "tools/cinebar/session.h"

namespace cinebar_tool {

// Refuses, before anything is written, an output that is one of the inputs,
// a link or anything but a regular file, or that exists without `overwrite`.
void CheckOutputs(const std::vector<FramePair>& frames, bool overwrite);

// Temporaries being written. While one lives, SIGINT and SIGTERM are taken by
// a watcher thread that removes every temporary and then ends the process
// with the same signal; the destructor removes what is left.
class Temporaries {
 public:
  Temporaries();  // call before starting other threads: they inherit the blocked signals
  ~Temporaries();
  Temporaries(const Temporaries&) = delete;
  Temporaries& operator=(const Temporaries&) = delete;

  // A new temporary in the folder of `path`; its name goes to *name. -1 and errno on failure.
  int Create(const std::string& path, std::string* name);
  // Renames the temporary to `path`; "" or the reason it failed (the temporary is then removed).
  std::string Commit(const std::string& name, const std::string& path);
  void Remove(const std::string& name);

 private:
  void Watch();
  std::mutex mutex_;
  std::set<std::string> live_;
  sigset_t signals_{}, old_mask_{};
  std::thread watcher_;
};

struct SequenceSettings {
  int jobs = 1;
  WriteSettings write;
  // The first frame when it has been read already (it is not read again).
  std::unique_ptr<cinebar_simhost::World> first;
  FrameForm first_form;
};

// Renders every frame through `layer` (one module call at a time) and writes
// it, in order; `progress` is called after each frame is in place. On a
// failure the frames before it stay written, no later one appears, and the
// ToolError says how many were written and which frame failed.
void RenderSequence(const std::vector<FramePair>& frames, Session& session, Layer& layer,
                    SequenceSettings& settings, const std::function<void(std::size_t)>& progress);

}  // namespace cinebar_tool
