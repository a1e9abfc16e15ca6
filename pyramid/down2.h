#pragma once

#include "cnr/cnr_handle.h"
#include "ynr/ynr_handle.h"

struct down2_job {
  unsigned char* dst;
  unsigned char* src;
  int src_width;
  int dst_width;
  int src_height;
  int dst_height;
  int row_begin;
  int row_end;
  struct pool* pool;
};

struct down2_ynr_job {
  unsigned char* dst;
  unsigned char* src;
  int src_width;
  int dst_width;
  int src_height;
  int dst_height;
  int src_stride;
  int dst_stride;
  int row_begin;
  int row_end;
  struct pool* pool;
};

VORN_API int gaussin3x3_down2_pro(unsigned char* src, int src_width, int src_height,
                                  unsigned char* dst, int dst_width, int dst_height, int row_begin,
                                  int row_end);
VORN_API int gaussin3x3_down2_ynr_pro(unsigned char* src, int src_width, int src_height,
                                      int src_stride, unsigned char* dst, int dst_width,
                                      int dst_height, int dst_stride, int row_begin, int row_end);
VORN_API int gaussin3x3_down2(unsigned char* src, int src_width, int src_height, int src_stride,
                              unsigned char* dst, int dst_width, int dst_height, int dst_stride);
VORN_API int gaussin3x3_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);
VORN_API int gaussin3x3_down2_thread(cnr_handle_t* handle, unsigned char* src, int src_width,
                                     int src_height, unsigned char* dst, int dst_width,
                                     int dst_height);
VORN_API void* gaussin3x3_down2_process(void* job);
VORN_API int gaussin3x3_down2_ynr(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);
VORN_API int gaussin3x3_down2_ynr_thread(ynr_handle_t* handle, unsigned char* src, int src_width,
                                         int src_height, int src_stride, unsigned char* dst,
                                         int dst_width, int dst_height, int dst_stride);
VORN_API void* gaussin3x3_down2_ynr_process(void* job);
VORN_API int pyramid_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);
VORN_API int pyramid_down2(unsigned char* src, int src_width, int src_height, unsigned char* dst,
                           int dst_width, int dst_height);
