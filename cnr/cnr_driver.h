// Denoises the chroma of one frame on a pyramid of one or two levels, guided by its luma.
//
// Shape   src and dst are width x height frames of the handle's size; chroma follows plane[0] after
//         width * height bytes.
// Reads   all of src.
// Writes  width * (height / 2) bytes of dst's chroma, nothing else of dst; param (mode 2 leaves its
//         fixed fine-level window in it); the handle's images.
// Errors  -1 for a null argument; -1 with one ERROR line for a frame that cnr_check_frame refuses
//         and for a stage that could not be queued.
// Threads runs on the caller's thread and the handle's pool, one frame per handle at a time.
#pragma once

#include "cnr/cnr_handle.h"

// param->scale: 2 filters half-size chroma, then full-size chroma; 1 half-size only; 0 full-size
// only; any other value only applies the saturation.
VORN_API int color_noise_reduce_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                        _tag_cnr_param* param);
// The masked filters on one level: half-size chroma when param->scale is not 0.
VORN_API int color_noise_reduce_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                             _tag_uni_image* mask, _tag_cnr_param* param);

namespace vorn {

// Whether the chroma driver can run a width x height frame with this tuning on this handle: the
// frame has the handle's size, the width is even, and no level that `scale` uses is empty.
// Returns 0, or -1 with one ERROR line.
int cnr_check_frame(const cnr_handle_t* handle, int width, int height, int scale);

}  // namespace vorn
