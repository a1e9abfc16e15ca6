#pragma once

#include "cnr/cnr_handle.h"

struct down_yuv_job {
  unsigned char* dst;
  unsigned char* src;
  unsigned char* dst_u;
  unsigned char* src_u;
  unsigned char* dst_v;
  unsigned char* src_v;
  int src_width;
  int dst_width;
  int src_height;
  int dst_height;
  int row_begin;
  int row_end;
  struct pool* pool;
};

VORN_API int pyramid_down_yuv(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                              _tag_uni_image* src_u, _tag_uni_image* dst_u, _tag_uni_image* src_v,
                              _tag_uni_image* dst_v);
VORN_API int gaussin3x3_down_yuv(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                 _tag_uni_image* src_u, _tag_uni_image* dst_u,
                                 _tag_uni_image* src_v, _tag_uni_image* dst_v);
VORN_API int gaussin3x3_down2_yuv_thread(cnr_handle_t* handle, unsigned char* src, int w, int h,
                                         unsigned char* dst, int dw, int dh, unsigned char* src_u,
                                         unsigned char* src_v, unsigned char* dst_u,
                                         unsigned char* dst_v);
VORN_API void* gaussin3x3_down2_yuv_process(void* job);
VORN_API int gaussin3x3_down_yuv_pro(unsigned char* src, int w, int h, unsigned char* dst, int dw,
                                     int dh, unsigned char* src_u, unsigned char* src_v,
                                     unsigned char* dst_u, unsigned char* dst_v, int row_begin,
                                     int row_end);
VORN_API int gaussin3x3_down_yuv(unsigned char* src, int w, int h, unsigned char* dst, int dw,
                                 int dh, unsigned char* src_u, unsigned char* src_v,
                                 unsigned char* dst_u, unsigned char* dst_v);
VORN_API int splituv_gaussin3x3_down(unsigned char* uv, unsigned char* u, unsigned char* v,
                                     unsigned char* y, int y_width, int y_height, int y_stride,
                                     unsigned char* y_dst, int dst_width, int dst_height,
                                     int dst_stride);
VORN_API int splituv_gaussin3x3_down_thread(cnr_handle_t* handle, unsigned char* uv,
                                            unsigned char* u, unsigned char* v, unsigned char* y,
                                            int y_width, int y_height, int y_stride,
                                            unsigned char* y_dst, int dst_width, int dst_height,
                                            int dst_stride);
VORN_API void* splituv_gaussin3x3_down_process(void* job);
