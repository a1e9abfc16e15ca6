#pragma once

#include "cnr/cnr_handle.h"

VORN_API int reduce_color_noise_mask_hor_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                                _tag_uni_image* src_u, _tag_uni_image* src_v,
                                                _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                                _tag_cnr_param* param, _tag_uni_image* mask);
VORN_API int reduce_color_noise_mask_ver_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                                _tag_uni_image* src_u, _tag_uni_image* src_v,
                                                _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                                _tag_cnr_param* param, _tag_uni_image* mask);
VORN_API int reduce_color_noise_mask_vermerge_thread(
    cnr_handle_t* handle, _tag_uni_image* guide, _tag_uni_image* src_u, _tag_uni_image* src_v,
    _tag_uni_image* dst_u, _tag_uni_image* dst_v, _tag_cnr_param* param, unsigned char* dst_uv,
    _tag_uni_image* mask);
VORN_API void* reduce_color_noise_mask_hor_process(void* job);
VORN_API void* reduce_color_noise_mask_ver_process(void* job);
VORN_API void* reduce_color_noise_mask_vermerge_process(void* job);
