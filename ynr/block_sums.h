#pragma once

#include "api/vorn_ycnr.h"

VORN_API void MakeWeightMap(int* map, float sigma, int count);
VORN_API void CumBlockWeight_new(unsigned char* block, int stride, int* acc, int w);
VORN_API void CumBlockWeight(unsigned char* block, int stride, int* acc, int w);
VORN_API unsigned AddBlockSumByNei(unsigned char* cur, unsigned char* nei, int stride, int* acc,
                                   int* map, int m);
VORN_API unsigned AddBlockSumByNei_Guided(unsigned char* src_nei, int stride,
                                          unsigned char* guide_cur, unsigned char* guide_nei,
                                          int unused_stride, int* acc, int* map, int m);
VORN_API void GetBlockResult(unsigned char* out, int out_stride, int* acc);
VORN_API void GetBlockResultDiff(unsigned char* src, int src_stride, unsigned char* out,
                                 int out_stride, int* acc);
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
