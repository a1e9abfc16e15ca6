// The vector form of the rule for two horizontally adjacent blocks: 8 pixels x 4 rows per step.
//
// Within one index step and one grey level of block_rules.h, since both divisions go through the
// refined reciprocal: index = truncate(0.5 + (64 D) * r(m)), pixel = truncate(0.5 + sum *
// r(total)), the product rounded, then the sum rounded. The index comes out the same for every
// distance 0..784 and mask value 1..255; a pixel is sometimes one lower, on exact halves only.
// These bytes are part of the output: which blocks take this form is fixed by position and mask
// (window.h).
#pragma once

#include <cstddef>

#include "runtime/arithmetic.h"
#include "runtime/neon.h"
#include "runtime/reciprocal.h"
#include "ynr/block_rules.h"

namespace vorn {

// Truncation toward zero that saturates and takes a NaN for 0, as the Arm conversions do.
static inline uint32x4_t truncate_to_u32(float32x4_t x) {
#if defined(__aarch64__)
  return vcvtq_u32_f32(x);
#else
  float in[4];
  uint32_t out[4];
  vst1q_f32(in, x);
  for (int i = 0; i < 4; ++i) {
    if (!(in[i] > 0.0f))
      out[i] = 0;
    else
      out[i] = in[i] >= 4294967296.0f ? UINT32_MAX : static_cast<uint32_t>(in[i]);
  }
  return vld1q_u32(out);
#endif
}

static inline int32x2_t truncate_to_s32(float32x2_t x) {
#if defined(__aarch64__)
  return vcvt_s32_f32(x);
#else
  const int32_t out[2] = {truncated(vget_lane_f32(x, 0)), truncated(vget_lane_f32(x, 1))};
  return vld1_s32(out);
#endif
}

// Sums of both blocks, in registers while neighbours are added.
struct pair_sums {
  uint32x4_t left[4], right[4];  // weighted pixels, a row per vector: at most 6376 * 255
  uint32_t left_weight, right_weight;
};

static inline pair_sums load_sums(const int* acc_left, const int* acc_right) {
  pair_sums sums;
  for (int r = 0; r < 4; ++r) {
    sums.left[r] = vreinterpretq_u32_s32(vld1q_s32(acc_left + 1 + 4 * r));
    sums.right[r] = vreinterpretq_u32_s32(vld1q_s32(acc_right + 1 + 4 * r));
  }
  sums.left_weight = static_cast<uint32_t>(acc_left[0]);
  sums.right_weight = static_cast<uint32_t>(acc_right[0]);
  return sums;
}

static inline void store_sums(const pair_sums& sums, int* acc_left, int* acc_right) {
  for (int r = 0; r < 4; ++r) {
    vst1q_s32(acc_left + 1 + 4 * r, vreinterpretq_s32_u32(sums.left[r]));
    vst1q_s32(acc_right + 1 + 4 * r, vreinterpretq_s32_u32(sums.right[r]));
  }
  acc_left[0] = static_cast<int>(sums.left_weight);
  acc_right[0] = static_cast<int>(sums.right_weight);
}

// Both blocks with their own weight 256.
static inline pair_sums centre_sums(const unsigned char* cur, int stride) {
  pair_sums sums;
  for (int r = 0; r < 4; ++r, cur += stride) {
    const uint16x8_t row = vshlq_n_u16(vmovl_u8(vld1_u8(cur)), 8);
    sums.left[r] = vmovl_u16(vget_low_u16(row));
    sums.right[r] = vmovl_u16(vget_high_u16(row));
  }
  sums.left_weight = sums.right_weight = kCentreWeight;
  return sums;
}

static inline float32x2_t mask_reciprocals(int m_left, int m_right) {
  const int32_t m[4] = {m_left, m_right, m_left, m_right};
  return vget_low_f32(refined_reciprocal_x4(vcvtq_f32_s32(vld1q_s32(m))));
}

// Adds one displaced pair. cur holds the pair's own four rows.
static inline void add_neighbour(pair_sums* sums, const uint8x8_t cur[4], const unsigned char* nei,
                                 int stride, const int* map, float32x2_t mask_r) {
  uint8x8_t rows[4];
  uint16x4_t columns = vdup_n_u16(0);  // distances of column pairs, at most 8 * 49
  for (int r = 0; r < 4; ++r, nei += stride) {
    rows[r] = vld1_u8(nei);
    columns = vpadal_u8(columns, vmin_u8(vabd_u8(cur[r], rows[r]), vdup_n_u8(kDistanceClip)));
  }
  const uint32x2_t distance = vpaddl_u16(columns);  // left block, right block
  const float32x2_t scaled = vmul_f32(vcvt_f32_u32(vshl_n_u32(distance, 6)), mask_r);
  int32x2_t index = truncate_to_s32(vadd_f32(vdup_n_f32(0.5f), scaled));
  index = vmax_s32(vmin_s32(index, vdup_n_s32(kLastIndex)), vdup_n_s32(1));
  const uint32_t w_left = static_cast<uint32_t>(map[vget_lane_s32(index, 0)]);
  const uint32_t w_right = static_cast<uint32_t>(map[vget_lane_s32(index, 1)]);
  sums->left_weight += w_left;
  sums->right_weight += w_right;
  for (int r = 0; r < 4; ++r) {
    const uint16x8_t row = vmovl_u8(rows[r]);
    sums->left[r] = vmlaq_n_u32(sums->left[r], vmovl_u16(vget_low_u16(row)), w_left);
    sums->right[r] = vmlaq_n_u32(sums->right[r], vmovl_u16(vget_high_u16(row)), w_right);
  }
}

static inline void add_neighbours(pair_sums* sums, const unsigned char* cur,
                                  const unsigned char* const nei[8], int stride, const int* map,
                                  int m_left, int m_right) {
  uint8x8_t rows[4];
  for (int r = 0; r < 4; ++r) rows[r] = vld1_u8(cur + r * static_cast<ptrdiff_t>(stride));
  const float32x2_t mask_r = mask_reciprocals(m_left, m_right);
  for (int i = 0; i < 8; ++i) add_neighbour(sums, rows, nei[i], stride, map, mask_r);
}

// Low 8 bits of truncate(0.5 + sum * r), four pixels in 32-bit lanes.
static inline uint32x4_t normalise_row(uint32x4_t sum, float r) {
  const float32x4_t mean = vmulq_n_f32(vcvtq_f32_u32(sum), r);
  return truncate_to_u32(vaddq_f32(vdupq_n_f32(0.5f), mean));
}

// Writes both normalised blocks: four rows of 8 bytes.
static inline void store_normalised(const pair_sums& sums, unsigned char* out, int out_stride) {
  const uint32_t totals[4] = {sums.left_weight, sums.right_weight, sums.left_weight,
                              sums.right_weight};
  const float32x4_t r = refined_reciprocal_x4(vcvtq_f32_u32(vld1q_u32(totals)));
  const float r_left = vgetq_lane_f32(r, 0);
  const float r_right = vgetq_lane_f32(r, 1);
  for (int row = 0; row < 4; ++row, out += out_stride) {
    const uint16x4_t left = vmovn_u32(normalise_row(sums.left[row], r_left));
    const uint16x4_t right = vmovn_u32(normalise_row(sums.right[row], r_right));
    vst1_u8(out, vmovn_u16(vcombine_u16(left, right)));
  }
}

}  // namespace vorn
