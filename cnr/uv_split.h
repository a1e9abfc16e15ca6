#pragma once

#include "cnr/cnr_handle.h"

// [start, end) are byte offsets into the interleaved plane, start even.
struct split_uv_job {
  unsigned char* dst_u;
  unsigned char* dst_v;
  unsigned char* src_uv;
  int saturation;
  int start;
  int end;
  struct pool* pool;
};

struct merge_uv_job {
  unsigned char* src_u;
  unsigned char* src_v;
  unsigned char* dst_uv;
  int start;
  int end;
  struct pool* pool;
};

VORN_API void* split_UV_process(void* job);
VORN_API void* split_UV_saturation_process(void* job);
VORN_API void* mergeUV_process(void* job);
VORN_API int split_UV_thread(cnr_handle_t* handle, unsigned char* src_uv, unsigned char* dst_u,
                             unsigned char* dst_v, int width, int rows);
VORN_API int split_UV_saturation_thread(cnr_handle_t* handle, unsigned char* src_uv,
                                        unsigned char* dst_u, unsigned char* dst_v, int saturation,
                                        int width, int rows);
VORN_API int mergeUV_thread(cnr_handle_t* handle, unsigned char* dst_uv, unsigned char* src_u,
                            unsigned char* src_v, int width, int rows);
