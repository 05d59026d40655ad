// `cinebar render IN OUT`, in stages: plan (which frames, and may the outputs
// be written), probe (the first frame, and with --dry-run every size),
// configure (the module, the user's edits, what will be used), run (the
// frame pipeline) and report (the summary and the exit code).
#pragma once

#include <string>

#include "tools/cinebar/options.h"
#include "tools/cinebar/tool.h"

namespace cinebar_tool {

int RenderCommand(const Options& options, const std::string& module_path, Console& console);

}  // namespace cinebar_tool
