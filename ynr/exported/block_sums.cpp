#include "ynr/exported/block_sums.h"

#include <cstdlib>

#include "ynr/block_pair.h"
#include "ynr/block_rules.h"

void CumBlockWeight(unsigned char* block, int stride, int* acc, int w) {
  vorn::add_weighted(acc, block, stride, static_cast<unsigned>(w));
}

unsigned AddBlockSumByNei_Guided(unsigned char* src_nei, int stride, unsigned char* guide_cur,
                                 unsigned char* guide_nei, int /*unused_stride*/, int* acc,
                                 int* map, int m) {
  return vorn::add_by_distance(guide_cur, guide_nei, src_nei, stride, acc, map, m);
}

void GetBlockResultDiff(unsigned char* src, int src_stride, unsigned char* out, int out_stride,
                        int* acc) {
  constexpr int kLargestChange = 16;
  for (int r = 0; r < 4; ++r, src += src_stride, out += out_stride) {
    for (int c = 0; c < 4; ++c) {
      const unsigned char result = vorn::normalised(acc[1 + 4 * r + c], acc[0]);
      out[c] = std::abs(src[c] - result) > kLargestChange ? src[c] : result;
    }
  }
}

// Two blocks, 8 pixels x 4 rows. The product is formed in 16-bit lanes and wraps there: exact for
// the weight 256 that it is meant for.
void CumBlockWeight2_256neon(unsigned char* block, int stride, int* acc_left, int* acc_right,
                             short w) {
  acc_left[0] = acc_right[0] = w;
  for (int r = 0; r < 4; ++r, block += stride) {
    const uint16x8_t row =
        vmulq_u16(vmovl_u8(vld1_u8(block)), vdupq_n_u16(static_cast<uint16_t>(w)));
    vst1q_s32(acc_left + 1 + 4 * r, vreinterpretq_s32_u32(vmovl_u16(vget_low_u16(row))));
    vst1q_s32(acc_right + 1 + 4 * r, vreinterpretq_s32_u32(vmovl_u16(vget_high_u16(row))));
  }
}

void AddBlockSumByNei_neon(unsigned char* cur, unsigned char* nei_left, unsigned char* nei_right,
                           unsigned char* up_left, unsigned char* up, unsigned char* up_right,
                           unsigned char* down_left, unsigned char* down, unsigned char* down_right,
                           int stride, int* map, int m_left, int m_right, unsigned char* out,
                           int out_stride, int* acc_left, int* acc_right) {
  const unsigned char* const nei[8] = {nei_left, nei_right, up_left, up,
                                       up_right, down_left, down,    down_right};
  vorn::pair_sums sums = vorn::load_sums(acc_left, acc_right);
  vorn::add_neighbours(&sums, cur, nei, stride, map, m_left, m_right);
  vorn::store_sums(sums, acc_left, acc_right);
  vorn::store_normalised(sums, out, out_stride);
}

void GetBlockResult_2neon(unsigned char* out, int out_stride, int* acc_left, int* acc_right) {
  vorn::store_normalised(vorn::load_sums(acc_left, acc_right), out, out_stride);
}
