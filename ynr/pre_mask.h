// The position mask: low (64) at the frame's centre, rising with the cube of the distance towards
// the corners. One byte per 4x4 block of the full-size frame, on a grid of width / 4 x height / 4.
//
// Shape:   width and height are the frame's, in pixels; the mask has its own stride.
// Writes:  width / 4 columns, height / 4 rows, nothing beyond.
// Rounds:  d = city-block distance to (width / 8, height / 8), R = width / 8 + height / 8;
//          t = k (d / R)^3 in three truncating steps; the sample is 64 + t within 16..255.
//          The chain runs in single precision in the columns below the last multiple of 8 and in
//          whole numbers behind it; the two differ by a step or two. R = 0 gives 64.
// Errors:  none; a height below 4 writes nothing.
#pragma once

#include "vorn_ycnr.h"

// The whole mask with k = 4 * (strength - 64), or 56 for strengths up to 63, on the caller's
// thread. src is not read. Returns 0.
VORN_API int pre_mask(_tag_uni_image* src, _tag_uni_image* mask, int width, int height,
                      int strength);

namespace vorn {

struct mask_grid {
  int columns, rows;
  int centre_x, centre_y;
  int normaliser;  // R
  mask_grid(int width, int height)
      : columns(width / 4),
        rows(height / 4),
        centre_x(width / 8),
        centre_y(height / 8),
        normaliser(width / 8 + height / 8) {}
};

// The sample at distance d by the chain of whole numbers.
unsigned char mask_sample(int k, int d, int normaliser);

}  // namespace vorn
