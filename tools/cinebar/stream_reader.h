// Frames concatenated on a stream (what `ffmpeg -f image2pipe -c:v png -`
// writes), one at a time.
#pragma once

#include <cstdio>
#include <string>

#include "tools/cinebar/frame.h"

namespace cinebar_tool {

// Reads the next PNG, signature to IEND, into `frame`; false at a clean end
// of the stream before its first byte. Memory grows only as bytes arrive.
// Throws ToolError(kExitInput) naming `name`.
bool ReadStreamFrame(std::FILE* in, const std::string& name, Frame& frame);

}  // namespace cinebar_tool
