// The halving of down2.h in the forms that only callers from outside take: rows of raw planes,
// whole planes on the calling thread, and a semi-planar frame brought to three planes.
//
// Reads:   as down2.h; when dst_width is below 8, also source columns up to 15.
// Writes:  as down2.h, but eight samples per row even when dst_width is below 8: kept on purpose
//          (Down2.NarrowRowsWriteTheirFirstBlock). The stages never do.
// The forms that take a handle are in cnr/exported/ and ynr/exported/.
#pragma once

#include "vorn_ycnr.h"

// One slice of gaussin3x3_down2_ynr_thread, whose body is gaussin3x3_down2_ynr_process.
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

// One slice of splituv_gaussin3x3_down_thread.
struct splituv_down_job {
  unsigned char* uv;
  unsigned char* u;
  unsigned char* v;
  unsigned char* y;
  int y_width;
  int y_height;
  int y_stride;
  unsigned char* y_dst;
  int dst_width;
  int dst_height;
  int dst_stride;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// Destination rows [row_begin, row_end). Returns 0.
VORN_API int gaussin3x3_down2_pro(unsigned char* src, int src_width, int src_height,
                                  unsigned char* dst, int dst_width, int dst_height, int row_begin,
                                  int row_end);

// The same with explicit strides.
VORN_API int gaussin3x3_down2_ynr_pro(unsigned char* src, int src_width, int src_height,
                                      int src_stride, unsigned char* dst, int dst_width,
                                      int dst_height, int dst_stride, int row_begin, int row_end);

// All rows, on the calling thread. Returns 0.
VORN_API int gaussin3x3_down2(unsigned char* src, int src_width, int src_height, int src_stride,
                              unsigned char* dst, int dst_width, int dst_height, int dst_stride);

VORN_API void* gaussin3x3_down2_ynr_process(void* job);

// Does nothing, returns 0: an exported placeholder.
VORN_API int pyramid_down2(unsigned char* src, int src_width, int src_height, unsigned char* dst,
                           int dst_width, int dst_height);

// Destination rows [row_begin, row_end) of the three planes. Returns 0.
VORN_API int gaussin3x3_down_yuv_pro(unsigned char* src, int w, int h, unsigned char* dst, int dw,
                                     int dh, unsigned char* src_u, unsigned char* src_v,
                                     unsigned char* dst_u, unsigned char* dst_v, int row_begin,
                                     int row_end);

// All rows of the three planes, on the calling thread. Returns 0.
VORN_API int gaussin3x3_down_yuv(unsigned char* src, int w, int h, unsigned char* dst, int dw,
                                 int dh, unsigned char* src_u, unsigned char* src_v,
                                 unsigned char* dst_u, unsigned char* dst_v);

// Brings a semi-planar frame to three planes of dst_width x dst_height: u and v (rows dst_width
// apart) are the pairs of uv (rows y_width bytes apart), y_dst is y halved. Unlike the forms above
// every output sees the edge samples repeated on both sides. u and v may overlap uv; pairs are then
// taken one at a time, in order. Returns 0.
VORN_API int splituv_gaussin3x3_down(unsigned char* uv, unsigned char* u, unsigned char* v,
                                     unsigned char* y, int y_width, int y_height, int y_stride,
                                     unsigned char* y_dst, int dst_width, int dst_height,
                                     int dst_stride);

// The body of one slice (a splituv_down_job), whose planes must not overlap.
VORN_API void* splituv_gaussin3x3_down_process(void* job);
