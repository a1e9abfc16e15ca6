// Denoises the luma plane of one frame on a Gaussian pyramid of 2..5 levels.
//
// From the coarsest level to the finest: denoise the level, take what that changed (its detail,
// stored with a bias of 128), enlarge it, add it to the next finer level. The finest level is
// denoised last, into dst.
//
// Shape:   src and dst have the handle's size, each its own stride; at least 4x4.
// Writes:  the luma samples of dst, nothing beyond them.
// Errors:  -1 with one ERROR line; dst's luma then holds the source's, or what it held before.
// Threads: the window stage runs on the pool, everything else on the caller's thread.
#pragma once

#include "ynr/ynr_handle.h"

// One frame. handle is the denoise_handle_t; mask (one byte per 4x4 block) may be null: the
// position mask of strength param->param0 is then made for the frame. Returns 0, -1 for null or
// unusable arguments or a layer count of 1 or less, or the pyramid's failure.
VORN_API int pyramid_denoise_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                          _tag_uni_image* mask, _tag_ynr_param_output* param);

// The same under the name that the entry calls.
VORN_API int uni_luma_noise_reduce_mask_process(void* handle, _tag_uni_image* src,
                                                _tag_uni_image* dst, _tag_uni_image* mask,
                                                _tag_ynr_param_output* param);

// levels[1..layer - 1] = src halved once, twice, ... on the handle's pool. Returns 0, or -1 when a
// job could not be queued.
VORN_API int BuildGauPyrs_u8(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* levels,
                             int layer);

// Fills a border of `border` pixels on all sides of a bordered image from its outermost inner rows
// and columns. An image no taller than two borders gets its row copies only.
VORN_API void FillExpandPixels(_tag_uni_image* image, int border);

namespace vorn {

// The least width and height of a frame with this many levels: a block, and a pixel on the
// coarsest.
int ynr_least_side(int layer);

// Whether the luma driver can run a width x height frame with `layer` (2..5) levels on this
// handle: the frame has the handle's size, at least ynr_least_side, and no more than 5 levels.
// Returns 0, or -1 with one ERROR line.
int ynr_check_frame(const ynr_handle_t* handle, int width, int height, int layer);

// One frame with the handle's tuning, its finest level filtered on four grids: see four_grids.h,
// also for the scratch. Errors as pyramid_denoise_mask_process.
int ynr_process_fine(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                     unsigned char* scratch);

// A plane of another kind by the same filter in fine mode: windows of 7x7 on two levels, the coarse
// one with half the intensity, no position mask. The plane has the handle's size, at least 4x4; its
// records are src and dst as above. Returns 0, or -1 when a stage could not be queued; dst then
// holds the source.
constexpr int kPlaneLayers = 2;
int filter_plane(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst, int intensity,
                 unsigned char* scratch);

}  // namespace vorn
