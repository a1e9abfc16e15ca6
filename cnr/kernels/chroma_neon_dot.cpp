// Arm v8.2 with dot products, for spans of four taps: the last level of the default tunings. Other
// spans go to v8.0's form: gathering more taps costs what the products save.
#include "cnr/kernels/chroma_neon.h"

namespace vorn {
namespace {

using namespace chroma_neon;

constexpr int kTaps = 4;

// The bytes of four taps, a pixel's side by side, four pixels per vector.
static inline void quads_of(const uint8x16_t (&tap)[kTaps], uint8x16_t (&quad)[4]) {
  const uint16x8_t ab_low = vreinterpretq_u16_u8(vzip1q_u8(tap[0], tap[1]));
  const uint16x8_t ab_high = vreinterpretq_u16_u8(vzip2q_u8(tap[0], tap[1]));
  const uint16x8_t cd_low = vreinterpretq_u16_u8(vzip1q_u8(tap[2], tap[3]));
  const uint16x8_t cd_high = vreinterpretq_u16_u8(vzip2q_u8(tap[2], tap[3]));
  quad[0] = vreinterpretq_u8_u16(vzip1q_u16(ab_low, cd_low));
  quad[1] = vreinterpretq_u8_u16(vzip2q_u16(ab_low, cd_low));
  quad[2] = vreinterpretq_u8_u16(vzip1q_u16(ab_high, cd_high));
  quad[3] = vreinterpretq_u8_u16(vzip2q_u16(ab_high, cd_high));
}

// A sum times slightly more than 2^31 / total, doubled: the upper half is the whole quotient of
// every sum up to 255.75 total, for totals up to 2205 (HorVer.WholeReciprocalIsExactToo).
constexpr float kWholeScale = 1.0f + 0x1p-20f;
static_assert(256 + 255 * kTaps <= 2205);

static inline int32x4_t whole_reciprocal(uint32x4_t total) {
  return vcvtq_n_s32_f32(raised_reciprocal(kWholeScale, vcvtq_f32_u32(total)), 31);
}

// Quotients of 16 pixels. Sums begin with the dither's share and 256 times the centre.
static inline uint8x16_t quotients(const uint8_t* at, const ptrdiff_t (&taps)[kTaps],
                                   const uint8x16_t (&weight)[4], const uint32x4_t (&bias)[4],
                                   const int32x4_t (&reciprocal)[4]) {
  asm("" : "+r"(at));  // loaded again: registers are short
  const uint8x16_t centre = vld1q_u8(at);
  const uint8x16_t sample[kTaps] = {vld1q_u8(at + taps[0]), vld1q_u8(at + taps[1]),
                                    vld1q_u8(at + taps[2]), vld1q_u8(at + taps[3])};
  const uint16x8_t low = vshll_n_u8(vget_low_u8(centre), 8), high = vshll_high_n_u8(centre, 8);
  uint8x16_t quad[4];
  quads_of(sample, quad);
  const uint32x4_t sum[4] = {vaddw_u16(bias[0], vget_low_u16(low)), vaddw_high_u16(bias[1], low),
                             vaddw_u16(bias[2], vget_low_u16(high)), vaddw_high_u16(bias[3], high)};
  uint16x8_t half[4];
  for (int i = 0; i < 4; ++i) {
    const int32x4_t n = vreinterpretq_s32_u32(vdotq_u32(sum[i], weight[i], quad[i]));
    half[i] = vreinterpretq_u16_s32(vqdmulhq_s32(n, reciprocal[i]));
  }
  return vuzp1q_u8(vreinterpretq_u8_u16(vuzp1q_u16(half[0], half[1])),
                   vreinterpretq_u8_u16(vuzp1q_u16(half[2], half[3])));
}

// The dither's share of four sums each: (total >> 2) * quarters.
static inline void dither_shares(const uint32x4_t (&total)[4], uint8x16_t quarters,
                                 uint32x4_t (&share)[4]) {
  const uint16x8_t low = vmovl_u8(vget_low_u8(quarters)), high = vmovl_high_u8(quarters);
  const uint16x8_t t_low = vshrn_high_n_u32(vshrn_n_u32(total[0], 2), total[1], 2);
  const uint16x8_t t_high = vshrn_high_n_u32(vshrn_n_u32(total[2], 2), total[3], 2);
  share[0] = vmull_u16(vget_low_u16(t_low), vget_low_u16(low));
  share[1] = vmull_high_u16(t_low, low);
  share[2] = vmull_u16(vget_low_u16(t_high), vget_low_u16(high));
  share[3] = vmull_high_u16(t_high, high);
}

// Taps 3 and 1 pixels to the left and 1 and 3 to the right, along a row: a pixel's distance to its
// left tap is that tap's distance to its right one.
constexpr bool along_row(const ptrdiff_t* taps) {
  return taps[0] == -3 && taps[1] == -1 && taps[2] == 1 && taps[3] == 3;
}

// Distances to the taps Reach pixels to the left, from those to the right and, of the eight pixels
// before, `last`.
template <int Reach>
static inline distances shifted(const distances& right, int16x8_t last) {
  return {vextq_s16(last, right.low, 8 - Reach), vextq_s16(right.low, right.high, 8 - Reach)};
}

// Where a distance is used a second time, at its other end.
enum class sharing { none, along_row, between_rows };

// What the row above left, or null: then made here.
template <typename Make>
static inline distances from_above(const int16_t* above, ptrdiff_t x, const Make& make) {
  return above ? distances(vld1q_s16(above + x), vld1q_s16(above + x + 8)) : make();
}

static inline void leave(const distances& d, int16_t* below, ptrdiff_t x) {
  vst1q_s16(below + x, d.low);
  vst1q_s16(below + x + 8, d.high);
}

template <int kTables, sharing kSharing>
void filter_four(const chroma_span s, const chroma_weights& weights) {
  const weight_table<kTables> table(weights.weight);
  const edges edge(weights);
  const ptrdiff_t count = s.count;
  const ptrdiff_t taps[kTaps] = {s.taps[0], s.taps[1], s.taps[2], s.taps[3]};
  int16x8_t last[kTaps] = {};
  for (ptrdiff_t x = 0; x < count; x += 16) {
    const bool moved_back = x > count - 16;
    if (moved_back) x = count - 16;
    const centre_pixels centre(s, x);
    const auto distances_to = [&](int k) {
      const ptrdiff_t at = x + taps[k];
      return distances(centre, s.guide + at, vld1q_u8(s.src_a + at), vld1q_u8(s.src_b + at), edge);
    };
    uint8x16_t w[kTaps], weight[4];
    if (kSharing == sharing::between_rows) {
      const distances near = distances_to(2), far = distances_to(3);
      leave(near, s.below[0], x);
      leave(far, s.below[1], x);
      w[2] = weigh(near, centre, table);
      w[3] = weigh(far, centre, table);
      w[1] = weigh(from_above(s.above[0], x, [&] { return distances_to(1); }), centre, table);
      w[0] = weigh(from_above(s.above[1], x, [&] { return distances_to(0); }), centre, table);
    } else if (kSharing == sharing::along_row) {
      const distances near = distances_to(2), far = distances_to(3);
      if (x == 0 || moved_back) {  // of the pixels before, only those within reach
        const int16x8_t left_near = distances_to(1).low, left_far = distances_to(0).low;
        last[1] = vextq_s16(left_near, left_near, 1);
        last[0] = vextq_s16(left_far, left_far, 3);
      }
      w[0] = weigh(shifted<3>(far, last[0]), centre, table);
      w[1] = weigh(shifted<1>(near, last[1]), centre, table);
      w[2] = weigh(near, centre, table);
      w[3] = weigh(far, centre, table);
      last[0] = far.high;
      last[1] = near.high;
    } else {
#pragma GCC unroll 4
      for (int k = 0; k < kTaps; ++k) w[k] = weigh(distances_to(k), centre, table);
    }
    quads_of(w, weight);
    uint32x4_t total[4], share[4];
    int32x4_t reciprocal[4];
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
      total[i] = vdotq_u32(vdupq_n_u32(256), weight[i], vdupq_n_u8(1));
      reciprocal[i] = whole_reciprocal(total[i]);
    }
    const int8x16_t quarters = vaddq_s8(vld1q_s8(s.dither + x), vdupq_n_s8(s.quarters));
    dither_shares(total, vreinterpretq_u8_s8(quarters), share);
    vst1q_u8(s.dst_a + x, quotients(s.src_a + x, taps, weight, share, reciprocal));
    vst1q_u8(s.dst_b + x, quotients(s.src_b + x, taps, weight, share, reciprocal));
  }
}

template <sharing kSharing>
void filter_four(const chroma_span& s, const chroma_weights& weights) {
  if (weights.support <= 64) return filter_four<1, kSharing>(s, weights);
  if (weights.support <= 128) return filter_four<2, kSharing>(s, weights);
  if (weights.support <= 192) return filter_four<3, kSharing>(s, weights);
  filter_four<4, kSharing>(s, weights);
}

void filter(const chroma_span& s, const chroma_weights& weights) {
  if (s.tap_count != kTaps || weights.support > 255) return kChromaNeon.filter(s, weights);
  if (s.below[0]) return filter_four<sharing::between_rows>(s, weights);
  if (along_row(s.taps)) return filter_four<sharing::along_row>(s, weights);
  filter_four<sharing::none>(s, weights);
}

void split_gain(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs, int8_t gain) {
  kChromaNeon.split_gain(src_uv, dst_u, dst_v, pairs, gain);
}

}  // namespace

const chroma_kernels kChromaNeonDot = {filter, split_gain};

}  // namespace vorn
