// The directional chroma filters steered by a mask: 0 passes a pixel through, larger values divide
// the colour distance and so smooth harder (64 leaves it as it is).
//
// Shape   as in hor_ver.h; the mask is sampled by integer steps of level width / mask width on both
//         axes, its rows mask->width bytes apart. A mask that is wider than the level, or 0 wide,
//         is its first byte.
// Reads   as in hor_ver.h; mask positions past its last byte read its last byte.
// Writes  rows row_begin..row_end-1 of dst_u and dst_v; vermerge of dst_uv alone.
// Rounds  to nearest through a table of reciprocals, without dither.
// Errors  the _thread functions return -1 when a slice could not be queued.
// Threads four row slices; each _process signals its pool last.
#pragma once

#include "cnr/cnr_handle.h"

// One slice of a masked pass; dst_uv is read by vermerge only.
struct hor_ver_mask_job {
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
  _tag_uni_image* mask;
  unsigned char* dst_uv;
};

VORN_API int reduce_color_noise_mask_hor_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                                _tag_uni_image* src_u, _tag_uni_image* src_v,
                                                _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                                _tag_cnr_param* param, _tag_uni_image* mask);
VORN_API int reduce_color_noise_mask_ver_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                                _tag_uni_image* src_u, _tag_uni_image* src_v,
                                                _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                                _tag_cnr_param* param, _tag_uni_image* mask);
VORN_API int reduce_color_noise_mask_vermerge_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                                     _tag_uni_image* src_u, _tag_uni_image* src_v,
                                                     _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                                     _tag_cnr_param* param, unsigned char* dst_uv,
                                                     _tag_uni_image* mask);
VORN_API void* reduce_color_noise_mask_hor_process(void* job);
VORN_API void* reduce_color_noise_mask_ver_process(void* job);
VORN_API void* reduce_color_noise_mask_vermerge_process(void* job);
