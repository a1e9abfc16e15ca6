#pragma once

#include "cnr/cnr_handle.h"

struct blur_uv_job {
  unsigned char* src_u;
  unsigned char* src_v;
  unsigned char* dst_u;
  unsigned char* dst_v;
  int src_width;
  int src_height;
  int dst_width;
  int dst_height;
  int row_begin;
  int row_end;
  struct pool* pool;
};

VORN_API int GaussianBlur3x3(_tag_uni_image* src, _tag_uni_image* dst);
VORN_API int pyramid_uv(cnr_handle_t* handle, _tag_uni_image* src_u, _tag_uni_image* src_v,
                        _tag_uni_image* dst_u, _tag_uni_image* dst_v);
VORN_API int gaussin3x3_uv(cnr_handle_t* handle, _tag_uni_image* src_u, _tag_uni_image* src_v,
                           _tag_uni_image* dst_u, _tag_uni_image* dst_v);
VORN_API int gaussin3x3_uv_thread(cnr_handle_t* handle, int src_width, int src_height,
                                  int dst_width, int dst_height, unsigned char* src_u,
                                  unsigned char* src_v, unsigned char* dst_u,
                                  unsigned char* dst_v);
VORN_API void* gaussin3x3_uv_process(void* job);
VORN_API int gaussin3x3_uv_pro(int src_width, int src_height, int dst_width, int dst_height,
                               unsigned char* src_u, unsigned char* src_v, unsigned char* dst_u,
                               unsigned char* dst_v, int row_begin, int row_end);
