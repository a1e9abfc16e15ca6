// Denoises the finest level on four grids of blocks that lie two pixels apart, and averages.
//
// A block's pixels share their weights, so whatever one grid leaves at its block borders and in its
// window's reach differs from grid to grid and averages out. The windows differ too: 3x3 and 7x7
// leave opposite patterns of single pixels.
//
//     grid (0, 0) and (2, 2): 7x7        | 0 . . . | 4        x of block borders, dx = 0
//     grid (2, 0) and (0, 2): 3x3    . . | 2 . . . | 6        and dx = 2
//
// Shape:   a level with a filled border of kBorder pixels, and a destination of its size with its
//          own stride; any size from 4x4 on.
// Reads:   up to 6 pixels beyond the level on all sides.
// Writes:  the samples of dst, nothing beyond them; the scratch.
// Rounds:  (sum of four + 1) / 4 downwards: an eighth of a grey level low on average, which takes
//          back some of what the coarse levels' enlargement adds.
// Errors:  -1 when a job could not be queued.
// Threads: four jobs that share the rows; the cut changes no byte.
#pragma once

#include <cstddef>

#include "ynr/ynr_handle.h"

namespace vorn {

// Bytes of scratch for levels of this width: the results of a few rows on every grid, per worker.
size_t four_grids_scratch(int width);

// intensity is that of the window `radius` (3, 5 or 7), which the grids' windows get in
// proportion. mask has one value per 4x4 block, none of them 0.
int filter_on_four_grids(pool* workers, const _tag_uni_image& level, const _tag_uni_image& dst,
                         const _tag_uni_image& mask, int intensity, int radius,
                         unsigned char* scratch);

}  // namespace vorn
