// Arm v8.0; on x86-64 the same source through SIMDe, for checks. The blend takes two blocks at a
// time: a source row's pixels are widened once and multiplied into every output row that they
// reach. Sums of 32 bits, at most 6376 * 255. Exact.
#include "ynr/kernels/luma_neon.h"

namespace vorn {
namespace {

using namespace luma_neon;

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

// Weights of a pair of blocks as 16-bit lanes, eight neighbours of one ring per vector.
struct pair_weights {
  uint16x8_t left[kMaxRings], right[kMaxRings];
};

// Adds eight widened source pixels to one output row of both blocks, with the weights of one
// neighbour.
template <int N>
VORN_INLINE void add_pixels(uint16x8_t pixels, uint16x8_t left, uint16x8_t right,
                            uint32x4_t* left_sum, uint32x4_t* right_sum) {
  *left_sum = vmlal_laneq_u16(*left_sum, vget_low_u16(pixels), left, N);
#if defined(__aarch64__)
  *right_sum = vmlal_high_laneq_u16(*right_sum, pixels, right, N);
#else
  *right_sum = vmlal_laneq_u16(*right_sum, vget_high_u16(pixels), right, N);
#endif
}

// A source row's pixels at columns -d, 0 and d go to the output rows d below it (as their row
// above), at it, and d above it.
template <int Ring, int Row>
VORN_INLINE void add_ring_row(const tile_columns& tile, uint16x8_t centre, const pair_weights& w,
                              uint32x4_t (&left_sums)[4], uint32x4_t (&right_sums)[4]) {
  constexpr int d = Ring + 1;
  if (Row < -d || Row > 3 + d) return;
  constexpr bool above = Row + d >= 0 && Row + d < 4;
  constexpr bool own = Row >= 0 && Row < 4;
  constexpr bool below = Row - d >= 0 && Row - d < 4;
  const uint16x8_t left = vmovl_u8(vld1_u8(tile.pixels(-d, Row)));
  const uint16x8_t right = vmovl_u8(vld1_u8(tile.pixels(d, Row)));
  if (above) {
    uint32x4_t *l = &left_sums[(Row + d) & 3], *r = &right_sums[(Row + d) & 3];
    add_pixels<2>(left, w.left[Ring], w.right[Ring], l, r);
    add_pixels<3>(centre, w.left[Ring], w.right[Ring], l, r);
    add_pixels<4>(right, w.left[Ring], w.right[Ring], l, r);
  }
  if (own) {
    uint32x4_t *l = &left_sums[Row & 3], *r = &right_sums[Row & 3];
    add_pixels<0>(left, w.left[Ring], w.right[Ring], l, r);
    add_pixels<1>(right, w.left[Ring], w.right[Ring], l, r);
  }
  if (below) {
    uint32x4_t *l = &left_sums[(Row - d) & 3], *r = &right_sums[(Row - d) & 3];
    add_pixels<5>(left, w.left[Ring], w.right[Ring], l, r);
    add_pixels<6>(centre, w.left[Ring], w.right[Ring], l, r);
    add_pixels<7>(right, w.left[Ring], w.right[Ring], l, r);
  }
}

template <int Rings, int Row>
VORN_INLINE void add_row(const tile_columns& tile, const pair_weights& w,
                         uint32x4_t (&left_sums)[4], uint32x4_t (&right_sums)[4]) {
  if (Row < -Rings || Row > 3 + Rings) return;
  const uint16x8_t centre = vmovl_u8(vld1_u8(tile.pixels(0, Row)));
  add_ring_row<0, Row>(tile, centre, w, left_sums, right_sums);
  if (Rings >= 2) add_ring_row<1, Row>(tile, centre, w, left_sums, right_sums);
  if (Rings >= 3) add_ring_row<2, Row>(tile, centre, w, left_sums, right_sums);
}

template <int Rings>
VORN_INLINE void blend_pair(const tile_columns& tile, const pair_weights& w,
                            uint32x4_t (&left_sums)[4], uint32x4_t (&right_sums)[4]) {
  for (int r = 0; r < 4; ++r) {  // the block itself, weight 256
    const uint16x8_t centre = vshlq_n_u16(vmovl_u8(vld1_u8(tile.pixels(0, r))), 8);
    left_sums[r] = vmovl_u16(vget_low_u16(centre));
    right_sums[r] = vmovl_u16(vget_high_u16(centre));
  }
  add_row<Rings, -3>(tile, w, left_sums, right_sums);
  add_row<Rings, -2>(tile, w, left_sums, right_sums);
  add_row<Rings, -1>(tile, w, left_sums, right_sums);
  add_row<Rings, 0>(tile, w, left_sums, right_sums);
  add_row<Rings, 1>(tile, w, left_sums, right_sums);
  add_row<Rings, 2>(tile, w, left_sums, right_sums);
  add_row<Rings, 3>(tile, w, left_sums, right_sums);
  add_row<Rings, 4>(tile, w, left_sums, right_sums);
  add_row<Rings, 5>(tile, w, left_sums, right_sums);
  add_row<Rings, 6>(tile, w, left_sums, right_sums);
}

// Weights by neighbour (16 blocks each) to weights by block (8 neighbours each): three rounds of
// pairwise interleaving, neighbour n ending in byte n of its block.
VORN_INLINE void transpose_ring(const unsigned char (*weight)[kRunBlocks],
                                uint8_t (*by_block)[kNeighbours]) {
  uint8x16_t a[8], b[8];
  for (int n = 0; n < 8; ++n) a[n] = vld1q_u8(weight[n]);
  for (int n = 0; n < 4; ++n) {
    b[2 * n] = vzip1q_u8(a[n], a[n + 4]);
    b[2 * n + 1] = vzip2q_u8(a[n], a[n + 4]);
  }
  // b[2n + h]: neighbours n and n + 4 of blocks 8h..8h + 7.
  for (int h = 0; h < 2; ++h) {
    const uint8x16_t even_low = vzip1q_u8(b[h], b[4 + h]);  // neighbours 0 2 4 6
    const uint8x16_t even_high = vzip2q_u8(b[h], b[4 + h]);
    const uint8x16_t odd_low = vzip1q_u8(b[2 + h], b[6 + h]);  // neighbours 1 3 5 7
    const uint8x16_t odd_high = vzip2q_u8(b[2 + h], b[6 + h]);
    vst1q_u8(by_block[8 * h], vzip1q_u8(even_low, odd_low));
    vst1q_u8(by_block[8 * h + 2], vzip2q_u8(even_low, odd_low));
    vst1q_u8(by_block[8 * h + 4], vzip1q_u8(even_high, odd_high));
    vst1q_u8(by_block[8 * h + 6], vzip2q_u8(even_high, odd_high));
  }
}

using ring_weights = uint8_t[kRunBlocks][kNeighbours];

// Blocks block + First and the next one.
template <int Rings, int First>
VORN_INLINE void blend_two(const unsigned char* tile, const ring_weights (&by_block)[Rings],
                           int block, float32x4_t reciprocal, block_pixels (&pixels)[4]) {
  pair_weights w;
  for (int ring = 0; ring < Rings; ++ring) {
    w.left[ring] = vmovl_u8(vld1_u8(by_block[ring][block + First]));
    w.right[ring] = vmovl_u8(vld1_u8(by_block[ring][block + First + 1]));
  }
  uint32x4_t left[4], right[4];
  blend_pair<Rings>(tile_columns(tile + 4 * First), w, left, right);
  pixels[First] = normalise<First>(left, reciprocal);
  pixels[First + 1] = normalise<First + 1>(right, reciprocal);
}

// Weights by neighbour, in the order of kRing, 16 blocks each.
struct neighbour_weights {
  alignas(16) unsigned char of[kMaxNeighbours][kRunBlocks];
  uint16x8_t total[2] = {vdupq_n_u16(256), vdupq_n_u16(256)};

