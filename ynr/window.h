#pragma once

#include "ynr/ynr_handle.h"

struct nlm_slice_job {
  _tag_uni_image* src;
  _tag_uni_image* dst;
  _tag_uni_image* mask;
  int* weight_map;
  int row_begin;
  int row_end;
  struct pool* pool;
};

VORN_API int nlm_denoise_process(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                 _tag_uni_image* mask, int intensity, int radius);
VORN_API int nlm_denoise_guided_process(_tag_uni_image* src, _tag_uni_image* guide,
                                        _tag_uni_image* dst, _tag_uni_image* mask, int intensity,
                                        int radius);
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
VORN_API int Process3x3(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);
VORN_API int Process5x5(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);
VORN_API int Process7x7(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask,
                        int* weight_map);
VORN_API int Process5x5_Guided(_tag_uni_image* src, _tag_uni_image* guide, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);
