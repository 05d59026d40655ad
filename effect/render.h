// The bars: picture geometry and the render of one frame.
#pragma once

#include "hostapi/ae_effect.h"

// The largest centred rectangle of display ratio `aspect_ratio` in a world of
// width × height, for the given downsampling and pixel aspect. Computed step
// by step in single precision, with 16-bit coordinates, as the effect always has.
PF_Rect ComputePictureRect(A_long width, A_long height, float aspect_ratio, PF_RationalScale downsample_x,
                           PF_RationalScale downsample_y, PF_RationalScale pixel_aspect_ratio);

// 8-bit to 16-bit by ×128: 255 becomes 32640, deliberately short of 32768.
PF_Pixel16 Pixel8To16(PF_Pixel pixel);

void RenderBars(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output);
