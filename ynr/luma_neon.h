// NEON forms of the leaf kernels: the parts that v8.0 and v8.2 share.
#pragma once

#include <cstddef>

#include "runtime/neon.h"
#include "ynr/luma_kernels.h"

namespace vorn {
namespace luma_neon {

// Distances of 8 blocks (32 pixels) per step. Four rows of clipped differences add up as bytes
// (4 * 49 = 196), then two pairwise additions make the 16-bit distances.
template <int Dx, int Dy>
static inline void displaced_distances(const uint8x16_t (&cur)[2][4], const unsigned char* tile,
                                       uint16_t* distance) {
  const uint8x16_t clip = vdupq_n_u8(49);
  uint16x8_t pairs[2];
  for (int half = 0; half < 2; ++half) {
    const unsigned char* nei = tile + Dy * kTilePitch + Dx + 16 * half;
    uint8x16_t sum = vminq_u8(vabdq_u8(cur[half][0], vld1q_u8(nei)), clip);
    for (int r = 1; r < 4; ++r)
      sum = vaddq_u8(sum, vminq_u8(vabdq_u8(cur[half][r], vld1q_u8(nei + r * kTilePitch)), clip));
    pairs[half] = vpaddlq_u8(sum);
  }
  vst1q_u16(distance, vpaddq_u16(pairs[0], pairs[1]));
}

template <int D>
static inline void ring_distances(const uint8x16_t (&cur)[2][4], const unsigned char* tile,
                                  uint16_t (*distance)[kRunBlocks]) {
  displaced_distances<-D, 0>(cur, tile, distance[0]);
  displaced_distances<D, 0>(cur, tile, distance[1]);
  displaced_distances<-D, -D>(cur, tile, distance[2]);
  displaced_distances<0, -D>(cur, tile, distance[3]);
  displaced_distances<D, -D>(cur, tile, distance[4]);
  displaced_distances<-D, D>(cur, tile, distance[5]);
  displaced_distances<0, D>(cur, tile, distance[6]);
  displaced_distances<D, D>(cur, tile, distance[7]);
}

static inline void distances(const unsigned char* tile, int rings,
                             uint16_t (*distance)[kRunBlocks]) {
  for (int first = 0; first < kRunBlocks; first += 8, tile += 32) {
    uint8x16_t cur[2][4];
    for (int half = 0; half < 2; ++half)
      for (int r = 0; r < 4; ++r) cur[half][r] = vld1q_u8(tile + 16 * half + r * kTilePitch);
    uint16_t(*out)[kRunBlocks] = reinterpret_cast<uint16_t(*)[kRunBlocks]>(&distance[0][first]);
    ring_distances<1>(cur, tile, out);
    if (rings >= 2) ring_distances<2>(cur, tile, out + kNeighbours);
    if (rings >= 3) ring_distances<3>(cur, tile, out + 2 * kNeighbours);
  }
}

// Eight indices: high half of (64 D + bias) * factor, shifted down.
static inline uint16x8_t indices(uint16x8_t distance, uint16x8_t bias, uint16x8_t factor,
                                 int16x8_t minus_shift) {
  const uint16x8_t scaled = vaddq_u16(vshlq_n_u16(distance, 6), bias);
  const uint32x4_t low = vmull_u16(vget_low_u16(scaled), vget_low_u16(factor));
  const uint32x4_t high = vmull_u16(vget_high_u16(scaled), vget_high_u16(factor));
  const uint16x8_t product = vuzp2q_u16(vreinterpretq_u16_u32(low), vreinterpretq_u16_u32(high));
  return vshlq_u16(product, minus_shift);
}

// Weights in registers: up to 128 table entries, 16 look-ups per step. Indices beyond the table
// (and those that saturate on the way to bytes) give 0, which is their weight.
template <int Entries>
static inline void look_up_in_registers(const uint16_t (*distance)[kRunBlocks], int neighbours,
                                        const index_rule* rule, const weight_table* table,
                                        unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  uint8x16x4_t low, high;
  for (int i = 0; i < 4; ++i) {
    low.val[i] = vld1q_u8(table->of + 16 * i);
    high.val[i] = vld1q_u8(table->of + 64 + 16 * i);
  }
  uint16x8_t bias[2], factor[2], sum[2];
  int16x8_t minus_shift[2];
  for (int half = 0; half < 2; ++half) {
    bias[half] = vld1q_u16(rule->bias + 8 * half);
    factor[half] = vld1q_u16(rule->factor + 8 * half);
    minus_shift[half] = vnegq_s16(vreinterpretq_s16_u16(vld1q_u16(rule->shift + 8 * half)));
    sum[half] = vdupq_n_u16(256);
  }
  for (int n = 0; n < neighbours; ++n) {
    const uint16x8_t first = indices(vld1q_u16(distance[n]), bias[0], factor[0], minus_shift[0]);
    const uint16x8_t second =
        indices(vld1q_u16(distance[n] + 8), bias[1], factor[1], minus_shift[1]);
    const uint8x16_t index = vcombine_u8(vqmovn_u16(first), vqmovn_u16(second));
    uint8x16_t w = vqtbl4q_u8(low, index);
    if (Entries > 64) w = vqtbx4q_u8(w, high, vsubq_u8(index, vdupq_n_u8(64)));
    vst1q_u8(weight[n], w);
    sum[0] = vaddw_u8(sum[0], vget_low_u8(w));
    sum[1] = vaddw_u8(sum[1], vget_high_u8(w));
  }
  vst1q_u16(total, sum[0]);
  vst1q_u16(total + 8, sum[1]);
}

// Weights from memory, for longer tables.
static inline void look_up_in_memory(const uint16_t (*distance)[kRunBlocks], int neighbours,
                                     const index_rule* rule, const weight_table* table,
                                     unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  for (int first = 0; first < kRunBlocks; first += 8) {
    const uint16x8_t bias = vld1q_u16(rule->bias + first);
    const uint16x8_t factor = vld1q_u16(rule->factor + first);
    const int16x8_t minus_shift = vnegq_s16(vreinterpretq_s16_u16(vld1q_u16(rule->shift + first)));
    uint16x8_t sum = vdupq_n_u16(256);
    for (int n = 0; n < neighbours; ++n) {
      const uint16x8_t index = vminq_u16(
          indices(vld1q_u16(distance[n] + first), bias, factor, minus_shift), vdupq_n_u16(799));
      uint16_t i[8];
      vst1q_u16(i, index);
      unsigned char w[8];
      for (int k = 0; k < 8; ++k) w[k] = table->of[i[k]];
      const uint8x8_t weights = vld1_u8(w);
      vst1_u8(weight[n] + first, weights);
      sum = vaddw_u8(sum, weights);
    }
    vst1q_u16(total + first, sum);
  }
}

static inline void look_up(const uint16_t (*distance)[kRunBlocks], int rings,
                           const index_rule* rule, const weight_table* table,
                           unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  const int neighbours = rings * kNeighbours;
  if (table->support <= 64)
    look_up_in_registers<64>(distance, neighbours, rule, table, weight, total);
  else if (table->support <= 128)
    look_up_in_registers<128>(distance, neighbours, rule, table, weight, total);
  else
    look_up_in_memory(distance, neighbours, rule, table, weight, total);
}

// Four blocks' sums of one pixel row to 16 pixels.
static inline uint8x16_t normalise(const uint32x4_t (&sum)[4], float32x4_t reciprocal) {
  const float32x4_t half = vdupq_n_f32(0.5f);
  uint16x8_t words[4];
  words[0] = vreinterpretq_u16_u32(
      vcvtq_u32_f32(vaddq_f32(half, vmulq_laneq_f32(vcvtq_f32_u32(sum[0]), reciprocal, 0))));
  words[1] = vreinterpretq_u16_u32(
      vcvtq_u32_f32(vaddq_f32(half, vmulq_laneq_f32(vcvtq_f32_u32(sum[1]), reciprocal, 1))));
  words[2] = vreinterpretq_u16_u32(
      vcvtq_u32_f32(vaddq_f32(half, vmulq_laneq_f32(vcvtq_f32_u32(sum[2]), reciprocal, 2))));
  words[3] = vreinterpretq_u16_u32(
      vcvtq_u32_f32(vaddq_f32(half, vmulq_laneq_f32(vcvtq_f32_u32(sum[3]), reciprocal, 3))));
  return vuzp1q_u8(vreinterpretq_u8_u16(vuzp1q_u16(words[0], words[1])),
                   vreinterpretq_u8_u16(vuzp1q_u16(words[2], words[3])));
}

}  // namespace luma_neon
}  // namespace vorn
