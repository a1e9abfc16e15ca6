#include "ynr/block_sums.h"

#include <cmath>
#include <cstddef>

#include "runtime/arithmetic.h"
#include "ynr/block_pair.h"
#include "ynr/block_rules.h"

namespace {

// As vorn::truncated.
int64_t to_int64(double x) {
  if (x >= 9223372036854775808.0) return INT64_MAX;
  if (x < -9223372036854775808.0) return INT64_MIN;
  return x == x ? static_cast<int64_t>(x) : 0;
}

unsigned wrapped(int x) {
  return static_cast<unsigned>(x);
}

void add_weighted(int* acc, const unsigned char* block, int stride, unsigned w) {
  acc[0] = static_cast<int>(wrapped(acc[0]) + w);
  for (int r = 0; r < 4; ++r, block += stride) {
    for (int c = 0; c < 4; ++c) {
      int& sum = acc[1 + 4 * r + c];
      sum = static_cast<int>(wrapped(sum) + w * block[c]);
    }
  }
}

}  // namespace

void MakeWeightMap(int* map, float sigma, int count) {
  map[0] = vorn::kCentreWeight;
  if (count < 2) return;
  const int s = vorn::truncated(sigma * sigma);
  const float inverse = 1.0f / static_cast<float>(s);  // infinite below sigma 1: all weights 0
  for (int d = 1; d < count; ++d) {
    const int square = static_cast<int>(wrapped(d) * wrapped(d));
    const float t = static_cast<float>(square) * inverse;
    // The single-precision exponential, by way of the double one: where libraries differ is expf's
    // last bit, and from intensity 472 on there are weights that it decides.
    const float e = static_cast<float>(std::exp(-static_cast<double>(t)));
    // The fused step is kept although nothing depends on its single rounding.
    const int64_t v = to_int64(std::fma(static_cast<double>(e), 255.0, 0.5));
    map[d] = static_cast<int>(std::fmin(static_cast<float>(v), 255.0f));
  }
}

void CumBlockWeight_new(unsigned char* block, int stride, int* acc, int w) {
  for (int i = 0; i < vorn::kAccWords; ++i) acc[i] = 0;
  add_weighted(acc, block, stride, wrapped(w));
}

void CumBlockWeight(unsigned char* block, int stride, int* acc, int w) {
  add_weighted(acc, block, stride, wrapped(w));
}

unsigned AddBlockSumByNei(unsigned char* cur, unsigned char* nei, int stride, int* acc, int* map,
                          int m) {
  const unsigned distance = vorn::block_distance(cur, nei, stride);
  add_weighted(acc, nei, stride, wrapped(map[vorn::weight_index(distance, m)]));
  return distance;
}

unsigned AddBlockSumByNei_Guided(unsigned char* src_nei, int stride, unsigned char* guide_cur,
                                 unsigned char* guide_nei, int /*unused_stride*/, int* acc,
                                 int* map, int m) {
  const unsigned distance = vorn::block_distance(guide_cur, guide_nei, stride);
  add_weighted(acc, src_nei, stride, wrapped(map[vorn::weight_index(distance, m)]));
  return distance;
}

void GetBlockResult(unsigned char* out, int out_stride, int* acc) {
  for (int r = 0; r < 4; ++r, out += out_stride)
    for (int c = 0; c < 4; ++c) out[c] = vorn::normalised(acc[1 + 4 * r + c], acc[0]);
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
