// The position mask: low (64) at the frame's centre, rising with the cube of the distance towards
// the corners. One byte per 4x4 block of the full-size frame, on a grid of width / 4 x height / 4.
//
// Shape:   width and height are the frame's, in pixels; the mask has its own stride.
// Writes:  width / 4 columns of the rows asked for, nothing beyond.
// Rounds:  d = city-block distance to (width / 8, height / 8), R = width / 8 + height / 8;
//          t = k (d / R)^3 in three truncating steps; the sample is 64 + t within 16..255.
//          pre_mask runs the chain in single precision in the columns below the last multiple of
//          8 and in whole numbers behind it; the two differ by a step or two. R = 0 gives 64.
// Errors:  none; a height below 4 writes nothing.
// Threads: pre_mask on the caller's, pre_mask_thread on the pool's. Only pre_mask is used.
#pragma once

#include "ynr/ynr_handle.h"

// One slice of pre_mask_thread: mask rows row_begin..row_end - 1.
struct pre_mask_job {
  _tag_uni_image* mask;
  int width;
  int height;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// The whole mask with k = 4 * (strength - 64), or 56 for strengths up to 63. src is not read.
// Returns 0.
VORN_API int pre_mask(_tag_uni_image* src, _tag_uni_image* mask, int width, int height,
                      int strength);

// The sliced variant, with k fixed at 256 and whole numbers in all columns. pre_mask_thread returns
// the wait's result, or -1 when a slice could not be queued; pre_mask_process is the job body;
// pre_mask_pro does rows row_start..row_end - 1 and returns 0.
VORN_API int pre_mask_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* mask,
                             int width, int height);
VORN_API void* pre_mask_process(void* job);
VORN_API int pre_mask_pro(_tag_uni_image* src, _tag_uni_image* mask, int width, int height,
                          int row_start, int row_end);
