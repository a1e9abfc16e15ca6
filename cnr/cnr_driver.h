#pragma once

#include "cnr/cnr_handle.h"

VORN_API int color_noise_reduce_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                        _tag_cnr_param* param);
VORN_API int color_noise_reduce_mask_process(void* handle, _tag_uni_image* src,
                                             _tag_uni_image* dst, _tag_uni_image* mask,
                                             _tag_cnr_param* param);

namespace vorn {

// Whether the chroma driver can run a width x height frame with this tuning on this handle: the
// frame has the handle's size, the width is even, and no level that `scale` uses is empty.
// Returns 0, or -1 with one ERROR line.
int cnr_check_frame(const cnr_handle_t* handle, int width, int height, int scale);

}  // namespace vorn
