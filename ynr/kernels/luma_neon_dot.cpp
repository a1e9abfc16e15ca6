// Arm v8.2 with dot products: a run's weights as words in registers, the blend by one permute and
// up to three dot products per block, ring and source row, four pixels each. Sums of 32 bits, at
// most 6376 * 255. Exact.
#include "ynr/kernels/luma_neon.h"

namespace vorn {
namespace {

using namespace luma_neon;

// Bytes (x - d, x, x + d, x) of four pixels, from a row that begins three pixels to the left.
alignas(16) const
    unsigned char kQuads[kMaxRings][16] = {{2, 3, 4, 3, 3, 4, 5, 4, 4, 5, 6, 5, 5, 6, 7, 6},
                                           {1, 3, 5, 3, 2, 4, 6, 4, 3, 5, 7, 5, 4, 6, 8, 6},
                                           {0, 3, 6, 3, 1, 4, 7, 4, 2, 5, 8, 5, 3, 6, 9, 6}};

// What source row Row (-3..6) gives to the four output rows of one block.
template <int Rings, int Row, int Lane>
VORN_INLINE void add_block_row(uint8x16_t row, const uint8x16_t (&w)[Rings][3],
                               const uint8x16_t (&quads)[Rings], uint32x4_t (&sum)[4]) {
  for (int ring = 0; ring < Rings; ++ring) {
    const int d = ring + 1;
    if (Row < -d || Row > 3 + d) continue;
    const uint8x16_t quad = vqtbl1q_u8(row, quads[ring]);
    if (Row + d >= 0 && Row + d < 4)
      sum[(Row + d) & 3] = vdotq_laneq_u32(sum[(Row + d) & 3], quad, w[ring][0], Lane);
    if (Row >= 0 && Row < 4) sum[Row & 3] = vdotq_laneq_u32(sum[Row & 3], quad, w[ring][1], Lane);
    if (Row - d >= 0 && Row - d < 4)
      sum[(Row - d) & 3] = vdotq_laneq_u32(sum[(Row - d) & 3], quad, w[ring][2], Lane);
  }
}

// Two blocks side by side per load of a row.
template <int Rings, int Row, int Lane>
VORN_INLINE void add_row(const unsigned char* at, const uint8x16_t (&w)[Rings][3],
                         const uint8x16_t (&left)[Rings], const uint8x16_t (&right)[Rings],
                         uint32x4_t (&a)[4], uint32x4_t (&b)[4]) {
  if (Row < -Rings || Row > 3 + Rings) return;
  const uint8x16_t row = load(at + (kMaxRings + Row) * kTilePitch);
  add_block_row<Rings, Row, Lane>(row, w, left, a);
  add_block_row<Rings, Row, Lane + 1>(row, w, right, b);
}

template <int Rings, int Lane>
VORN_INLINE void blend_two(const unsigned char* tile, const uint8x16_t (&w)[Rings][3],
                           const uint8x16_t (&left)[Rings], const uint8x16_t (&right)[Rings],
                           float32x4_t reciprocal, block_pixels* out) {
  const unsigned char* at = opaque(tile + 4 * Lane - kMaxRings - kMaxRings * kTilePitch);
  uint32x4_t a[4], b[4];
  for (int i = 0; i < 4; ++i) a[i] = b[i] = vdupq_n_u32(0);
  add_row<Rings, -3, Lane>(at, w, left, right, a, b);
  add_row<Rings, -2, Lane>(at, w, left, right, a, b);
  add_row<Rings, -1, Lane>(at, w, left, right, a, b);
  add_row<Rings, 0, Lane>(at, w, left, right, a, b);
  add_row<Rings, 1, Lane>(at, w, left, right, a, b);
  add_row<Rings, 2, Lane>(at, w, left, right, a, b);
  add_row<Rings, 3, Lane>(at, w, left, right, a, b);
  add_row<Rings, 4, Lane>(at, w, left, right, a, b);
  add_row<Rings, 5, Lane>(at, w, left, right, a, b);
  add_row<Rings, 6, Lane>(at, w, left, right, a, b);
  out[0] = normalise<Lane>(a, reciprocal);
  out[1] = normalise<Lane + 1>(b, reciprocal);
}

// Per ring and row, a word per block and four blocks per vector; the bytes of a word weigh the
// pixels (left, centre, right, centre).
struct dot_words {
  uint8x16_t of[kMaxRings][3][4];
  uint32x4_t total[4] = {vdupq_n_u32(0), vdupq_n_u32(0), vdupq_n_u32(0), vdupq_n_u32(0)};

  __attribute__((always_inline)) void take(int ring, int row, uint8x16_t a, uint8x16_t b,
                                           uint8x16_t c) {
    uint8x16_t d = vdupq_n_u8(0);
    if (ring == 0 && row == 1) {  // the block's own weight 256 is 255 and 1 in the spare byte
      b = vdupq_n_u8(255);
      d = vdupq_n_u8(1);
    }
    const uint16x8_t ab_low = vreinterpretq_u16_u8(vzip1q_u8(a, b));
    const uint16x8_t ab_high = vreinterpretq_u16_u8(vzip2q_u8(a, b));
    const uint16x8_t cd_low = vreinterpretq_u16_u8(vzip1q_u8(c, d));
    const uint16x8_t cd_high = vreinterpretq_u16_u8(vzip2q_u8(c, d));
    uint8x16_t(&words)[4] = of[ring][row];
    words[0] = vreinterpretq_u8_u16(vzip1q_u16(ab_low, cd_low));
    words[1] = vreinterpretq_u8_u16(vzip2q_u16(ab_low, cd_low));
    words[2] = vreinterpretq_u8_u16(vzip1q_u16(ab_high, cd_high));
    words[3] = vreinterpretq_u8_u16(vzip2q_u16(ab_high, cd_high));
    for (int g = 0; g < 4; ++g) total[g] = vdotq_u32(total[g], words[g], vdupq_n_u8(1));
  }

  template <int Rings>
  __attribute__((always_inline)) void blend(const unsigned char* tile, uint32_t exact,
                                            unsigned char* out, int out_stride) const {
    uint8x16_t left[Rings], right[Rings];
    for (int ring = 0; ring < Rings; ++ring) {
      left[ring] = load(kQuads[ring]);
      right[ring] = vaddq_u8(left[ring], vdupq_n_u8(4));
    }
#pragma GCC unroll 1
    for (int g = 0; g < 4; ++g, tile += 16, out += 16) {
      const float32x4_t reciprocal = reciprocals(total[g], exact >> 4 * g);
      uint8x16_t w[Rings][3];
      for (int ring = 0; ring < Rings; ++ring)
        for (int i = 0; i < 3; ++i) w[ring][i] = of[ring][i][g];
      block_pixels blocks[4];
      blend_two<Rings, 0>(tile, w, left, right, reciprocal, blocks);
      blend_two<Rings, 2>(tile, w, left, right, reciprocal, blocks + 2);
      store_pixels(blocks, out, out_stride);
    }
  }
};

template <int Rings>
void filter(const unsigned char* tile, const run_rules* rules, int runs, unsigned char* out,
            int out_stride, unsigned char* carry, bool first) {
  filter_runs<Rings, dot_words>(tile, rules, runs, out, out_stride, carry, first);
}

}  // namespace

const luma_kernels kLumaNeonDot = {0, true, fetch_unchanged, {filter<1>, filter<2>, filter<3>}};

}  // namespace vorn
