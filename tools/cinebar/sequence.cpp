#include "tools/cinebar/sequence.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {

using cinebar_simhost::World;

void CheckOutputs(const std::vector<FramePair>& frames, bool overwrite) {
  std::set<std::pair<dev_t, ino_t>> inputs;
  for (const FramePair& f : frames) {
    struct stat st {};
    if (stat(f.in.c_str(), &st) == 0) inputs.insert({st.st_dev, st.st_ino});
  }
  for (const FramePair& f : frames) {
    struct stat st {};
    if (stat(f.out.c_str(), &st) == 0 && inputs.count({st.st_dev, st.st_ino}) != 0)
      throw ToolError(kExitUsage, "refusing to write " + f.out + ": it is an input of this render");
    if (lstat(f.out.c_str(), &st) != 0) continue;  // a new file; a folder that is missing is made later
    if (S_ISLNK(st.st_mode))
      throw ToolError(kExitOutput, "refusing to replace " + f.out + ": it is a symbolic link");
    if (!S_ISREG(st.st_mode)) {
      const char* kind = S_ISDIR(st.st_mode)    ? "a folder"
                         : S_ISFIFO(st.st_mode) ? "a FIFO"
                         : S_ISSOCK(st.st_mode) ? "a socket"
                                                : "a device";
      throw ToolError(kExitOutput,
                      "refusing to replace " + f.out + ": it is " + kind + ", not a regular file");
    }
    if (!overwrite) throw ToolError(kExitOutput, f.out + " exists (--overwrite replaces existing outputs)");
  }
}

Temporaries::Temporaries() {
  sigemptyset(&signals_);
  sigaddset(&signals_, SIGINT);
  sigaddset(&signals_, SIGTERM);
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

int Temporaries::Create(const std::string& path, std::string* name) {
  const std::size_t slash = path.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  *name = folder + "." + path.substr(slash == std::string::npos ? 0 : slash + 1) + ".XXXXXX";
  std::lock_guard<std::mutex> lock(mutex_);
  const int fd = mkstemp(name->data());
  if (fd >= 0) live_.insert(*name);
  return fd;
}

std::string Temporaries::Commit(const std::string& name, const std::string& path) {
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
  return why;
}

void Temporaries::Remove(const std::string& name) {
  std::lock_guard<std::mutex> lock(mutex_);
  unlink(name.c_str());
  live_.erase(name);
}

namespace {

struct Result {
  bool done = false;
  std::string temp;  // the frame, written, waiting for its turn
  int code = kExitOk;
  std::string message;
};

// Reads, renders and writes one frame into a temporary; the worlds are the worker's own, reused.
std::string WriteOne(const FramePair& frame, bool first, Session& session, Layer& layer, std::mutex& module,
                     SequenceSettings& settings, Temporaries& temps, std::unique_ptr<World>& input,
                     std::unique_ptr<World>& output) {
  const bool ready = first && settings.first;
  if (ready) input = std::move(settings.first);
  const FrameForm form = ready ? settings.first_form : ReadFrame(frame.in, input);
  input->set_pixel_aspect(session.pixel_aspect());
  if (!output || output->width() != form.width || output->height() != form.height ||
      output->deep() != form.deep) {
    output.reset();
    output = std::make_unique<World>(form.width, form.height, form.deep);
    output->set_pixel_aspect(session.pixel_aspect());
  }
  {
    // The module keeps the call's records in module-wide state: one call at a time.
    std::lock_guard<std::mutex> lock(module);
    layer.Render(*input, *output);
  }
  std::string temp;
  const int fd = temps.Create(frame.out, &temp);
  if (fd < 0) throw ToolError(kExitOutput, "cannot write " + frame.out + ": " + std::strerror(errno));
  std::FILE* file = fdopen(fd, "wb");
  std::string why = file == nullptr ? std::strerror(errno) : "";
  if (file != nullptr) {
    why = WriteFrame(file, *output, form, settings.write);
    if ((std::fflush(file) != 0 || std::ferror(file)) && why.empty()) why = std::strerror(errno);
    if (std::fclose(file) != 0 && why.empty()) why = std::strerror(errno);
  } else {
    close(fd);
  }
  if (!why.empty()) {
    temps.Remove(temp);
    throw ToolError(kExitOutput, "cannot write " + frame.out + ": " + why);
  }
  return temp;
}

}  // namespace

void RenderSequence(const std::vector<FramePair>& frames, Session& session, Layer& layer,
                    SequenceSettings& settings, const std::function<void(std::size_t)>& progress) {
  Temporaries temps;
  const std::size_t n = frames.size();
  const std::size_t jobs = std::min<std::size_t>(static_cast<std::size_t>(std::max(settings.jobs, 1)), n);
  const std::size_t window = 2 * jobs;  // frames written ahead of the one next in line
  std::vector<Result> results(n);
  std::mutex mutex, module;
  std::condition_variable changed;
  std::size_t next = 0, committed = 0;
  bool stop = false;

  auto work = [&] {
    std::unique_ptr<World> input, output;
    for (;;) {
      std::size_t i;
      {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return stop || next >= n || next < committed + window; });
        if (stop || next >= n) return;
        i = next++;
      }
      Result r;
      try {
        r.temp = WriteOne(frames[i], i == 0, session, layer, module, settings, temps, input, output);
      } catch (const ToolError& e) {
        r.code = e.code();
        r.message = e.what();
      } catch (const std::bad_alloc&) {
        r.code = kExitMemory;
        r.message = "out of memory with " + frames[i].in;
      } catch (const std::exception& e) {
        r.code = kExitModule;
        r.message = e.what();
      }
      r.done = true;
      std::lock_guard<std::mutex> lock(mutex);
      results[i] = std::move(r);
      changed.notify_all();
    }
  };
  std::vector<std::thread> pool;
  for (std::size_t j = 0; j < jobs; ++j) pool.emplace_back(work);

  std::size_t failed = n;
  for (std::size_t i = 0; i < n && failed == n; ++i) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return results[i].done; });
    Result& r = results[i];
    lock.unlock();
    if (r.code == kExitOk) {
      const std::string why = temps.Commit(r.temp, frames[i].out);
      r.temp.clear();
      if (!why.empty()) {
        r.code = kExitOutput;
        r.message = "cannot write " + frames[i].out + ": " + why;
      }
    }
    if (r.code != kExitOk) {
      failed = i;
      break;
    }
    progress(i + 1);
    lock.lock();
    committed = i + 1;
    changed.notify_all();
  }
  {
    std::lock_guard<std::mutex> lock(mutex);
    stop = true;
    changed.notify_all();
  }
  for (std::thread& t : pool) t.join();
  for (const Result& r : results) {
    if (!r.temp.empty()) temps.Remove(r.temp);
  }
  if (failed == n) return;
  const Result& r = results[failed];
  if (n == 1) throw ToolError(static_cast<ExitCode>(r.code), r.message);
  throw ToolError(static_cast<ExitCode>(r.code),
                  r.message + " (frame " + std::to_string(failed + 1) + " of " + std::to_string(n) + "; " +
                      std::to_string(failed) + (failed == 1 ? " frame" : " frames") +
                      " written before it, none after)");
}

}  // namespace cinebar_tool
