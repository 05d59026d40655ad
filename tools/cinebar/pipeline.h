// The frame pipeline of `cinebar render`: plan -> read -> render -> write ->
// commit, on --jobs workers (TBB). Frames are read and written in parallel,
// rendered one module call at a time, and committed (renamed from their
// temporaries) in order, so an interrupted or failed render leaves whole
// frames only, and none after a failure.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/layer.h"
#include "tools/cinebar/plan.h"
#include "tools/cinebar/session.h"
#include "tools/cinebar/temporaries.h"

namespace cinebar_tool {

struct PipelineSettings {
  int jobs = 1;
  WriteSettings write;
  bool skip_bad = false;              // unreadable inputs are listed and passed over
  const PF_Pixel* opaque = nullptr;   // opaque bars of this colour (Layer::Render)
  Replace replace = Replace::kNever;  // outputs that exist (--overwrite)
};

struct Skipped {
  std::string in, why;
};

struct PipelineResult {
  std::vector<Skipped> skipped;
  std::vector<Skipped> lost;  // outputs another program created meanwhile, left as they are
  std::string dropped;        // chunk types not copied to some output
};

// Renders every frame through `layer`; `progress` is called after each frame
// is in place. On a failure the frames before it
// stay written, no later one appears, and the ToolError names the frame.
PipelineResult RenderSequence(const std::vector<FramePair>& frames, Layer& layer, Temporaries& temps,
                              const PipelineSettings& settings,
                              const std::function<void(std::size_t)>& progress);

}  // namespace cinebar_tool
