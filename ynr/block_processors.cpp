#include "ynr/block_processors.h"

#include "ynr/block_pair.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"

namespace {

// The block itself and the rows of blocks above and below it, per ring. rows[d - 1] is ring d.
struct ring_rows {
  unsigned char* up;
  unsigned char* down;
};

unsigned char* neighbour(unsigned char* cur, ring_rows rows, int d, int i) {
  const vorn::displacement n = vorn::kRing[i];
  return (n.dy == 0 ? cur : n.dy < 0 ? rows.up : rows.down) + n.dx * d;
}

// One block by the scalar rule over rings 1..N. Returns the last neighbour's distance.
template <int N>
unsigned process_block(unsigned char* cur, const ring_rows (&rows)[N], int stride,
                       unsigned char* out, int out_stride, int* map, int* acc, int m) {
  CumBlockWeight_new(cur, stride, acc, vorn::kCentreWeight);
  unsigned distance = 0;
  for (int d = 1; d <= N; ++d)
    for (int i = 0; i < 8; ++i)
      distance = AddBlockSumByNei(cur, neighbour(cur, rows[d - 1], d, i), stride, acc, map, m);
  GetBlockResult(out, out_stride, acc);
  return distance;
}

// Adds one ring to both accumulators of a pair.
void AddBlockSumByRing_neon(unsigned char* cur, unsigned char* cur_m_d, unsigned char* cur_p_d,
                            unsigned char* up_m_d, unsigned char* up, unsigned char* up_p_d,
                            unsigned char* down_m_d, unsigned char* down, unsigned char* down_p_d,
                            int stride, int m_left, int m_right, int* map, int* acc_left,
                            int* acc_right) {
  const unsigned char* const nei[8] = {cur_m_d, cur_p_d,  up_m_d, up,
                                       up_p_d,  down_m_d, down,   down_p_d};
  vorn::pair_sums sums = vorn::load_sums(acc_left, acc_right);
  vorn::add_neighbours(&sums, cur, nei, stride, map, m_left, m_right);
  vorn::store_sums(sums, acc_left, acc_right);
}

// A pair of blocks by the vector rule over rings 1..N: 8 pixels x 4 rows.
template <int N>
void process_pair(unsigned char* cur, const ring_rows (&rows)[N], int stride, unsigned char* out,
                  int out_stride, int* map, int* acc_left, int* acc_right, int m_left,
                  int m_right) {
  vorn::pair_sums sums = vorn::centre_sums(cur, stride);
  for (int d = 1; d <= N; ++d) {
    const unsigned char* nei[8];
    for (int i = 0; i < 8; ++i) nei[i] = neighbour(cur, rows[d - 1], d, i);
    vorn::add_neighbours(&sums, cur, nei, stride, map, m_left, m_right);
  }
  vorn::store_sums(sums, acc_left, acc_right);
  vorn::store_normalised(sums, out, out_stride);
}

}  // namespace

unsigned ProcessBlock4x4_3x3(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                             int stride, unsigned char* out, int out_stride, int* map, int* acc,
                             int m) {
  const ring_rows rows[] = {{up1, down1}};
  return process_block(cur, rows, stride, out, out_stride, map, acc, m);
}

unsigned ProcessBlock4x4_5x5(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                             unsigned char* up2, unsigned char* down2, int stride,
                             unsigned char* out, int out_stride, int* map, int* acc, int m) {
  const ring_rows rows[] = {{up1, down1}, {up2, down2}};
  return process_block(cur, rows, stride, out, out_stride, map, acc, m);
}

unsigned ProcessBlock4x4_7x7(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                             unsigned char* up2, unsigned char* down2, unsigned char* up3,
                             unsigned char* down3, int stride, unsigned char* out, int out_stride,
                             int* map, int* acc, int m) {
  const ring_rows rows[] = {{up1, down1}, {up2, down2}, {up3, down3}};
  return process_block(cur, rows, stride, out, out_stride, map, acc, m);
}

