// The frame pipeline of `cinebar render`: take -> read -> render -> encode ->
// commit, on --jobs workers (TBB). Files are read and encoded in parallel,
// frames rendered one module call at a time and committed in order: linked
// in under their names, or written to the output stream. An interrupted or
// failed render leaves whole frames only, and none after a failure.
#pragma once

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/layer.h"
#include "tools/cinebar/plan.h"
#include "tools/cinebar/temporaries.h"

namespace cinebar_tool {

// Reads the next frame of a stream; false at its clean end.
using StreamReader = std::function<bool(std::FILE* in, const std::string& name, Frame& frame)>;

struct PipelineSettings {
  int jobs = 1;
  WriteSettings write;
  bool skip_bad = false;               // unreadable inputs are listed and passed over
  const PF_Pixel* opaque = nullptr;    // opaque bars of this colour (Layer::Render)
  Replace replace = Replace::kNever;   // outputs that exist (--overwrite)
  std::FILE* in = nullptr;             // frames come from this stream, not from the plan's files
  StreamReader read;                   // how, with `in`
  std::FILE* out = nullptr;            // frames go to this stream, not to the plan's files
  std::optional<NumberPattern> names;  // the files of frames read from `in`, numbered from 1
};

struct Skipped {
  std::string in, why;
};

struct PipelineResult {
  std::size_t written = 0;
  std::vector<Skipped> skipped;
  std::vector<Skipped> lost;         // outputs another program created meanwhile, left as they are
  std::vector<std::string> dropped;  // chunk types not copied to some output, once each
};

// Renders every frame through `layer`; `progress` is called after each frame
// is in place. On a failure the frames before it stay written, no later one
// appears, and the ToolError names the frame.
PipelineResult RenderSequence(const std::vector<FramePair>& frames, Layer& layer, Temporaries& temps,
                              const PipelineSettings& settings,
                              const std::function<void(std::size_t)>& progress);

}  // namespace cinebar_tool
