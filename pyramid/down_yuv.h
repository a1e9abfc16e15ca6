// Halves three planes of one size together: the chroma pyramid's guide, U and V.
//
// Shape:   three sources of w x h, three destinations of dw x dh, rows as far apart as they are
//          wide.
// Reads, writes and rounding are those of down2.h for each plane.
// Errors:  -1 from the stages when a job could not be queued. Pointers and sizes are not checked.
// Threads: four slices of dh / 4 rows; the raw overload and the split run on the caller's thread.
#pragma once

#include "cnr/cnr_handle.h"

// One slice of gaussin3x3_down2_yuv_thread.
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

// First planes of six images on the chroma pool. Returns 0.
VORN_API int pyramid_down_yuv(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                              _tag_uni_image* src_u, _tag_uni_image* dst_u, _tag_uni_image* src_v,
                              _tag_uni_image* dst_v);
VORN_API int gaussin3x3_down_yuv(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                 _tag_uni_image* src_u, _tag_uni_image* dst_u,
                                 _tag_uni_image* src_v, _tag_uni_image* dst_v);

// The same stage from raw planes, and the body of one of its jobs (a down_yuv_job).
VORN_API int gaussin3x3_down2_yuv_thread(cnr_handle_t* handle, unsigned char* src, int w, int h,
                                         unsigned char* dst, int dw, int dh, unsigned char* src_u,
                                         unsigned char* src_v, unsigned char* dst_u,
                                         unsigned char* dst_v);
VORN_API void* gaussin3x3_down2_yuv_process(void* job);

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

// The same in four slices, whose planes must not overlap, and the body of one (a splituv_down_job).
VORN_API int splituv_gaussin3x3_down_thread(cnr_handle_t* handle, unsigned char* uv,
                                            unsigned char* u, unsigned char* v, unsigned char* y,
                                            int y_width, int y_height, int y_stride,
                                            unsigned char* y_dst, int dst_width, int dst_height,
                                            int dst_stride);
VORN_API void* splituv_gaussin3x3_down_process(void* job);
