#include "ynr/block_processors.h"

#include "ynr/block_pair.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"

namespace {

// One block by the scalar rule over rings 1..N. Returns the last neighbour's distance.
template <int N>
unsigned process_block(unsigned char* cur, const vorn::ring_rows (&rows)[N], int stride,
                       unsigned char* out, int out_stride, int* map, int* acc, int m) {
  CumBlockWeight_new(cur, stride, acc, vorn::kCentreWeight);
  unsigned distance = 0;
  for (int d = 1; d <= N; ++d)
    for (int i = 0; i < 8; ++i)
      distance =
          AddBlockSumByNei(cur, vorn::neighbour(cur, rows[d - 1], d, i), stride, acc, map, m);
  GetBlockResult(out, out_stride, acc);
  return distance;
}

// A pair of blocks by the vector rule over rings 1..N: 8 pixels x 4 rows.
template <int N>
void process_pair(unsigned char* cur, const vorn::ring_rows (&rows)[N], int stride,
                  unsigned char* out, int out_stride, int* map, int* acc_left, int* acc_right,
                  int m_left, int m_right) {
  vorn::pair_sums sums = vorn::centre_sums(cur, stride);
  for (int d = 1; d <= N; ++d) {
    const unsigned char* nei[8];
    for (int i = 0; i < 8; ++i) nei[i] = vorn::neighbour(cur, rows[d - 1], d, i);
    vorn::add_neighbours(&sums, cur, nei, stride, map, m_left, m_right);
  }
  vorn::store_sums(sums, acc_left, acc_right);
  vorn::store_normalised(sums, out, out_stride);
}

}  // namespace

unsigned ProcessBlock4x4_3x3(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                             int stride, unsigned char* out, int out_stride, int* map, int* acc,
                             int m) {
  const vorn::ring_rows rows[] = {{up1, down1}};
  return process_block(cur, rows, stride, out, out_stride, map, acc, m);
}

unsigned ProcessBlock4x4_5x5(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                             unsigned char* up2, unsigned char* down2, int stride,
                             unsigned char* out, int out_stride, int* map, int* acc, int m) {
  const vorn::ring_rows rows[] = {{up1, down1}, {up2, down2}};
  return process_block(cur, rows, stride, out, out_stride, map, acc, m);
}

unsigned ProcessBlock4x4_7x7(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                             unsigned char* up2, unsigned char* down2, unsigned char* up3,
                             unsigned char* down3, int stride, unsigned char* out, int out_stride,
                             int* map, int* acc, int m) {
  const vorn::ring_rows rows[] = {{up1, down1}, {up2, down2}, {up3, down3}};
  return process_block(cur, rows, stride, out, out_stride, map, acc, m);
}

void ProcessBlock4x4_3x3_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                              int stride, unsigned char* out, int out_stride, int* map,
                              int* acc_left, int* acc_right, int m_left, int m_right) {
  const vorn::ring_rows rows[] = {{up1, down1}};
  process_pair(cur, rows, stride, out, out_stride, map, acc_left, acc_right, m_left, m_right);
}

void ProcessBlock4x4_5x5_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                              unsigned char* up2, unsigned char* down2, int stride,
                              unsigned char* out, int out_stride, int* map, int* acc_left,
                              int* acc_right, int m_left, int m_right) {
  const vorn::ring_rows rows[] = {{up1, down1}, {up2, down2}};
  process_pair(cur, rows, stride, out, out_stride, map, acc_left, acc_right, m_left, m_right);
}

void ProcessBlock4x4_7x7_neon(unsigned char* cur, unsigned char* up1, unsigned char* down1,
                              unsigned char* up2, unsigned char* down2, unsigned char* up3,
                              unsigned char* down3, int stride, unsigned char* out, int out_stride,
                              int* map, int* acc_left, int* acc_right, int m_left, int m_right) {
  const vorn::ring_rows rows[] = {{up1, down1}, {up2, down2}, {up3, down3}};
  process_pair(cur, rows, stride, out, out_stride, map, acc_left, acc_right, m_left, m_right);
}
