#include "tools/cinebar/pipeline.h"

#include <tbb/global_control.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "tools/cinebar/png/png_writer.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

struct Job {  // one frame in flight; its memory is reused by later frames
  std::size_t index = 0;
  FramePair names;
  Frame in;  // also the writer's buffer: the output's rows are made over it
  Worlds worlds;
  Rendered rendered;
  Temporary temp;
  std::string encoded;  // for an output stream
  ExitCode code = kExitOk;
  std::string message;
  bool lost = false;
};

// Runs one stage of a job, keeping its failure in the job.
template <typename Stage>
void Guard(Job& job, Stage stage) {
  if (job.code != kExitOk) return;
  try {
    stage();
  } catch (const NameTaken& e) {
    job.lost = true;
    job.message = e.what();
  } catch (const ToolError& e) {
    job.code = e.code();
    job.message = e.what();
  } catch (const std::bad_alloc&) {
    job.code = kExitMemory;
    job.message = "out of memory with " + job.names.in;
  } catch (const std::exception& e) {
    job.code = kExitModule;
    job.message = e.what();
  }
}

// Writes the rendered frame as a PNG, its rows composed over the input's memory.
std::string WriteRendered(std::FILE* file, Job& job, const WriteSettings& settings) {
  const Rendered& r = job.rendered;
  const PngImage image{job.in.width, job.in.height, r.channels, r.deep, &r.chunks};
  return WritePng(
      file, image, [&](int y, std::uint8_t* row) { ComposeRow(job.in, job.worlds, r, y, row); }, settings,
      &job.in.samples);
}

// The rendered frame as PNG bytes in memory.
void Encode(Job& job, const WriteSettings& settings) {
  char* buffer = nullptr;
  std::size_t size = 0;
  std::FILE* memory = open_memstream(&buffer, &size);
  if (memory == nullptr) throw std::bad_alloc();
  const std::string why = WriteRendered(memory, job, settings);
  const bool closed = std::fclose(memory) == 0;
  if (closed) job.encoded.assign(buffer, size);
  std::free(buffer);
  if (!why.empty() || !closed) throw ToolError(kExitOutput, "cannot encode " + job.names.in + ": " + why);
}

class Pipeline {
 public:
  Pipeline(const std::vector<FramePair>& frames, Layer& layer, Temporaries& temps,
           const PipelineSettings& settings, const std::function<void(std::size_t)>& progress)
      : frames_(frames), layer_(layer), temps_(temps), settings_(settings), progress_(progress) {}
  PipelineResult Run();

 private:
  Job* Take(tbb::flow_control& flow);
  void Read(Job& job);
  void Encode(Job& job);
  void Commit(Job& job);
  void Settle(Job& job);
  [[noreturn]] void Fail() const;

  const std::vector<FramePair>& frames_;
  Layer& layer_;
  Temporaries& temps_;
  const PipelineSettings& settings_;
  const std::function<void(std::size_t)>& progress_;
  std::vector<std::unique_ptr<Job>> pool_;
  std::vector<Job*> free_;
  std::mutex free_mutex_;
  std::size_t next_ = 0;
  std::atomic<bool> stop_{false}, ended_{false};
  Job failure_;
  bool failed_ = false;
  PipelineResult result_;
};

Job* Pipeline::Take(tbb::flow_control& flow) {
  const bool streamed = settings_.in != nullptr;
  if (stop_ || ended_ || (!streamed && next_ >= frames_.size())) {
    flow.stop();
    return nullptr;
  }
  Job* job = nullptr;
  {
    std::lock_guard<std::mutex> lock(free_mutex_);
    job = free_.back();
    free_.pop_back();
  }
  job->index = next_++;
  job->code = kExitOk;
  job->lost = false;
  if (!streamed) {
    job->names = frames_[job->index];
    return job;
  }
  job->names.in = "frame " + std::to_string(job->index + 1) + " of standard input";
  job->names.out = settings_.names ? settings_.names->Format(static_cast<long>(job->index + 1)) : "-";
  Guard(*job, [&] { ended_ = !settings_.read(settings_.in, job->names.in, job->in); });
  if (job->code != kExitOk) ended_ = true;  // where the next frame starts is unknown
  if (job->code != kExitOk || !ended_) return job;
  std::lock_guard<std::mutex> lock(free_mutex_);  // the stream's clean end: nothing to render
  free_.push_back(job);
  flow.stop();
  return nullptr;
}

