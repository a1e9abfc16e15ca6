// More processors of a 4x4 block: see ynr/block_processors.h.
#pragma once

#include "vorn_ycnr.h"

// The 5x5 window under another name; up3 and down3 are ignored.
VORN_API unsigned ProcessBlock4x4_7x7_1(unsigned char* cur, unsigned char* up1,
                                        unsigned char* down1, unsigned char* up2,
                                        unsigned char* down2, unsigned char* up3,
                                        unsigned char* down3, int stride, unsigned char* out,
                                        int out_stride, int* map, int* acc, int m);

// 5x5 with distances taken on a guide image, pixels from the source. The guide has the same stride;
// guide_stride is ignored.
VORN_API unsigned ProcessBlock4x4_5x5_Guided(unsigned char* cur, unsigned char* up1,
                                             unsigned char* down1, unsigned char* up2,
                                             unsigned char* down2, int stride, unsigned char* g_cur,
                                             unsigned char* g_up1, unsigned char* g_down1,
                                             unsigned char* g_up2, unsigned char* g_down2,
                                             int guide_stride, unsigned char* out, int out_stride,
                                             int* map, int* acc, int m);

// Add one ring, given by its eight blocks, to both accumulators of a pair. Two names, one body.
VORN_API void AddBlockSumByNei_5x5neon(unsigned char* cur, unsigned char* cur_m_d,
                                       unsigned char* cur_p_d, unsigned char* up_m_d,
                                       unsigned char* up, unsigned char* up_p_d,
                                       unsigned char* down_m_d, unsigned char* down,
                                       unsigned char* down_p_d, int stride, int* map, int* acc_left,
                                       int* acc_right, int m_left, int m_right);
VORN_API void AddBlockSumByNei_7x7neon(unsigned char* cur, unsigned char* cur_m_d,
                                       unsigned char* cur_p_d, unsigned char* up_m_d,
                                       unsigned char* up, unsigned char* up_p_d,
                                       unsigned char* down_m_d, unsigned char* down,
                                       unsigned char* down_p_d, int stride, int* map, int* acc_left,
                                       int* acc_right, int m_left, int m_right);
