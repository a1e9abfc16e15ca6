#pragma once

#include "cnr/cnr_handle.h"

struct hor_ver_job {
  _tag_uni_image* guide;
  _tag_uni_image* src_u;
  _tag_uni_image* src_v;
  _tag_uni_image* dst_u;
  _tag_uni_image* dst_v;
  _tag_cnr_param* param;
  int row_begin;
  int row_end;
  struct pool* pool;
  int job_index;
};

struct vermerge_job {
  _tag_uni_image* guide;
  _tag_uni_image* src_u;
  _tag_uni_image* src_v;
  _tag_uni_image* dst_u;
  _tag_uni_image* dst_v;
  _tag_cnr_param* param;
  int row_begin;
  int row_end;
  struct pool* pool;
  int job_index;
  unsigned char* dst_uv;
};

VORN_API int reduce_color_noise_hor_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                           _tag_uni_image* src_u, _tag_uni_image* src_v,
                                           _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                           _tag_cnr_param* param);
VORN_API int reduce_color_noise_ver_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                           _tag_uni_image* src_u, _tag_uni_image* src_v,
                                           _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                           _tag_cnr_param* param);
VORN_API int reduce_color_noise_vermerge_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                                _tag_uni_image* src_u, _tag_uni_image* src_v,
                                                _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                                _tag_cnr_param* param, unsigned char* dst_uv);
VORN_API void* reduce_color_noise_hor_process(void* job);
VORN_API void* reduce_color_noise_ver_process(void* job);
VORN_API void* reduce_color_noise_vermerge_process(void* job);