void Pipeline::Read(Job& job) {
  if (settings_.in == nullptr) Guard(job, [&] { ReadFrame(job.names.in, job.in); });
}

void Pipeline::Encode(Job& job) {
  Guard(job, [&] {
    if (stop_) return;
    if (settings_.out != nullptr) {
      cinebar_tool::Encode(job, settings_.write);
    } else {
      job.temp = temps_.Write(job.names.out,
                              [&](std::FILE* file) { return WriteRendered(file, job, settings_.write); });
    }
  });
}

void Pipeline::Commit(Job& job) {
  Guard(job, [&] {
    if (stop_) return;
    if (settings_.out == nullptr) return temps_.Commit(std::move(job.temp), job.names.out, settings_.replace);
    if (std::fwrite(job.encoded.data(), 1, job.encoded.size(), settings_.out) != job.encoded.size() ||
        std::fflush(settings_.out) != 0)
      throw ToolError(kExitOutput, std::string("cannot write to standard output: ") + std::strerror(errno));
  });
  temps_.Discard(job.temp);
}

void Pipeline::Settle(Job& job) {
  if (stop_) return;
  if (job.lost) {
    result_.lost.push_back(Skipped{job.names.out, job.message});
  } else if (job.code == kExitInput && settings_.skip_bad && settings_.in == nullptr) {
    result_.skipped.push_back(Skipped{job.names.in, job.message});
  } else if (job.code != kExitOk) {
    stop_ = true;
    failure_.index = job.index;
    failure_.code = job.code;
    failure_.message = job.message;
    failed_ = true;
  } else {
    for (const std::string& type : job.rendered.dropped)
      if (std::find(result_.dropped.begin(), result_.dropped.end(), type) == result_.dropped.end())
        result_.dropped.push_back(type);
    progress_(++result_.written);
  }
}

PipelineResult Pipeline::Run() {
  const std::size_t jobs = static_cast<std::size_t>(settings_.jobs);
  const std::size_t tokens = settings_.in != nullptr ? jobs + 1 : std::min(jobs + 1, frames_.size());
  for (std::size_t i = 0; i < tokens; ++i) free_.push_back(pool_.emplace_back(std::make_unique<Job>()).get());
  const tbb::global_control threads(tbb::global_control::max_allowed_parallelism, jobs);
  tbb::task_arena arena(settings_.jobs);
  using tbb::filter_mode;
  arena.execute([&] {
    tbb::parallel_pipeline(
        tokens, tbb::make_filter<void, Job*>(filter_mode::serial_in_order, [&](tbb::flow_control& flow) {
                  return Take(flow);
                }) & tbb::make_filter<Job*, Job*>(filter_mode::parallel, [&](Job* job) {
                  return Read(*job), job;
                }) & tbb::make_filter<Job*, Job*>(filter_mode::serial_out_of_order, [&](Job* job) {
                  Guard(*job, [&] {
                    if (!stop_) job->rendered = layer_.Render(job->in, job->worlds, settings_.opaque);
                  });
                  return job;
                }) & tbb::make_filter<Job*, Job*>(filter_mode::parallel, [&](Job* job) {
                  return Encode(*job), job;
                }) & tbb::make_filter<Job*, void>(filter_mode::serial_in_order, [&](Job* job) {
                  Commit(*job);
                  Settle(*job);
                  std::lock_guard<std::mutex> lock(free_mutex_);
                  free_.push_back(job);
                }));
  });
  if (failed_) Fail();
  return std::move(result_);
}

void Pipeline::Fail() const {
  const std::string& message = failure_.message;
  const std::size_t n = settings_.in != nullptr ? 0 : frames_.size(), done = result_.written;
  if (n == 1) throw ToolError(failure_.code, message);
  const std::string of = n > 0 ? " of " + std::to_string(n) : "";
  throw ToolError(failure_.code, message + " (frame " + std::to_string(failure_.index + 1) + of + "; " +
                                     std::to_string(done) + (done == 1 ? " frame" : " frames") +
                                     " written before it, none after)");
}

}  // namespace

PipelineResult RenderSequence(const std::vector<FramePair>& frames, Layer& layer, Temporaries& temps,
                              const PipelineSettings& settings,
                              const std::function<void(std::size_t)>& progress) {
  return Pipeline(frames, layer, temps, settings, progress).Run();
}

}  // namespace cinebar_tool
