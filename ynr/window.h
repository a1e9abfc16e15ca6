// Denoises one pyramid level with the 3x3, 5x5 or 7x7 window, block row by block row.
//
// Shape:   blocks of 4x4 pixels; pairs of blocks up to the last multiple of 8 columns, single
//          blocks behind it. A pair with two nonzero mask values takes the vector rule, every other
//          block the scalar rule. The mask has one byte per block of the full-size frame; null
//          means 64 everywhere; 0 leaves a block of dst as it is.
// Reads:   1, 2 or 3 pixels beyond the level, rounded up to whole blocks, on all sides.
// Writes:  whole blocks: up to the next multiple of 4 in both directions.
// Rounds:  see block_rules.h and block_pair.h.
// Errors:  images are not checked. -1 when a job could not be queued.
// Threads: four jobs on the pool, which share the block rows.
#pragma once

#include "ynr/ynr_handle.h"

// Denoises with the window that radius (3, 5, 7) names; any other radius copies src. Returns 0.
VORN_API int nlm_denoise_process(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                 _tag_uni_image* mask, int intensity, int radius);

// One window over a level.
VORN_API int process3x3_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);
VORN_API int process5x5_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);
VORN_API int process7x7_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               _tag_uni_image* mask, int* weight_map);

namespace vorn {

// What a job of the 3x3 window logs when it has taken `ms`, under the name of its body.
void log_process3x3(double ms);

}  // namespace vorn
