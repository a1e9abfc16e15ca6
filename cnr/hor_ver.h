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
