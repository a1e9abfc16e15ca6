// The chroma driver with the filters of hor_ver_mask.h, on one level. Nothing in the library runs
// it.
//
// Shape, reads, writes, errors and threads are those of cnr_driver.h. handle is the
// denoise_handle_t.
#pragma once

#include "cnr/cnr_handle.h"

// Half-size chroma when param->scale is not 0.
VORN_API int color_noise_reduce_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                             _tag_uni_image* mask, _tag_cnr_param* param);

// Takes range factor and saturation from the tuning; the window is fixed. Returns as the driver.
VORN_API int uni_color_noise_reduce_mask_process(void* handle, _tag_uni_image* src,
                                                 _tag_uni_image* dst, _tag_uni_image* mask,
                                                 _tag_cnr_param_output* tuning);

// Does nothing and returns 0; kept for callers that link it.
VORN_API int color_noise_reduce_deinit(void** handle);
