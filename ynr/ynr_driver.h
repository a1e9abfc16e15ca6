#pragma once

#include "ynr/ynr_handle.h"

VORN_API int pyramid_denoise_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                          _tag_uni_image* mask, _tag_ynr_param_output* param);
VORN_API int BuildGauPyrs_u8(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* levels,
                             int layer);
VORN_API void FillExpandPixels(_tag_uni_image* image, int border);

namespace vorn {

// Whether the luma driver can run a width x height frame with `layer` (2..5) levels on this
// handle: the frame has the handle's size, is at least 4x4, and no level is empty.
// Returns 0, or -1 with one ERROR line.
int ynr_check_frame(const ynr_handle_t* handle, int width, int height, int layer);

}  // namespace vorn
