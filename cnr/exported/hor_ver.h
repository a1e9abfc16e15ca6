// The directional chroma filters in the forms that only callers from outside take: slices, and a
// vertical pass that writes interleaved chroma. Reads, rounding, errors as in cnr/hor_ver.h.
//
// Writes  rows row_begin..row_end-1 of dst_u and dst_v; vermerge of dst_uv alone, width * 2 bytes
//         per row.
// Rounds  vermerge to nearest, without dither.
// Threads vermerge four slices; each _process signals its pool last.
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

VORN_API int reduce_color_noise_vermerge_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                                _tag_uni_image* src_u, _tag_uni_image* src_v,
                                                _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                                _tag_cnr_param* param, unsigned char* dst_uv);
VORN_API void* reduce_color_noise_hor_process(void* job);
VORN_API void* reduce_color_noise_ver_process(void* job);
VORN_API void* reduce_color_noise_vermerge_process(void* job);
