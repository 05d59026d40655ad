// The host's drawing functions on any PF_LayerDef the module hands over: the
// bodies of the Fill Matte Suite's fill/fill16 and the World Transform Suite's
// copy. Rectangles are right and bottom exclusive and clipped to the worlds;
// an empty or inverted rectangle draws nothing.
#pragma once

#include <string>

#include "hostapi/ae_effect.h"

namespace cinebar_simhost {

// Empty when the call was carried out; otherwise why the world or the
// rectangles were refused (the caller answers PF_Err_BAD_CALLBACK_PARAM).
using PixelProblem = std::string;

// Sets every pixel of `rect` (the whole world when null) to `color`, all four
// channels. fill wants an 8-bit world, fill16 a deep one. Without `draw` the
// call is checked alike and no pixel is touched (a world without pixels).
PixelProblem FillRect8(const PF_Pixel& color, const PF_Rect* rect, PF_LayerDef& world, bool draw = true);
PixelProblem FillRect16(const PF_Pixel16& color, const PF_Rect* rect, PF_LayerDef& world, bool draw = true);

// Copies src_rect of src to dst_rect of dst (null rectangles mean the whole
// world). Both rectangles must have the same size and both worlds the same
// depth; pixels whose source or destination lies outside its world are skipped.
PixelProblem CopyRect(const PF_LayerDef& src, PF_LayerDef& dst, const PF_Rect* src_rect,
                      const PF_Rect* dst_rect, bool draw = true);

// The pixels of `world` a fill of `rect` sets, and the pixels of `dst` a copy
// writes (for rectangles of one size); {0, 0, 0, 0} when none.
PF_Rect FilledArea(const PF_Rect* rect, const PF_LayerDef& world);
PF_Rect CopiedArea(const PF_LayerDef& src, const PF_LayerDef& dst, const PF_Rect* src_rect,
                   const PF_Rect* dst_rect);

}  // namespace cinebar_simhost
