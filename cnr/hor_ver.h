// Smooths a U and a V plane along rows or along columns, each pixel over neighbours that resemble
// it in luma, U and V.
//
// Shape   five images of one size, width = stride. vermerge writes dst_uv, width * 2 bytes per row.
// Reads   the guide and both sources, up to smooth_radius pixels along the axis and never beyond
//         the level.
// Writes  rows row_begin..row_end-1 of dst_u and dst_v (vermerge: of dst_uv alone). Sources and
//         destinations are different planes.
// Rounds  (sum + bias) / weight, truncated, the bias 0 to 3/4 of the weight by a fixed dither;
//         vermerge rounds to nearest without dither.
// Errors  the _thread functions return -1 when a slice could not be queued. Any tuning is defined:
//         a radius or step below 1 has no taps, a range factor of 0 no weights.
// Threads four jobs that share the rows (vermerge: four slices); each _process signals its pool
//         last.
#pragma once

#include "cnr/cnr_handle.h"

// One slice of the horizontal or vertical pass.
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

// One slice of the vertical pass that writes interleaved chroma.
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
