// What the NEON forms of v8.0 and v8.2 share beside the distances: indices and weights of a run,
// means to pixels, and the walk over runs.
//
// Widest intermediates: a scaled distance in 16 bits (784 * 64 + 127), an index by the high half of
// a 32-bit product.
// Exact.
#pragma once

#include <cstddef>

#include "runtime/neon.h"
#include "runtime/reciprocal.h"
#include "ynr/kernels/luma_kernels.h"
#include "ynr/kernels/luma_neon_distances.h"

namespace vorn {
namespace luma_neon {

// ---- indices

enum class indexing { neutral, by_short_rule, by_rule };

// High halves of eight unsigned 16-bit products.
VORN_INLINE uint16x8_t multiply_high(uint16x8_t a, uint16x8_t b) {
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

// Sixteen 16-bit numbers shifted down by N and saturated to bytes.
template <int N>
VORN_INLINE uint8x16_t narrow_shifted(const uint16x8_t (&i)[2]) {
#if defined(__aarch64__)
  return vqshrn_high_n_u16(vqshrn_n_u16(i[0], N), i[1], N);
#else
  return vcombine_u8(vqshrn_n_u16(i[0], N), vqshrn_n_u16(i[1], N));
#endif
}

template <indexing How>
struct index_maker {
  uint16x8_t bias[2], factor[2];
  int16x8_t minus_shift[2], short_factor[2];

  explicit index_maker(const mask_rules& rules) {
    for (int k = 0; k < 2; ++k) {
      if (How == indexing::by_short_rule) short_factor[k] = vld1q_s16(rules.short_factor + 8 * k);
      if (How != indexing::by_rule) continue;
      const uint16x8x4_t fields = vld4q_u16(&rules.of[8 * k].bias);
      bias[k] = fields.val[0];
      factor[k] = fields.val[1];
      minus_shift[k] = vnegq_s16(vreinterpretq_s16_u16(fields.val[2]));
    }
  }
  // Of 16 blocks' distances; 16 bits, or for tables up to 255 entries as saturated bytes.
  void words(const uint16x8_t (&d)[2], uint16x8_t (&index)[2]) const {
    for (int k = 0; k < 2; ++k) {
      index[k] = d[k];
      if (How == indexing::neutral) continue;
      const uint16x8_t scaled = vaddq_u16(vshlq_n_u16(d[k], 6), bias[k]);
      index[k] = vshlq_u16(multiply_high(scaled, factor[k]), minus_shift[k]);
    }
  }
  uint8x16_t bytes(const uint16x8_t (&d)[2]) const {
    uint16x8_t index[2];
    if (How == indexing::by_short_rule) {
      for (int k = 0; k < 2; ++k)
        index[k] = vreinterpretq_u16_s16(
            vqdmulhq_s16(vreinterpretq_s16_u16(vshlq_n_u16(d[k], 5)), short_factor[k]));
#if defined(__aarch64__)
      return vqrshrn_high_n_u16(vqrshrn_n_u16(index[0], 5), index[1], 5);
#else
      return vcombine_u8(vqrshrn_n_u16(index[0], 5), vqrshrn_n_u16(index[1], 5));
#endif
    }
    words(d, index);
    return vqmovn_high_u16(vqmovn_u16(index[0]), index[1]);
  }
};

// ---- weights of 16 distances

VORN_INLINE uint8x16x4_t load_64(const unsigned char* of) {
  return {{load(of), load(of + 16), load(of + 32), load(of + 48)}};
}

// Tables of up to 64, 128 and 255 entries in registers. Indices beyond the table give 0, which is
// their weight; those that saturate name an entry that is 0.
template <int Entries>
struct weights_in_registers {
  uint8x16x4_t part[4];
  explicit weights_in_registers(const weight_table& t) {
    for (int k = 0; k < Entries / 64; ++k) part[k] = load_64(t.of + 64 * k);
  }
  template <indexing How>
  uint8x16_t at(const uint16x8_t (&d)[2], const index_maker<How>& indices) const {
    uint8x16_t index = indices.bytes(d);
    uint8x16_t w = vqtbl4q_u8(part[0], index);
    for (int k = 1; k < Entries / 64; ++k)
      w = vqtbx4q_u8(w, part[k], index = vsubq_u8(index, vdupq_n_u8(64)));
    return w;
  }
};

// Longer ones on lines of 1 << Shift entries; see weight_table.
template <int Shift>
struct weights_on_lines {
  uint8x16x4_t base, slope, lower, upper;
  explicit weights_on_lines(const weight_table& t)
      : base(load_64(t.base)), slope(load_64(t.slope)), lower(load_64(t.lower)) {
    if (Shift == 4) upper = load_64(t.upper);
  }
  template <indexing How>
  uint8x16_t at(const uint16x8_t (&d)[2], const index_maker<How>& indices) const {
    uint16x8_t i[2];
    indices.words(d, i);
    if (Shift == 4 && How == indexing::by_rule)  // entries may reach to the last one, 799
      for (uint16x8_t& index : i) index = vminq_u16(index, vdupq_n_u16(799));
    const uint8x16_t line = narrow_shifted<Shift>(i);
    const uint8x16_t low_bytes = vuzp1q_u8(vreinterpretq_u8_u16(i[0]), vreinterpretq_u8_u16(i[1]));
    const uint8x16_t place = vandq_u8(low_bytes, vdupq_n_u8((1 << Shift) - 1));
    const int8x16_t by = vreinterpretq_s8_u8(place);
    uint8x16_t minus =
        vsraq_n_u8(vqtbl4q_u8(base, line), vmulq_u8(vqtbl4q_u8(slope, line), place), 4);
    minus = vsraq_n_u8(minus, vshlq_u8(vqtbl4q_u8(lower, line), by), 7);
    if (Shift == 4)
      minus = vsraq_n_u8(minus, vshlq_u8(vqtbl4q_u8(upper, line), vsubq_s8(by, vdupq_n_s8(8))), 7);
    return vreinterpretq_u8_s8(vnegq_s8(vreinterpretq_s8_u8(minus)));
  }
};

// Any table, entry by entry.
struct weights_in_memory {
  const unsigned char* of;
  explicit weights_in_memory(const weight_table& t) : of(t.of) {}
  template <indexing How>
  uint8x16_t at(const uint16x8_t (&d)[2], const index_maker<How>& indices) const {
    uint16x8_t index[2];
    indices.words(d, index);
    uint16_t i[16];
    for (int k = 0; k < 2; ++k) vst1q_u16(i + 8 * k, vminq_u16(index[k], vdupq_n_u16(799)));
    unsigned char w[16];
    for (int k = 0; k < 16; ++k) w[k] = of[i[k]];
    return load(w);
  }
};

// Hands a run's weights to words->take(ring, row, left, centre, right), a byte per block: row 0 is
// above the block, 1 its own (the centre is not a neighbour), 2 below.
template <int Rings, indexing How, typename Weights, typename Words>
static inline void make_words(const run_scratch& s, const run_rules& rules, Words* words) {
  const Weights weights(*rules.table);
  const index_maker<How> indices(*rules.masks);
#pragma GCC unroll 1
  for (int ring = 0; ring < Rings; ++ring) {
    const auto aligned = [&](int i) {
      const uint16_t* d = s.aligned[ring][i];
      return weights.at({vld1q_u16(d), vld1q_u16(d + 8)}, indices);
    };
    const auto left = [&](int i) {
      const unsigned char* at = s.left[ring][i] + 15 - ring;
      uint16x8_t pairs[4];
      for (int k = 0; k < 4; ++k) pairs[k] = vpaddlq_u8(load(at + 16 * k));
      return weights.at({vpaddq_u16(pairs[0], pairs[1]), vpaddq_u16(pairs[2], pairs[3])}, indices);
    };
    const uint8x16_t none = vdupq_n_u8(0);
    words->take(ring, 0, left(1), aligned(1), aligned(2));
    words->take(ring, 1, left(0), none, aligned(0));
    words->take(ring, 2, left(2), aligned(3), aligned(4));
  }
}

template <int Rings, indexing How, typename Words>
static inline void make_words(const run_scratch& s, const run_rules& rules, Words* words) {
  const weight_table& table = *rules.table;
  if (table.support <= 64) return make_words<Rings, How, weights_in_registers<64>>(s, rules, words);
  if (table.support <= 128)
    return make_words<Rings, How, weights_in_registers<128>>(s, rules, words);
  constexpr indexing kLong = How == indexing::by_short_rule ? indexing::by_rule : How;
  if (table.support <= 255)
    return make_words<Rings, kLong, weights_in_registers<256>>(s, rules, words);
  if (!table.lines) return make_words<Rings, indexing::by_rule, weights_in_memory>(s, rules, words);
  if (table.support < 512) return make_words<Rings, kLong, weights_on_lines<3>>(s, rules, words);
  make_words<Rings, kLong, weights_on_lines<4>>(s, rules, words);
}

template <int Rings, typename Words>
static inline void make_words(const run_scratch& s, const run_rules& rules, Words* words) {
  if (rules.masks->neutral)
    make_words<Rings, indexing::neutral>(s, rules, words);
  else if (rules.table->support <= rules.masks->short_support)
    make_words<Rings, indexing::by_short_rule>(s, rules, words);
  else
    make_words<Rings, indexing::by_rule>(s, rules, words);
}

// ---- pixels

// Reciprocals of four totals, by the scalar rule where a bit of `exact` is set.
VORN_INLINE float32x4_t reciprocals(uint32x4_t total, uint32_t exact) {
  const float32x4_t e = refined_reciprocal_x4(vcvtq_f32_u32(total));
  if (!(exact & 15)) return e;
  float lanes[4];
  uint32_t totals[4];
  vst1q_f32(lanes, e);
  vst1q_u32(totals, total);
  for (int i = 0; i < 4; ++i)
    if (exact >> i & 1) lanes[i] = exact_reciprocals()[totals[i]];
  return vld1q_f32(lanes);
}

// Four rows of one block to 16-bit pixels, two rows per vector.
struct block_pixels {
  uint16x8_t upper, lower;
};

template <int Lane>
VORN_INLINE uint16x8_t two_rows(uint32x4_t upper, uint32x4_t lower, float32x4_t reciprocal) {
  const auto pixels = [&](uint32x4_t sum) {
    const float32x4_t mean = vmulq_laneq_f32(vcvtq_f32_u32(sum), reciprocal, Lane);
    return vreinterpretq_u16_u32(vcvtq_u32_f32(vaddq_f32(vdupq_n_f32(0.5f), mean)));
  };
  return vuzp1q_u16(pixels(upper), pixels(lower));
}

template <int Lane>
VORN_INLINE block_pixels normalise(const uint32x4_t (&sum)[4], float32x4_t reciprocal) {
  return {two_rows<Lane>(sum[0], sum[1], reciprocal), two_rows<Lane>(sum[2], sum[3], reciprocal)};
}

// Four blocks side by side: bytes of two blocks' row pairs, then the rows apart.
VORN_INLINE void store_pixels(const block_pixels (&blocks)[4], unsigned char* out,
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

// A form is its Words, which take weights as above and blend<Rings>(tile, exact, out, out_stride).
template <int Rings, typename Words>
static inline void filter_runs(const unsigned char* tile, const run_rules* rules, int runs,
                               unsigned char* out, int out_stride, unsigned char* carry,
                               bool first) {
  run_scratch s;
  for (int x = 0; first && x < runs * kRunPixels; x += 16) {
    carry_of_none<1>(tile + x, carry + x);
    if (Rings >= 2) carry_of_none<2>(tile + x, carry + x);
    if (Rings >= 3) carry_of_none<3>(tile + x, carry + x);
  }
  left_of_first<1>(tile, &s);
  if (Rings >= 2) left_of_first<2>(tile, &s);
  if (Rings >= 3) left_of_first<3>(tile, &s);
  for (int i = 0; i < runs; ++i, tile += kRunPixels, out += kRunPixels, carry += kRunPixels) {
    run_distances<Rings>(tile, carry, &s);
    Words words;
    make_words<Rings>(s, rules[i], &words);
    words.template blend<Rings>(tile, rules[i].exact, out, out_stride);
    for (int ring = 0; ring < Rings; ++ring)
      for (left_row& row : s.left[ring]) vst1q_u8(row, load(row + kRunPixels));
  }
}

}  // namespace luma_neon
}  // namespace vorn
