// Reads one PNG, signature to IEND, from a stream that need not seek, into a
// frame: what libpng refuses is refused with the reason (ToolError(kExitInput)).
#pragma once

#include <cstdio>
#include <string>

#include "tools/cinebar/frame.h"

namespace cinebar_tool {

enum class ReadPart {
  kHeader,  // size, form and chunks; the image data's CRCs checked but not kept
  kWhole,   // and the picture
};

// False at a clean end of `in` before the PNG's first byte (the end of a
// stream of frames); `name` names the input in errors. A frame larger than the
// host holds, or larger than its image data could inflate to, is refused
// before any memory is sized by it.
bool ReadPng(std::FILE* in, const std::string& name, Frame& frame, ReadPart part = ReadPart::kWhole);

}  // namespace cinebar_tool
