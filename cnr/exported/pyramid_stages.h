// The pyramid's stages under the names that take the chroma handle: the same work on its pool.
// Shape, reads, writes, rounding and errors stand in the headers of pyramid/ and pyramid/exported/.
#pragma once

#include "cnr/cnr_handle.h"

// First planes of two images, halved; rows lie width bytes apart. Then the same from raw planes.
VORN_API int pyramid_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);
VORN_API int gaussin3x3_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);
VORN_API int gaussin3x3_down2_thread(cnr_handle_t* handle, unsigned char* src, int src_width,
                                     int src_height, unsigned char* dst, int dst_width,
                                     int dst_height);

// Three planes halved together.
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

// splituv_gaussin3x3_down in four slices, whose planes must not overlap.
VORN_API int splituv_gaussin3x3_down_thread(cnr_handle_t* handle, unsigned char* uv,
                                            unsigned char* u, unsigned char* v, unsigned char* y,
                                            int y_width, int y_height, int y_stride,
                                            unsigned char* y_dst, int dst_width, int dst_height,
                                            int dst_stride);

// gaussin3x3_up2_merge1 of both chroma planes.
VORN_API int gaussin3x3_up2_merge1_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                          _tag_uni_image* up_u, _tag_uni_image* detail_u,
                                          _tag_uni_image* small_v, _tag_uni_image* up_v,
                                          _tag_uni_image* detail_v);

// Both planes doubled: rows of every slice but its last two, and rows H-2 and H-1.
VORN_API int pyramid_up2(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                         _tag_uni_image* small_v, _tag_uni_image* out_v);
VORN_API int gaussin3x3_up_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                  _tag_uni_image* out_u, _tag_uni_image* small_v,
                                  _tag_uni_image* out_v);

// Both planes doubled into one plane of U,V pairs, all rows; row H-1 is a copy of row H-2.
VORN_API int pyramid_up_uv(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                           _tag_uni_image* small_v, _tag_uni_image* out_v, unsigned char* dst_uv);
VORN_API int gaussin3x3_up_uv_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                     _tag_uni_image* out_u, _tag_uni_image* small_v,
                                     _tag_uni_image* out_v, unsigned char* dst_uv);

// Both planes smoothed at full resolution. Then the same from raw planes.
VORN_API int pyramid_uv(cnr_handle_t* handle, _tag_uni_image* src_u, _tag_uni_image* src_v,
                        _tag_uni_image* dst_u, _tag_uni_image* dst_v);
VORN_API int gaussin3x3_uv(cnr_handle_t* handle, _tag_uni_image* src_u, _tag_uni_image* src_v,
                           _tag_uni_image* dst_u, _tag_uni_image* dst_v);

VORN_API int gaussin3x3_uv_thread(cnr_handle_t* handle, int src_width, int src_height,
                                  int dst_width, int dst_height, unsigned char* src_u,
                                  unsigned char* src_v, unsigned char* dst_u, unsigned char* dst_v);
