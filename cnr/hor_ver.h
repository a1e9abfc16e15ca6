// Smooths a U and a V plane along rows or along columns, each pixel over neighbours that resemble
// it in luma, U and V.
//
// Shape   five images of one size, width = stride.
// Reads   the guide and both sources, up to smooth_radius pixels along the axis and never beyond
//         the level.
// Writes  dst_u and dst_v. Sources and destinations are different planes.
// Rounds  (sum + bias) / weight, truncated, the bias 0 to 3/4 of the weight by a fixed dither.
// Errors  -1 when a job could not be queued. Any tuning is defined: a radius or step below 1 has no
//         taps, a range factor of 0 no weights.
// Threads four jobs on the handle's pool that share the rows.
#pragma once

#include "cnr/cnr_handle.h"

VORN_API int reduce_color_noise_hor_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                           _tag_uni_image* src_u, _tag_uni_image* src_v,
                                           _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                           _tag_cnr_param* param);
VORN_API int reduce_color_noise_ver_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                           _tag_uni_image* src_u, _tag_uni_image* src_v,
                                           _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                           _tag_cnr_param* param);

namespace vorn {

// A horizontal pass that takes src_u and src_v apart from U,V pairs on its way, a few rows at a
// time: split_UV_thread and the pass in one stage.
int split_and_filter_hor(cnr_handle_t* handle, const unsigned char* src_uv,
                         const _tag_uni_image& guide, const _tag_uni_image& src_u,
                         const _tag_uni_image& src_v, const _tag_uni_image& dst_u,
                         const _tag_uni_image& dst_v, const _tag_cnr_param& param);

// A vertical pass into U,V pairs: the pass and mergeUV_thread in one stage, and no planes written
// in between where the kernels can run the pass. dst_u and dst_v are for where they cannot.
int filter_ver_to_pairs(cnr_handle_t* handle, const _tag_uni_image& guide,
                        const _tag_uni_image& src_u, const _tag_uni_image& src_v,
                        const _tag_uni_image& dst_u, const _tag_uni_image& dst_v,
                        unsigned char* dst_uv, const _tag_cnr_param& param);

}  // namespace vorn
