// Distances of a run for the NEON forms of v8.0 and v8.2.
//
// Opposite neighbours share their clipped differences: the sums of a displacement (-dx, -dy) are
// those of (dx, dy) dy rows further up and dx columns to the left. So half of the differences are
// taken, and the part of a sum that lies in the rows above comes from `carry`, that in the columns
// to the left from the scratch. Of the neighbours by kRing order
//
//     2 3 4
//     0 . 1     1, 3, 4, 6 and 7 end in the columns where they are wanted,
//     5 6 7     0, 2 and 5 in `left`, ring distance columns early.
//
// Widest intermediates: four clipped rows add up as bytes (196), a distance in 16 bits (784).
// Exact.
#pragma once

#include <cstddef>

#include "runtime/neon.h"
#include "ynr/kernels/luma_kernels.h"

// Functions over arrays of vectors: compilers else pass these through memory.
#define VORN_INLINE __attribute__((always_inline)) static inline

namespace vorn {
namespace luma_neon {

// Hides how a pointer came about: what is loaded relative to it then stays an offset in the load,
// which costs nothing, instead of an addition each.
VORN_INLINE const unsigned char* opaque(const unsigned char* p) {
  asm("" : "+r"(p));
  return p;
}
static_assert(kTilePitch % 16 == 0, "rows as scaled offsets");

VORN_INLINE uint8x16_t load(const unsigned char* p) {
  return vld1q_u8(p);
}
VORN_INLINE uint8x16_t clipped(uint8x16_t a, uint8x16_t b) {
  return vminq_u8(vabdq_u8(a, b), vdupq_n_u8(49));
}

constexpr int kAligned = 5, kLeft = 3;       // neighbours per ring
constexpr int kLeftPitch = 16 + kRunPixels;  // columns -16 .. 63

using left_row = unsigned char[kLeftPitch];

struct run_scratch {
  alignas(64) uint16_t aligned[kMaxRings][kAligned][kRunBlocks];  // distances: 1, 3, 4, 6, 7
  alignas(64) left_row left[kMaxRings][kLeft];                    // sums of columns: 0, 2, 5
};

// Of four rows c of differences: their sum (`forward`), and the sum D rows further up (`backward`)
// from the part of the block row above; `after` is that part for the next one.
template <int D>
VORN_INLINE void sums_of(const uint8x16_t (&c)[4], unsigned char* carry, uint8x16_t* forward,
                         uint8x16_t* backward) {
  const uint8x16_t before = load(carry);
  uint8x16_t after = c[3];
  for (int r = 2; r >= 4 - D; --r) after = vaddq_u8(after, c[r]);
  uint8x16_t stays = c[0];
  for (int r = 1; r < 4 - D; ++r) stays = vaddq_u8(stays, c[r]);
  vst1q_u8(carry, after);
  *forward = vaddq_u8(stays, after);
  *backward = vaddq_u8(stays, before);
}

// One ring's sums of 16 columns. own: rows 0 .. 3 + D of the columns; aligned receives the five in
// place, as sums of two columns.
template <int D>
VORN_INLINE void ring_sums(const uint8x16_t (&own)[7], const unsigned char* at,
                           unsigned char* carry, left_row* left, uint16x8_t (&aligned)[kAligned]) {
  uint8x16_t side[4 + D];
  at = opaque(at + D);
  for (int r = 0; r < 4 + D; ++r) side[r] = load(at + r * kTilePitch);
  uint8x16_t c[4], forward, backward;
  for (int r = 0; r < 4; ++r) c[r] = clipped(own[r], side[r]);  // (d, 0)
  forward = vaddq_u8(vaddq_u8(c[0], c[1]), vaddq_u8(c[2], c[3]));
  aligned[0] = vpaddlq_u8(forward);
  vst1q_u8(left[0], forward);
  for (int r = 0; r < 4; ++r) c[r] = clipped(own[r], own[r + D]);  // (0, d)
  sums_of<D>(c, carry, &forward, &backward);
  aligned[1] = vpaddlq_u8(backward);
  aligned[3] = vpaddlq_u8(forward);
  for (int r = 0; r < 4; ++r) c[r] = clipped(side[r], own[r + D]);  // (-d, d)
  sums_of<D>(c, carry + kTilePitch, &forward, &backward);
  aligned[2] = vpaddlq_u8(backward);
  vst1q_u8(left[2], forward);
  for (int r = 0; r < 4; ++r) c[r] = clipped(own[r], side[r + D]);  // (d, d)
  sums_of<D>(c, carry + 2 * kTilePitch, &forward, &backward);
  aligned[4] = vpaddlq_u8(forward);
  vst1q_u8(left[1], backward);
}

// The same for columns x .. x + 31 of the run, with the rings' distances made of the sums.
template <int D>
VORN_INLINE void ring_distances(const uint8x16_t (&own)[2][7], const unsigned char* at,
                                unsigned char* carry, run_scratch* s, int x) {
  const auto left = [&](int column) {
    return reinterpret_cast<left_row*>(&s->left[D - 1][0][16 + column]);
  };
  carry += (D - 1) * 3 * kTilePitch;
  uint16x8_t low[kAligned], high[kAligned];
  ring_sums<D>(own[0], at, carry, left(x), low);
  ring_sums<D>(own[1], at + 16, carry + 16, left(x + 16), high);
  for (int i = 0; i < kAligned; ++i)
    vst1q_u16(&s->aligned[D - 1][i][x / 4], vpaddq_u16(low[i], high[i]));
}

template <int Rings>
VORN_INLINE void run_distances(const unsigned char* tile, unsigned char* carry, run_scratch* s) {
  for (int x = 0; x < kRunPixels; x += 32) {
    const unsigned char* at = opaque(tile + x);
    uint8x16_t own[2][7];
    for (int half = 0; half < 2; ++half)
      for (int r = 0; r < 4 + Rings; ++r) own[half][r] = load(at + 16 * half + r * kTilePitch);
    ring_distances<1>(own, at, carry + x, s, x);
    if (Rings >= 2) ring_distances<2>(own, at, carry + x, s, x);
    if (Rings >= 3) ring_distances<3>(own, at, carry + x, s, x);
  }
}

// `left` for the 16 columns left of the first run.
template <int D>
VORN_INLINE void left_of_first(const unsigned char* tile, run_scratch* s) {
  const unsigned char* at = tile - 16;
  uint8x16_t across = vdupq_n_u8(0), up = across, down = across;
  for (int r = 0; r < 4; ++r, at += kTilePitch) {
    across = vaddq_u8(across, clipped(load(at), load(at + D)));
    up = vaddq_u8(up, clipped(load(at - D * kTilePitch), load(at + D)));
    down = vaddq_u8(down, clipped(load(at + D), load(at + D * kTilePitch)));
  }
  vst1q_u8(s->left[D - 1][0], across);
  vst1q_u8(s->left[D - 1][1], up);
  vst1q_u8(s->left[D - 1][2], down);
}

// What the block row above would have left of 16 columns: its rows -D .. -1.
template <int D>
VORN_INLINE void carry_of_none(const unsigned char* tile, unsigned char* carry) {
  uint8x16_t down = vdupq_n_u8(0), aside = down, diagonal = down;
  for (int r = -D; r < 0; ++r) {
    const unsigned char *at = tile + r * kTilePitch, *below = at + D * kTilePitch;
    down = vaddq_u8(down, clipped(load(at), load(below)));
    aside = vaddq_u8(aside, clipped(load(at + D), load(below)));
    diagonal = vaddq_u8(diagonal, clipped(load(at), load(below + D)));
  }
  carry += (D - 1) * 3 * kTilePitch;
  vst1q_u8(carry, down);
  vst1q_u8(carry + kTilePitch, aside);
  vst1q_u8(carry + 2 * kTilePitch, diagonal);
}

}  // namespace luma_neon
}  // namespace vorn
