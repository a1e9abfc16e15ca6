// More pieces of the block non-local mean: see ynr/block_sums.h. A pair is a block and the one 4
// pixels to its right; the neon members follow the vector rule of block_pair.h, which is at most
// one index step or one grey level away from the scalar rule.
#pragma once

#include "vorn_ycnr.h"

// Adds the block with weight w to the accumulator.
VORN_API void CumBlockWeight(unsigned char* block, int stride, int* acc, int w);

// AddBlockSumByNei with the distance taken between two blocks of a guide image.
VORN_API unsigned AddBlockSumByNei_Guided(unsigned char* src_nei, int stride,
                                          unsigned char* guide_cur, unsigned char* guide_nei,
                                          int unused_stride, int* acc, int* map, int m);

// GetBlockResult, or the source pixel where the result is more than 16 away from it.
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