// Two rings only, in spite of its name: kept on purpose (ProcessBlocks.SevenOneIsFiveByFive).
unsigned ProcessBlock4x4_7x7_1(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                               unsigned char* up2, unsigned char* down2, unsigned char* /*up3*/,
                               unsigned char* /*down3*/, int stride, unsigned char* out,
                               int out_stride, int* map, int* acc, int m) {
  const ring_rows rows[] = {{up1, down1}, {up2, down2}};
  return process_block(cur, rows, stride, out, out_stride, map, acc, m);
}

unsigned ProcessBlock4x4_5x5_Guided(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                                    unsigned char* up2, unsigned char* down2, int stride,
                                    unsigned char* g_cur, unsigned char* g_up1,
                                    unsigned char* g_down1, unsigned char* g_up2,
                                    unsigned char* g_down2, int guide_stride, unsigned char* out,
                                    int out_stride, int* map, int* acc, int m) {
  const ring_rows rows[] = {{up1, down1}, {up2, down2}};
  const ring_rows guide_rows[] = {{g_up1, g_down1}, {g_up2, g_down2}};
  CumBlockWeight_new(cur, stride, acc, vorn::kCentreWeight);
  unsigned distance = 0;
  for (int d = 1; d <= 2; ++d) {
    for (int i = 0; i < 8; ++i) {
      distance = AddBlockSumByNei_Guided(neighbour(cur, rows[d - 1], d, i), stride, g_cur,
                                         neighbour(g_cur, guide_rows[d - 1], d, i), guide_stride,
                                         acc, map, m);
    }
  }
  GetBlockResult(out, out_stride, acc);
  return distance;
}

void ProcessBlock4x4_3x3_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                              int stride, unsigned char* out, int out_stride, int* map,
                              int* acc_left, int* acc_right, int m_left, int m_right) {
  const ring_rows rows[] = {{up1, down1}};
  process_pair(cur, rows, stride, out, out_stride, map, acc_left, acc_right, m_left, m_right);
}

void ProcessBlock4x4_5x5_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                              unsigned char* up2, unsigned char* down2, int stride,
                              unsigned char* out, int out_stride, int* map, int* acc_left,
                              int* acc_right, int m_left, int m_right) {
  const ring_rows rows[] = {{up1, down1}, {up2, down2}};
  process_pair(cur, rows, stride, out, out_stride, map, acc_left, acc_right, m_left, m_right);
}

void ProcessBlock4x4_7x7_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                              unsigned char* up2, unsigned char* down2, unsigned char* up3,
                              unsigned char* down3, int stride, unsigned char* out, int out_stride,
                              int* map, int* acc_left, int* acc_right, int m_left, int m_right) {
  const ring_rows rows[] = {{up1, down1}, {up2, down2}, {up3, down3}};
  process_pair(cur, rows, stride, out, out_stride, map, acc_left, acc_right, m_left, m_right);
}

void AddBlockSumByNei_5x5neon(unsigned char* cur, unsigned char* cur_m_d, unsigned char* cur_p_d,
                              unsigned char* up_m_d, unsigned char* up, unsigned char* up_p_d,
                              unsigned char* down_m_d, unsigned char* down, unsigned char* down_p_d,
                              int stride, int* map, int* acc_left, int* acc_right, int m_left,
                              int m_right) {
  AddBlockSumByRing_neon(cur, cur_m_d, cur_p_d, up_m_d, up, up_p_d, down_m_d, down, down_p_d,
                         stride, m_left, m_right, map, acc_left, acc_right);
}

void AddBlockSumByNei_7x7neon(unsigned char* cur, unsigned char* cur_m_d, unsigned char* cur_p_d,
                              unsigned char* up_m_d, unsigned char* up, unsigned char* up_p_d,
                              unsigned char* down_m_d, unsigned char* down, unsigned char* down_p_d,
                              int stride, int* map, int* acc_left, int* acc_right, int m_left,
                              int m_right) {
  AddBlockSumByRing_neon(cur, cur_m_d, cur_p_d, up_m_d, up, up_p_d, down_m_d, down, down_p_d,
                         stride, m_left, m_right, map, acc_left, acc_right);
}
