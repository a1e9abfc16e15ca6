// Denoise one 4x4 block, or a pair of adjacent ones: the weighted mean of the block (weight 256)
// and of the blocks on one, two or three rings around it.
//
//     3 . . 3 . . 3     A ring d has eight displacements: left, right, then the row above and the
//     . 2 . 2 . 2 .     row below from left to right. The windows are sparse: axes and diagonals.
//     . . 1 1 1 . .     3x3 is ring 1, 5x5 rings 1 and 2, 7x7 all three.
//     3 2 1 0 1 2 3
//     . . 1 1 1 . .
//     . 2 . 2 . 2 .
//     3 . . 3 . . 3
//
// Shape:   cur is the block's first pixel; up<d> and down<d> are d rows above and below it. map has
//          800 entries. Accumulators (17 words) are scratch of the caller and are overwritten.
// Reads:   rows -d..3 + d, columns -d..3 + d around the block (7 + d for pairs), d the largest
//          ring.
// Writes:  4 (pairs: 8) x 4 pixels at out.
// Rounds:  see block_rules.h (one block) and block_pair.h (pairs).
// Errors:  none are checked. Mask values of pairs are not 0.
#pragma once

#include "vorn_ycnr.h"

// One block. The result is the last displaced block's distance.
VORN_API unsigned ProcessBlock4x4_3x3(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                                      int stride, unsigned char* out, int out_stride, int* map,
                                      int* acc, int m);
VORN_API unsigned ProcessBlock4x4_5x5(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                                      unsigned char* up2, unsigned char* down2, int stride,
                                      unsigned char* out, int out_stride, int* map, int* acc,
                                      int m);
VORN_API unsigned ProcessBlock4x4_7x7(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                                      unsigned char* up2, unsigned char* down2, unsigned char* up3,
                                      unsigned char* down3, int stride, unsigned char* out,
                                      int out_stride, int* map, int* acc, int m);

// A pair of blocks, cur and cur + 4.
VORN_API void ProcessBlock4x4_3x3_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                                       int stride, unsigned char* out, int out_stride, int* map,
                                       int* acc_left, int* acc_right, int m_left, int m_right);
VORN_API void ProcessBlock4x4_5x5_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                                       unsigned char* up2, unsigned char* down2, int stride,
                                       unsigned char* out, int out_stride, int* map, int* acc_left,
                                       int* acc_right, int m_left, int m_right);
VORN_API void ProcessBlock4x4_7x7_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                                       unsigned char* up2, unsigned char* down2, unsigned char* up3,
                                       unsigned char* down3, int stride, unsigned char* out,
                                       int out_stride, int* map, int* acc_left, int* acc_right,
                                       int m_left, int m_right);
