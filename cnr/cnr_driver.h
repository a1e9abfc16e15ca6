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

#include <cstddef>

#include "cnr/cnr_handle.h"

// One frame: makes the per-call record out of the tuning and runs the driver. handle is the
// denoise_handle_t here and below.
VORN_API int uni_color_noise_reduce_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                            _tag_cnr_param_output* tuning);

// The driver. param->scale: 2 filters half-size chroma, then full-size chroma; 1 half-size only; 0
// full-size only; any other value only applies the saturation.
VORN_API int color_noise_reduce_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                        _tag_cnr_param* param);

namespace vorn {

// The least width and height of a frame with this tuning: a pixel on every level that scale uses.
int cnr_least_side(int scale);

// Whether the chroma driver can run a width x height frame with this tuning on this handle: the
// frame has the handle's size, the width is even, and both sides are at least cnr_least_side.
// Returns 0, or -1 with one ERROR line.
int cnr_check_frame(const cnr_handle_t* handle, int width, int height, int scale);

// One frame with the handle's tuning whose luma is filtered already, in dst: it goes into src on
// its way to the guide, unless the handle says that src is kept. Errors as above; src's luma may
// then be of either kind.
int cnr_process_filtered(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);

// One frame with the handle's tuning in fine mode: coarse blotches are taken out before the
// tuning's own passes, as far as the noise has any (chroma_noise.h), and level 0 is the mean of
// both orders of its two passes. Scales other than 0, 1, 2 and errors as above.
//
// With a filter of single planes (8-bit, rows of their width), the tuning's range factor is halved
// and both planes of level 0 are filtered at last, with a strength that follows range factor and
// noise; filter returns 0, or not 0 and the frame fails.
using plane_filter = int (*)(denoise_handle_t* handle, _tag_uni_image* from, _tag_uni_image* to,
                             int strength);
int cnr_process_fine(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                     plane_filter filter);

// One level of the handle's images, by what they hold.
struct chroma_level {
  _tag_uni_image *guide, *u, *v;        // reduced luma; the planes that are filtered
  _tag_uni_image *across_u, *across_v;  // after the horizontal pass
  _tag_uni_image *change_u, *change_v;  // what filtering changed, + 128 (level 0: enlarged)
};
chroma_level level_of(cnr_handle_t* handle, int level);

// The interleaved chroma plane of a frame: always straight behind its luma plane, whatever the
// record's second pointer holds.
inline unsigned char* chroma_plane(const _tag_uni_image& frame) {
  return frame.plane[0] + static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height);
}

// Halves src's luma into the guide of level 0; level 0 into level 1. On the handle's pool.
int make_guide(cnr_handle_t* handle, const _tag_uni_image& src);
int halve_chroma(cnr_handle_t* handle);

// numerator / range_factor^2 in single precision, three times; infinite for a factor of 0.
void set_range_coefficient(_tag_cnr_param* param, float numerator, int range_factor);

}  // namespace vorn
