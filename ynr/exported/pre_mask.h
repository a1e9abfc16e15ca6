// The position mask in slices, with k fixed at 256 and whole numbers in all columns: see
// ynr/pre_mask.h.
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

// pre_mask_thread returns the wait's result, or -1 when a slice could not be queued;
// pre_mask_process is the job body; pre_mask_pro does rows row_start..row_end - 1 and returns 0.
VORN_API int pre_mask_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* mask,
                             int width, int height);
VORN_API void* pre_mask_process(void* job);
VORN_API int pre_mask_pro(_tag_uni_image* src, _tag_uni_image* mask, int width, int height,
                          int row_start, int row_end);
