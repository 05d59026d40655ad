#include "tools/cinebar/sequence.h"

#include <tbb/global_control.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

struct Job {  // one frame in flight; its memory is reused by later frames
  std::size_t index = 0;
  Frame in, out;
  std::string temp;
  ExitCode code = kExitOk;
  std::string message;
};

// Runs one stage of a job, keeping its failure in the job.
template <typename Stage>
void Guard(Job& job, const std::string& in, Stage stage) {
  if (job.code != kExitOk) return;
  try {
    stage();
  } catch (const ToolError& e) {
    job.code = e.code();
    job.message = e.what();
  } catch (const std::bad_alloc&) {
    job.code = kExitMemory;
    job.message = "out of memory with " + in;
  } catch (const std::exception& e) {
    job.code = kExitModule;
    job.message = e.what();
  }
}

}  // namespace

PipelineResult RenderSequence(const std::vector<FramePair>& frames, Layer& layer, Temporaries& temps,
                              const PipelineSettings& settings,
                              const std::function<void(std::size_t)>& progress) {
  const std::size_t n = frames.size();
  const std::size_t tokens = std::min<std::size_t>(static_cast<std::size_t>(settings.jobs) + 1, n);
  std::vector<std::unique_ptr<Job>> pool;
  std::vector<Job*> free;
  for (std::size_t i = 0; i < tokens; ++i) free.push_back(pool.emplace_back(std::make_unique<Job>()).get());
  std::mutex free_mutex;
  std::size_t next = 0, done = 0;
  std::atomic<bool> stop{false};
  const Job* failed = nullptr;
  Job failure;
  PipelineResult result;

  const tbb::global_control threads(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(settings.jobs));
  tbb::task_arena arena(settings.jobs);
  arena.execute([&] {
    tbb::parallel_pipeline(
        tokens,
        tbb::make_filter<void, Job*>(tbb::filter_mode::serial_in_order, [&](tbb::flow_control& fc) -> Job* {
          if (stop || next >= n) {
            fc.stop();
            return nullptr;
          }
          std::lock_guard<std::mutex> lock(free_mutex);
          Job* job = free.back();
          free.pop_back();
          job->index = next++;
          job->code = kExitOk;
          job->temp.clear();
          return job;
        }) & tbb::make_filter<Job*, Job*>(tbb::filter_mode::parallel, [&](Job* job) {
          const FramePair& f = frames[job->index];
          Guard(*job, f.in, [&] { ReadFrame(f.in, job->in); });
          return job;
        }) & tbb::make_filter<Job*, Job*>(tbb::filter_mode::serial_out_of_order, [&](Job* job) {
          Guard(*job, frames[job->index].in, [&] {
            if (!stop) layer.Render(job->in, job->out, settings.opaque);
          });
          return job;
        }) & tbb::make_filter<Job*, Job*>(tbb::filter_mode::parallel, [&](Job* job) {
          const FramePair& f = frames[job->index];
          Guard(*job, f.in, [&] {
            if (!stop) job->temp = temps.Write(f.out, job->out, settings.write);
          });
          return job;
        }) & tbb::make_filter<Job*, void>(tbb::filter_mode::serial_in_order, [&](Job* job) {
          const FramePair& f = frames[job->index];
          if (!stop && job->code == kExitOk) {
            Guard(*job, f.in, [&] { temps.Commit(job->temp, f.out); });
            job->temp.clear();
          }
          if (!job->temp.empty()) temps.Remove(job->temp);
          if (!stop && job->code == kExitInput && settings.skip_bad) {
            result.skipped.push_back(Skipped{f.in, job->message});
          } else if (!stop && job->code != kExitOk) {
            stop = true;
            failure.index = job->index;
            failure.code = job->code;
            failure.message = job->message;
            failed = &failure;
          } else if (!stop) {
            for (const std::string& type : job->out.dropped)
              if (result.dropped.find(type) == std::string::npos)
                result.dropped += (result.dropped.empty() ? "" : " ") + type;
            progress(++done);
          }
          std::lock_guard<std::mutex> lock(free_mutex);
          free.push_back(job);
        }));
  });
  if (failed == nullptr) return result;
  const std::string& message = failed->message;
  if (n == 1) throw ToolError(failed->code, message);
  throw ToolError(failed->code, message + " (frame " + std::to_string(failed->index + 1) + " of " +
                                    std::to_string(n) + "; " + std::to_string(done) +
                                    (done == 1 ? " frame" : " frames") + " written before it, none after)");
}

}  // namespace cinebar_tool
