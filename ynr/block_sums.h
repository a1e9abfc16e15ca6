// The pieces of the block non-local mean: weight map, one step per displaced block, normalisation.
//
// Shape:   a block is 4x4 pixels at a pointer with a row stride in bytes. An accumulator is 17
//          unsigned words: the total weight, then the weighted sums of the 16 pixels, row by row.
// Reads:   exactly the blocks' pixels. A weight map has 800 entries (indices 1..799 are looked up).
// Rounds:  by block_rules.h.
// Errors:  none are checked; products and sums wrap as 32-bit numbers.
#pragma once

#include "vorn_ycnr.h"

// map[0] = 256, map[d] = 255 exp(-d^2 / s) rounded half up, at most 255, with s the whole part of
// sigma^2 (saturated at 2^31 - 1). A sigma below 1 gives all other entries 0.
VORN_API void MakeWeightMap(int* map, float sigma, int count);

// Sets the accumulator to the block with weight w.
VORN_API void CumBlockWeight_new(unsigned char* block, int stride, int* acc, int w);

// Adds the displaced block nei with the weight that its distance to cur has under mask value m.
// Returns the distance.
VORN_API unsigned AddBlockSumByNei(unsigned char* cur, unsigned char* nei, int stride, int* acc,
                                   int* map, int m);

// Writes the normalised block; all 0 for a total weight of 0.
VORN_API void GetBlockResult(unsigned char* out, int out_stride, int* acc);
