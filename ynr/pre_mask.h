#pragma once

#include "ynr/ynr_handle.h"

struct pre_mask_job {
  _tag_uni_image* mask;
  int width;
  int height;
  int row_begin;
  int row_end;
  struct pool* pool;
};

VORN_API int pre_mask(_tag_uni_image* src, _tag_uni_image* mask, int width, int height,
                      int strength);
VORN_API int pre_mask_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* mask,
                             int width, int height);
VORN_API void* pre_mask_process(void* job);
VORN_API int pre_mask_pro(_tag_uni_image* src, _tag_uni_image* mask, int width, int height,
                          int row_start, int row_end);
