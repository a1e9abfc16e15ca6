// The window's walks that only callers from outside take: slices, whole levels on the calling
// thread, and the 5x5 window with distances taken on a guide image. Shape, reads, writes and
// rounding are those of window.h; images are not checked.
#pragma once

#include "vorn_ycnr.h"

struct pool;

// One slice of a level: rows row_begin..row_end - 1, row_begin a multiple of 4.
struct nlm_slice_job {
  _tag_uni_image* src;
  _tag_uni_image* dst;
  _tag_uni_image* mask;
  int* weight_map;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// The rows of a slice, and the body of a job over one (an nlm_slice_job).
VORN_API int process3x3_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                            int* weight_map, int row_begin, int row_end);
VORN_API int process5x5_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                            int* weight_map, int row_begin, int row_end);
VORN_API int process7x7_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                            int* weight_map, int row_begin, int row_end);

VORN_API void* process3x3_process(void* job);
VORN_API void* process5x5_process(void* job);
VORN_API void* process7x7_process(void* job);

// A whole level on the caller's thread.
VORN_API int Process3x3(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);
VORN_API int Process5x5(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);
VORN_API int Process7x7(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);

// Every block by the scalar rule, with distances taken on the guide. The second builds the weights
// of an intensity first, whatever the radius.
VORN_API int Process5x5_Guided(_tag_uni_image* src, _tag_uni_image* guide, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);
VORN_API int nlm_denoise_guided_process(_tag_uni_image* src, _tag_uni_image* guide,
                                        _tag_uni_image* dst, _tag_uni_image* mask, int intensity,
                                        int radius);
