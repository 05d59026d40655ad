// The picture rectangle: where the image stays and the bars begin.
#pragma once

#include "hostapi/ae_effect.h"

// The largest centred rectangle of display ratio `aspect_ratio` in a world of
// width × height, for the given downsampling and pixel aspect. Computed step
// by step in single precision, with 16-bit coordinates, as the effect always has.
PF_Rect ComputePictureRect(A_long width, A_long height, float aspect_ratio, PF_RationalScale downsample_x,
                           PF_RationalScale downsample_y, PF_RationalScale pixel_aspect_ratio);