  __attribute__((always_inline)) void take(int ring, int row, uint8x16_t left, uint8x16_t centre,
                                           uint8x16_t right) {
    unsigned char(*ring_of)[kRunBlocks] = of + ring * kNeighbours;
    const auto put = [&](int n, uint8x16_t w) {
      vst1q_u8(ring_of[n], w);
      total[0] = vaddw_u8(total[0], vget_low_u8(w));
      total[1] = vaddw_u8(total[1], vget_high_u8(w));
    };
    constexpr int kFirst[3] = {2, 0, 5};
    put(kFirst[row], left);
    put(kFirst[row] + (row == 1 ? 1 : 2), right);
    if (row != 1) put(kFirst[row] + 1, centre);
  }

  template <int Rings>
  void blend(const unsigned char* tile, uint32_t exact, unsigned char* out, int out_stride) const {
    alignas(16) ring_weights by_block[Rings];
    for (int ring = 0; ring < Rings; ++ring)
      transpose_ring(of + ring * kNeighbours, by_block[ring]);
    for (int block = 0; block < kRunBlocks; block += 4, tile += 16, out += 16) {
      const uint16x8_t totals = total[block / 8];
      const float32x4_t r = reciprocals(
          vmovl_u16(block % 8 ? vget_high_u16(totals) : vget_low_u16(totals)), exact >> block);
      block_pixels pixels[4];
      blend_two<Rings, 0>(tile, by_block, block, r, pixels);
      blend_two<Rings, 2>(tile, by_block, block, r, pixels);
      store_pixels(pixels, out, out_stride);
    }
  }
};

template <int Rings>
void filter(const unsigned char* tile, const run_rules* rules, int runs, unsigned char* out,
            int out_stride, unsigned char* carry, bool first) {
  filter_runs<Rings, neighbour_weights>(tile, rules, runs, out, out_stride, carry, first);
}

}  // namespace

const luma_kernels kLumaNeon = {0, true, fetch_unchanged, {filter<1>, filter<2>, filter<3>}};

}  // namespace vorn
