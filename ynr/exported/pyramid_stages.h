// The halving of pyramid/down2.h under the names that take the luma handle.
#pragma once

#include "ynr/ynr_handle.h"

// First planes of two images with their strides: one luma level from the one above. Returns 0.
VORN_API int gaussin3x3_down2_ynr(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);

// The same on the luma pool, from raw planes.
VORN_API int gaussin3x3_down2_ynr_thread(ynr_handle_t* handle, unsigned char* src, int src_width,
                                         int src_height, int src_stride, unsigned char* dst,
                                         int dst_width, int dst_height, int dst_stride);
