#include "ynr/exported/block_processors.h"

#include "ynr/block_pair.h"
#include "ynr/block_processors.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"
#include "ynr/exported/block_sums.h"

// Two rings only, in spite of its name: kept on purpose (ProcessBlocks.SevenOneIsFiveByFive).
unsigned ProcessBlock4x4_7x7_1(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                               unsigned char* up2, unsigned char* down2, unsigned char* /*up3*/,
                               unsigned char* /*down3*/, int stride, unsigned char* out,
                               int out_stride, int* map, int* acc, int m) {
  return ProcessBlock4x4_5x5(cur, up1, down1, up2, down2, stride, out, out_stride, map, acc, m);
}

unsigned ProcessBlock4x4_5x5_Guided(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                                    unsigned char* up2, unsigned char* down2, int stride,
                                    unsigned char* g_cur, unsigned char* g_up1,
                                    unsigned char* g_down1, unsigned char* g_up2,
                                    unsigned char* g_down2, int guide_stride, unsigned char* out,
                                    int out_stride, int* map, int* acc, int m) {
  const vorn::ring_rows rows[] = {{up1, down1}, {up2, down2}};
  const vorn::ring_rows guide_rows[] = {{g_up1, g_down1}, {g_up2, g_down2}};
  CumBlockWeight_new(cur, stride, acc, vorn::kCentreWeight);
  unsigned distance = 0;
  for (int d = 1; d <= 2; ++d) {
    for (int i = 0; i < 8; ++i) {
      distance = AddBlockSumByNei_Guided(vorn::neighbour(cur, rows[d - 1], d, i), stride, g_cur,
                                         vorn::neighbour(g_cur, guide_rows[d - 1], d, i),
                                         guide_stride, acc, map, m);
    }
  }
  GetBlockResult(out, out_stride, acc);
  return distance;
}

void AddBlockSumByNei_5x5neon(unsigned char* cur, unsigned char* cur_m_d, unsigned char* cur_p_d,
                              unsigned char* up_m_d, unsigned char* up, unsigned char* up_p_d,
                              unsigned char* down_m_d, unsigned char* down, unsigned char* down_p_d,
                              int stride, int* map, int* acc_left, int* acc_right, int m_left,
                              int m_right) {
  const unsigned char* const nei[8] = {cur_m_d, cur_p_d,  up_m_d, up,
                                       up_p_d,  down_m_d, down,   down_p_d};
  vorn::pair_sums sums = vorn::load_sums(acc_left, acc_right);
  vorn::add_neighbours(&sums, cur, nei, stride, map, m_left, m_right);
  vorn::store_sums(sums, acc_left, acc_right);
}

void AddBlockSumByNei_7x7neon(unsigned char* cur, unsigned char* cur_m_d, unsigned char* cur_p_d,
                              unsigned char* up_m_d, unsigned char* up, unsigned char* up_p_d,
                              unsigned char* down_m_d, unsigned char* down, unsigned char* down_p_d,
                              int stride, int* map, int* acc_left, int* acc_right, int m_left,
                              int m_right) {
  AddBlockSumByNei_5x5neon(cur, cur_m_d, cur_p_d, up_m_d, up, up_p_d, down_m_d, down, down_p_d,
                           stride, map, acc_left, acc_right, m_left, m_right);
}
