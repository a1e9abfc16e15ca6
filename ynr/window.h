// Denoises one pyramid level with the 3x3, 5x5 or 7x7 window, block row by block row.
//
// Shape:   blocks of 4x4 pixels; pairs of blocks up to the last multiple of 8 columns, single
//          blocks behind it. A pair with two nonzero mask values takes the vector rule, every other
//          block the scalar rule. The mask has one byte per block of the full-size frame; null
//          means 64 everywhere; 0 leaves a block of dst as it is.
// Reads:   1, 2 or 3 pixels beyond the level, rounded up to whole blocks, on all sides.
// Writes:  whole blocks: up to the next multiple of 4 in both directions.
// Rounds:  see block_rules.h and block_pair.h.
// Errors:  images are not checked. The sliced forms return -1 when a slice could not be queued.
// Threads: nlm_denoise_process and process<w>_thread run four jobs on the pool, which share the
//          block rows. The others run on the caller's thread.
#pragma once

#include "ynr/ynr_handle.h"

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

// Denoises with the window that radius (3, 5, 7) names; any other radius copies src. Returns 0.
VORN_API int nlm_denoise_process(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                 _tag_uni_image* mask, int intensity, int radius);

// Denoises with the 5x5 window and distances taken on a guide image, whatever the radius.
VORN_API int nlm_denoise_guided_process(_tag_uni_image* src, _tag_uni_image* guide,
                                        _tag_uni_image* dst, _tag_uni_image* mask, int intensity,
                                        int radius);

// A level on the pool; the body of a job over one slice; the rows of one slice.
VORN_API int process3x3_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);
VORN_API int process5x5_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);
VORN_API int process7x7_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);
VORN_API void* process3x3_process(void* job);
VORN_API void* process5x5_process(void* job);
VORN_API void* process7x7_process(void* job);
VORN_API int process3x3_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                            int* weight_map, int row_begin, int row_end);
VORN_API int process5x5_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                            int* weight_map, int row_begin, int row_end);
VORN_API int process7x7_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                            int* weight_map, int row_begin, int row_end);

// A whole level on the caller's thread.
VORN_API int Process3x3(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);
VORN_API int Process5x5(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);
VORN_API int Process7x7(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);
VORN_API int Process5x5_Guided(_tag_uni_image* src, _tag_uni_image* guide, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);
