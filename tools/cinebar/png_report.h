// libpng's error hooks for the tool's readers and writers: the first error
// text is kept for the user's message and libpng unwinds to its setjmp;
// warnings are not the user's business.
#pragma once

#include <png.h>

#include <cstdio>

namespace cinebar_tool {

struct PngReport {
  char message[200] = "";
};

inline void OnPngError(png_structp png, png_const_charp message) {
  auto* report = static_cast<PngReport*>(png_get_error_ptr(png));
  std::snprintf(report->message, sizeof report->message, "%s", message);
  png_longjmp(png, 1);
}

inline void OnPngWarning(png_structp, png_const_charp) {}

}  // namespace cinebar_tool
