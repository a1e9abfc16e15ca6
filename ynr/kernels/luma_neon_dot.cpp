// Leaf kernels for Arm v8.2 with dot products: as v8.0, with the blend in quads of pixels.
#include "ynr/kernels/luma_neon.h"

namespace vorn {
namespace {

using namespace luma_neon;

// The weights of one ring and four blocks as words, a block per 32-bit lane; the bytes of a word
// weigh the pixels (left, centre, right, centre) of the row above, of the own row, of the row
// below.
struct ring_words {
  uint8x16_t up, own, down;
};

// Byte triples of 16 blocks to words of four blocks each.
static inline void to_words(uint8x16_t a, uint8x16_t b, uint8x16_t c, uint8x16_t d,
                            uint8x16_t (&words)[4]) {
  const uint16x8_t ab_low = vreinterpretq_u16_u8(vzip1q_u8(a, b));
  const uint16x8_t ab_high = vreinterpretq_u16_u8(vzip2q_u8(a, b));
  const uint16x8_t cd_low = vreinterpretq_u16_u8(vzip1q_u8(c, d));
  const uint16x8_t cd_high = vreinterpretq_u16_u8(vzip2q_u8(c, d));
  words[0] = vreinterpretq_u8_u16(vzip1q_u16(ab_low, cd_low));
  words[1] = vreinterpretq_u8_u16(vzip2q_u16(ab_low, cd_low));
  words[2] = vreinterpretq_u8_u16(vzip1q_u16(ab_high, cd_high));
  words[3] = vreinterpretq_u8_u16(vzip2q_u16(ab_high, cd_high));
}

// Adds what source row Row (-3..6) of one block, which begins 3 rows and columns before it, gives
// to its four output rows: one permute per ring that reaches the row, used for the output rows a
// ring distance above it, at it and below it.
template <int Rings, int Row, int Lane>
static inline void add_row(const unsigned char* block, const ring_words (&words)[Rings],
                           const uint8x16_t (&quads)[kMaxRings], uint32x4_t (&sum)[4]) {
  if (Row < -Rings || Row > 3 + Rings) return;
  const uint8x16_t row = vld1q_u8(block + (kMaxRings + Row) * kTilePitch);
  for (int ring = 0; ring < Rings; ++ring) {
    const int d = ring + 1;
    if (Row < -d || Row > 3 + d) continue;
    const uint8x16_t quad = vqtbl1q_u8(row, quads[ring]);
    if (Row + d >= 0 && Row + d < 4)
      sum[(Row + d) & 3] = vdotq_laneq_u32(sum[(Row + d) & 3], quad, words[ring].up, Lane);
    if (Row >= 0 && Row < 4)
      sum[Row & 3] = vdotq_laneq_u32(sum[Row & 3], quad, words[ring].own, Lane);
    if (Row - d >= 0 && Row - d < 4)
      sum[(Row - d) & 3] = vdotq_laneq_u32(sum[(Row - d) & 3], quad, words[ring].down, Lane);
  }
}

template <int Rings, int Lane>
static inline block_pixels blend_block(const unsigned char* tile, const ring_words (&words)[Rings],
                                       const uint8x16_t (&quads)[kMaxRings],
                                       const float* reciprocal) {
  const unsigned char* block = opaque(tile + 4 * Lane - kMaxRings - kMaxRings * kTilePitch);
  uint32x4_t sum[4] = {vdupq_n_u32(0), vdupq_n_u32(0), vdupq_n_u32(0), vdupq_n_u32(0)};
  add_row<Rings, -3, Lane>(block, words, quads, sum);
  add_row<Rings, -2, Lane>(block, words, quads, sum);
  add_row<Rings, -1, Lane>(block, words, quads, sum);
  add_row<Rings, 0, Lane>(block, words, quads, sum);
  add_row<Rings, 1, Lane>(block, words, quads, sum);
  add_row<Rings, 2, Lane>(block, words, quads, sum);
  add_row<Rings, 3, Lane>(block, words, quads, sum);
  add_row<Rings, 4, Lane>(block, words, quads, sum);
  add_row<Rings, 5, Lane>(block, words, quads, sum);
  add_row<Rings, 6, Lane>(block, words, quads, sum);
  return normalise(sum, vld1q_dup_f32(reciprocal + Lane));
}

template <int Rings>
void blend_rings(const unsigned char* tile, const unsigned char (*weight)[kRunBlocks],
                 const float* reciprocal, unsigned char* out, int out_stride) {
  alignas(16) static const unsigned char kQuads[kMaxRings][16] = {
      {2, 3, 4, 3, 3, 4, 5, 4, 4, 5, 6, 5, 5, 6, 7, 6},
      {1, 3, 5, 3, 2, 4, 6, 4, 3, 5, 7, 5, 4, 6, 8, 6},
      {0, 3, 6, 3, 1, 4, 7, 4, 2, 5, 8, 5, 3, 6, 9, 6}};
  uint8x16_t quads[kMaxRings];
  for (int ring = 0; ring < kMaxRings; ++ring) quads[ring] = vld1q_u8(kQuads[ring]);
  const uint8x16_t none = vdupq_n_u8(0);
  uint8x16_t words[Rings][3][4];
  for (int ring = 0; ring < Rings; ++ring, weight += kNeighbours) {
    // The block's own weight 256 is 255 in the centre byte and 1 in the spare one.
    const uint8x16_t centre = ring == 0 ? vdupq_n_u8(255) : none;
    const uint8x16_t spare = ring == 0 ? vdupq_n_u8(1) : none;
    to_words(vld1q_u8(weight[2]), vld1q_u8(weight[3]), vld1q_u8(weight[4]), none, words[ring][0]);
    to_words(vld1q_u8(weight[0]), centre, vld1q_u8(weight[1]), spare, words[ring][1]);
    to_words(vld1q_u8(weight[5]), vld1q_u8(weight[6]), vld1q_u8(weight[7]), none, words[ring][2]);
  }
  for (int group = 0; group < 4; ++group, tile += 16, out += 16) {
    ring_words w[Rings];
    for (int ring = 0; ring < Rings; ++ring)
      w[ring] = {words[ring][0][group], words[ring][1][group], words[ring][2][group]};
    const float* r = reciprocal + 4 * group;
    const block_pixels blocks[4] = {
        blend_block<Rings, 0>(tile, w, quads, r), blend_block<Rings, 1>(tile, w, quads, r),
        blend_block<Rings, 2>(tile, w, quads, r), blend_block<Rings, 3>(tile, w, quads, r)};
    store_pixels(blocks, out, out_stride);
  }
}

void blend(const unsigned char* tile, int rings, const unsigned char (*weight)[kRunBlocks],
           const float* reciprocal, unsigned char* out, int out_stride) {
  if (rings == 1) blend_rings<1>(tile, weight, reciprocal, out, out_stride);
  if (rings == 2) blend_rings<2>(tile, weight, reciprocal, out, out_stride);
  if (rings == 3) blend_rings<3>(tile, weight, reciprocal, out, out_stride);
}

void filter(const unsigned char* tile, int rings, const run_rules* rules, int runs,
            unsigned char* out, int out_stride) {
  filter_in_phases({distances, look_up, blend}, tile, rings, rules, runs, out, out_stride);
}

}  // namespace

const luma_kernels kLumaNeonDot = {0, fetch_unchanged, filter};

}  // namespace vorn
