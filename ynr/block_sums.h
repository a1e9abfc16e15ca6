// The pieces of the block non-local mean: weight map, one step per displaced block, normalisation.
//
// Shape:   a block is 4x4 pixels at a pointer with a row stride in bytes; a pair is that block and
//          the one 4 pixels to its right. An accumulator is 17 unsigned words: the total weight,
//          then the weighted sums of the 16 pixels, row by row.
// Reads:   exactly the blocks' pixels. A weight map has 800 entries (indices 1..799 are looked up).
// Rounds:  block_rules.h has the scalar rule, block_pair.h the vector rule of the neon members,
//          which is at most one index step or one grey level away.
// Errors:  none are checked; products and sums wrap as 32-bit numbers.
#pragma once

#include "vorn_ycnr.h"

// map[0] = 256, map[d] = 255 exp(-d^2 / s) rounded half up, at most 255, with s the whole part of
// sigma^2 (saturated at 2^31 - 1). A sigma below 1 gives all other entries 0.
VORN_API void MakeWeightMap(int* map, float sigma, int count);

// Sets the accumulator to, or adds to it, the block with weight w.
VORN_API void CumBlockWeight_new(unsigned char* block, int stride, int* acc, int w);
VORN_API void CumBlockWeight(unsigned char* block, int stride, int* acc, int w);

// Adds the displaced block nei with the weight that its distance to cur has under mask value m.
// Returns the distance. The guided form takes the distance between two blocks of a guide image.
VORN_API unsigned AddBlockSumByNei(unsigned char* cur, unsigned char* nei, int stride, int* acc,
                                   int* map, int m);
VORN_API unsigned AddBlockSumByNei_Guided(unsigned char* src_nei, int stride,
                                          unsigned char* guide_cur, unsigned char* guide_nei,
                                          int unused_stride, int* acc, int* map, int m);

// Writes the normalised block; all 0 for a total weight of 0. The Diff form falls back to the
// source pixel where the result is more than 16 away from it.
VORN_API void GetBlockResult(unsigned char* out, int out_stride, int* acc);
VORN_API void GetBlockResultDiff(unsigned char* src, int src_stride, unsigned char* out,
                                 int out_stride, int* acc);

// Pair forms. CumBlockWeight2_256neon sets both accumulators (products wrap at 16 bits: meant for
// w = 256); AddBlockSumByNei_neon adds all eight blocks of ring 1 and writes the normalised pair
// (8 x 4 pixels); GetBlockResult_2neon normalises alone. m_left and m_right are not 0.
VORN_API void CumBlockWeight2_256neon(unsigned char* block, int stride, int* acc_left,
                                      int* acc_right, short w);
VORN_API void AddBlockSumByNei_neon(unsigned char* cur, unsigned char* nei_left,
                                    unsigned char* nei_right, unsigned char* up_left,
                                    unsigned char* up, unsigned char* up_right,
                                    unsigned char* down_left, unsigned char* down,
                                    unsigned char* down_right, int stride, int* map, int m_left,
                                    int m_right, unsigned char* out, int out_stride, int* acc_left,
                                    int* acc_right);
VORN_API void GetBlockResult_2neon(unsigned char* out, int out_stride, int* acc_left,
                                   int* acc_right);
