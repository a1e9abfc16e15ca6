// A luma level block by block, through the exported members for one block and for a pair: what the
// runs of 16 blocks are measured against.
#pragma once

#include "bench/stages.h"

namespace bench {

// Filters the scene's level into scene.detail with the window of `radius` (3, 5 or 7): single
// blocks by the scalar members under the plain form, pairs by the NEON members under every other.
// The first time in a process the result is compared with the library's own, pixel by pixel, and a
// difference ends the program: none for pairs; for single blocks 1, on the exact halves that the
// rule of pairs rounds down.
void filter_by_blocks(scene& s, int radius);

}  // namespace bench
