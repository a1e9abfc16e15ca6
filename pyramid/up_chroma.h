#pragma once

#include "cnr/cnr_handle.h"

struct up_job {
  _tag_uni_image* out_u;
  _tag_uni_image* small_u;
  _tag_uni_image* out_v;
  _tag_uni_image* small_v;
  int row_begin;
  int row_end;
  struct pool* pool;
};

struct up_uv_job {
  unsigned char* dst_uv;
  _tag_uni_image* out_u;
  _tag_uni_image* small_u;
  _tag_uni_image* out_v;
  _tag_uni_image* small_v;
  int row_begin;
  int row_end;
  struct pool* pool;
};

VORN_API int pyramid_up2(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                         _tag_uni_image* small_v, _tag_uni_image* out_v);
VORN_API int gaussin3x3_up_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                  _tag_uni_image* out_u, _tag_uni_image* small_v,
                                  _tag_uni_image* out_v);
VORN_API void* gaussin3x3_up_process(void* job);
VORN_API int gaussin3x3_up_pro(_tag_uni_image* small_u, _tag_uni_image* out_u,
                               _tag_uni_image* small_v, _tag_uni_image* out_v, int row_begin,
                               int row_end);
VORN_API int gaussin3x3_up_odd(_tag_uni_image* small_u, _tag_uni_image* out_u,
                               _tag_uni_image* small_v, _tag_uni_image* out_v);
VORN_API int pyramid_up_uv(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                           _tag_uni_image* small_v, _tag_uni_image* out_v, unsigned char* dst_uv);
VORN_API int gaussin3x3_up_uv_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                     _tag_uni_image* out_u, _tag_uni_image* small_v,
                                     _tag_uni_image* out_v, unsigned char* dst_uv);
VORN_API void* gaussin3x3_up_uv_process(void* job);
VORN_API int gaussin3x3_up_uv_pro(_tag_uni_image* small_u, _tag_uni_image* out_u,
                                  _tag_uni_image* small_v, _tag_uni_image* out_v,
                                  unsigned char* dst_uv, int row_begin, int row_end);
VORN_API int gaussin3x3_up(_tag_uni_image* small_u, _tag_uni_image* out_u, _tag_uni_image* small_v,
                           _tag_uni_image* out_v, unsigned char* dst_uv);
