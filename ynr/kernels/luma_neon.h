// NEON forms of the leaf kernels: the parts that v8.0 and v8.2 share.
#pragma once

#include <cstddef>

#include "runtime/neon.h"
#include "ynr/kernels/luma_kernels.h"

namespace vorn {
namespace luma_neon {

// Hides how a pointer came about: what is loaded relative to it then stays an offset in the load,
// which costs nothing, instead of an addition each.
static inline const unsigned char* opaque(const unsigned char* p) {
  asm("" : "+r"(p));
  return p;
}

// The tile's columns at -3..3 pixels from a pointer, from the uppermost row on: rows are whole
// multiples of 16 bytes further down.
struct tile_columns {
  const unsigned char* at[2 * kMaxRings + 1];
  explicit tile_columns(const unsigned char* tile) {
    for (int dx = -kMaxRings; dx <= kMaxRings; ++dx)
      at[kMaxRings + dx] = opaque(tile - kMaxRings * kTilePitch + dx);
  }
  const unsigned char* pixels(int dx, int dy) const {
    return at[kMaxRings + dx] + (kMaxRings + dy) * kTilePitch;
  }
};
static_assert(kTilePitch % 16 == 0, "rows as scaled offsets");

// Distances of 8 blocks (32 pixels) per step. Four rows of clipped differences add up as bytes
// (4 * 49 = 196), then two pairwise additions make the 16-bit distances.
template <int Dx, int Dy>
static inline void displaced_distances(const uint8x16_t (&cur)[2][4], const tile_columns& tile,
                                       uint16_t* distance) {
  const uint8x16_t clip = vdupq_n_u8(49);
  uint16x8_t pairs[2];
  for (int half = 0; half < 2; ++half) {
    const unsigned char* nei = tile.pixels(Dx, Dy) + 16 * half;
    uint8x16_t sum = vminq_u8(vabdq_u8(cur[half][0], vld1q_u8(nei)), clip);
    for (int r = 1; r < 4; ++r)
      sum = vaddq_u8(sum, vminq_u8(vabdq_u8(cur[half][r], vld1q_u8(nei + r * kTilePitch)), clip));
    pairs[half] = vpaddlq_u8(sum);
  }
  vst1q_u16(distance, vpaddq_u16(pairs[0], pairs[1]));
}

template <int D>
static inline void ring_distances(const uint8x16_t (&cur)[2][4], const tile_columns& tile,
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
    const tile_columns columns(tile);
    uint8x16_t cur[2][4];
    for (int half = 0; half < 2; ++half)
      for (int r = 0; r < 4; ++r) cur[half][r] = vld1q_u8(columns.pixels(0, r) + 16 * half);
    uint16_t(*out)[kRunBlocks] = reinterpret_cast<uint16_t(*)[kRunBlocks]>(&distance[0][first]);
    ring_distances<1>(cur, columns, out);
    if (rings >= 2) ring_distances<2>(cur, columns, out + kNeighbours);
    if (rings >= 3) ring_distances<3>(cur, columns, out + 2 * kNeighbours);
  }
}

// Eight indices: high half of (64 D + bias) * factor, shifted down.
struct rule_lanes {
  uint16x8_t bias, factor;
  int16x8_t minus_shift;
};

static inline rule_lanes load_rules(const index_rule* rules) {
  const uint16x8x4_t fields = vld4q_u16(&rules->bias);
  return {fields.val[0], fields.val[1], vnegq_s16(vreinterpretq_s16_u16(fields.val[2]))};
}

// High halves of eight unsigned 16-bit products.
static inline uint16x8_t multiply_high(uint16x8_t a, uint16x8_t b) {
#if defined(__aarch64__)
  const uint32x4_t low = vmull_u16(vget_low_u16(a), vget_low_u16(b));
  const uint32x4_t high = vmull_high_u16(a, b);
  return vuzp2q_u16(vreinterpretq_u16_u32(low), vreinterpretq_u16_u32(high));
#else
  // SIMDe multiplies these as signed numbers, which overflow.
  uint16_t x[8], y[8];
  vst1q_u16(x, a);
  vst1q_u16(y, b);
  for (int i = 0; i < 8; ++i) x[i] = static_cast<uint16_t>(uint32_t{x[i]} * y[i] >> 16);
  return vld1q_u16(x);
#endif
}

static inline uint16x8_t indices(const uint16_t* distance, const rule_lanes& rule) {
  const uint16x8_t scaled = vaddq_u16(vshlq_n_u16(vld1q_u16(distance), 6), rule.bias);
  return vshlq_u16(multiply_high(scaled, rule.factor), rule.minus_shift);
}

static inline uint8x16x4_t load_64(const unsigned char* of) {
  return {{vld1q_u8(of), vld1q_u8(of + 16), vld1q_u8(of + 32), vld1q_u8(of + 48)}};
}

// Weights from tables in registers: up to 256 entries, 16 look-ups per step. Indices beyond the
// table (and those that saturate on the way to bytes) give 0, which is their weight.
template <int Entries>
static inline void look_up_in_registers(const uint16_t (*distance)[kRunBlocks], int neighbours,
                                        const index_rule* rules, const unsigned char* of,
                                        unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  const uint8x16x4_t first_64 = load_64(of), second_64 = load_64(of + 64);
  const uint8x16x4_t third_64 = load_64(of + 128), fourth_64 = load_64(of + 192);
  const rule_lanes rule[2] = {load_rules(rules), load_rules(rules + 8)};
  const uint8x16_t step = vdupq_n_u8(64);
  uint16x8_t sum[2] = {vdupq_n_u16(256), vdupq_n_u16(256)};
  for (int n = 0; n < neighbours; ++n) {
    const uint16x8_t left = indices(distance[n], rule[0]);
    const uint16x8_t right = indices(distance[n] + 8, rule[1]);
    uint8x16_t index = vcombine_u8(vqmovn_u16(left), vqmovn_u16(right));
    uint8x16_t w = vqtbl4q_u8(first_64, index);
    if (Entries > 64) w = vqtbx4q_u8(w, second_64, index = vsubq_u8(index, step));
    if (Entries > 128) {
      w = vqtbx4q_u8(w, third_64, index = vsubq_u8(index, step));
      w = vqtbx4q_u8(w, fourth_64, index = vsubq_u8(index, step));
    }
    vst1q_u8(weight[n], w);
    sum[0] = vaddw_u8(sum[0], vget_low_u8(w));
    sum[1] = vaddw_u8(sum[1], vget_high_u8(w));
  }
  vst1q_u16(total, sum[0]);
  vst1q_u16(total + 8, sum[1]);
}

// Weights from memory, for longer tables.
static inline void look_up_in_memory(const uint16_t (*distance)[kRunBlocks], int neighbours,
                                     const index_rule* rules, const unsigned char* of,
                                     unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  for (int first = 0; first < kRunBlocks; first += 8) {
    const rule_lanes rule = load_rules(rules + first);
    uint16x8_t sum = vdupq_n_u16(256);
    for (int n = 0; n < neighbours; ++n) {
      const uint16x8_t index = vminq_u16(indices(distance[n] + first, rule), vdupq_n_u16(799));
      uint16_t i[8];
      vst1q_u16(i, index);
      unsigned char w[8];
      for (int k = 0; k < 8; ++k) w[k] = of[i[k]];
      const uint8x8_t weights = vld1_u8(w);
      vst1_u8(weight[n] + first, weights);
      sum = vaddw_u8(sum, weights);
    }
    vst1q_u16(total + first, sum);
  }
}

static inline void look_up(const uint16_t (*distance)[kRunBlocks], int rings,
                           const index_rule* rules, const weight_table* table,
                           unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  const int neighbours = rings * kNeighbours;
  if (table->support <= 64)
    look_up_in_registers<64>(distance, neighbours, rules, table->of, weight, total);
  else if (table->support <= 128)
    look_up_in_registers<128>(distance, neighbours, rules, table->of, weight, total);
  else if (table->support <= 255)
    look_up_in_registers<256>(distance, neighbours, rules, table->of, weight, total);
  else
    look_up_in_memory(distance, neighbours, rules, table->of, weight, total);
}

// Four rows of one block to 16-bit pixels, two rows per vector.
struct block_pixels {
  uint16x8_t upper, lower;
};

static inline uint16x8_t pixels_of(uint32x4_t sum, float32x4_t reciprocal) {
  const float32x4_t mean = vmulq_f32(vcvtq_f32_u32(sum), reciprocal);
  return vreinterpretq_u16_u32(vcvtq_u32_f32(vaddq_f32(vdupq_n_f32(0.5f), mean)));
}

static inline block_pixels normalise(const uint32x4_t (&sum)[4], float32x4_t reciprocal) {
  return {vuzp1q_u16(pixels_of(sum[0], reciprocal), pixels_of(sum[1], reciprocal)),
          vuzp1q_u16(pixels_of(sum[2], reciprocal), pixels_of(sum[3], reciprocal))};
}

// Four blocks side by side: bytes of two blocks' row pairs, then the rows apart.
static inline void store_pixels(const block_pixels (&blocks)[4], unsigned char* out,
                                ptrdiff_t out_stride) {
  const auto bytes = [](uint16x8_t a, uint16x8_t b) {
    return vreinterpretq_u32_u8(vuzp1q_u8(vreinterpretq_u8_u16(a), vreinterpretq_u8_u16(b)));
  };
  const uint32x4_t upper_left = bytes(blocks[0].upper, blocks[1].upper);
  const uint32x4_t upper_right = bytes(blocks[2].upper, blocks[3].upper);
  const uint32x4_t lower_left = bytes(blocks[0].lower, blocks[1].lower);
  const uint32x4_t lower_right = bytes(blocks[2].lower, blocks[3].lower);
  vst1q_u8(out, vreinterpretq_u8_u32(vuzp1q_u32(upper_left, upper_right)));
  vst1q_u8(out + out_stride, vreinterpretq_u8_u32(vuzp2q_u32(upper_left, upper_right)));
  vst1q_u8(out + 2 * out_stride, vreinterpretq_u8_u32(vuzp1q_u32(lower_left, lower_right)));
  vst1q_u8(out + 3 * out_stride, vreinterpretq_u8_u32(vuzp2q_u32(lower_left, lower_right)));
}

}  // namespace luma_neon
}  // namespace vorn
