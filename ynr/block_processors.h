#pragma once

#include "api/vorn_ycnr.h"

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
VORN_API unsigned ProcessBlock4x4_7x7_1(unsigned char* cur, unsigned char* up1,
                                        unsigned char* down1, unsigned char* up2,
                                        unsigned char* down2, unsigned char* up3,
                                        unsigned char* down3, int stride, unsigned char* out,
                                        int out_stride, int* map, int* acc, int m);
VORN_API unsigned ProcessBlock4x4_5x5_Guided(unsigned char* cur, unsigned char* up1,
                                             unsigned char* down1, unsigned char* up2,
                                             unsigned char* down2, int stride,
                                             unsigned char* g_cur, unsigned char* g_up1,
                                             unsigned char* g_down1, unsigned char* g_up2,
                                             unsigned char* g_down2, int guide_stride,
                                             unsigned char* out, int out_stride, int* map, int* acc,
                                             int m);
VORN_API void ProcessBlock4x4_3x3_neon(unsigned char* cur, unsigned char* up1,
                                       unsigned char* down1, int stride, unsigned char* out,
                                       int out_stride, int* map, int* acc_left, int* acc_right,
                                       int m_left, int m_right);
VORN_API void ProcessBlock4x4_5x5_neon(unsigned char* cur, unsigned char* up1,
                                       unsigned char* down1, unsigned char* up2,
                                       unsigned char* down2, int stride, unsigned char* out,
                                       int out_stride, int* map, int* acc_left, int* acc_right,
                                       int m_left, int m_right);
VORN_API void ProcessBlock4x4_7x7_neon(unsigned char* cur, unsigned char* up1,
                                       unsigned char* down1, unsigned char* up2,
                                       unsigned char* down2, unsigned char* up3,
                                       unsigned char* down3, int stride, unsigned char* out,
                                       int out_stride, int* map, int* acc_left, int* acc_right,
                                       int m_left, int m_right);
VORN_API void AddBlockSumByNei_5x5neon(unsigned char* cur, unsigned char* cur_m_d,
                                       unsigned char* cur_p_d, unsigned char* up_m_d,
                                       unsigned char* up, unsigned char* up_p_d,
                                       unsigned char* down_m_d, unsigned char* down,
                                       unsigned char* down_p_d, int stride, int* map,
                                       int* acc_left, int* acc_right, int m_left, int m_right);
VORN_API void AddBlockSumByNei_7x7neon(unsigned char* cur, unsigned char* cur_m_d,
                                       unsigned char* cur_p_d, unsigned char* up_m_d,
                                       unsigned char* up, unsigned char* up_p_d,
                                       unsigned char* down_m_d, unsigned char* down,
                                       unsigned char* down_p_d, int stride, int* map,
                                       int* acc_left, int* acc_right, int m_left, int m_right);
