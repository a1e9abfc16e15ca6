// Arm v8.2 with dot products, for spans of four taps: the last level of the default tunings. Other
// spans go to v8.0's form: gathering more taps costs what the products save.
#include "cnr/kernels/chroma_neon.h"

namespace vorn {
namespace {

using namespace chroma_neon;

constexpr int kTaps = 4;
static_assert(kTaps <= kMaxRefinedTaps);

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

// Quotients of 16 pixels. Sums begin with the dither's share and 256 times the centre.
static inline uint8x16_t quotients(uint8x16_t centre, const uint8x16_t (&weight)[4],
                                   const uint8x16_t (&sample)[kTaps], const uint32x4_t (&bias)[4],
                                   const float32x4_t (&scale)[4]) {
  const uint16x8_t low = vreinterpretq_u16_u8(vzip1q_u8(vdupq_n_u8(0), centre));
  const uint16x8_t high = vreinterpretq_u16_u8(vzip2q_u8(vdupq_n_u8(0), centre));
  uint8x16_t quad[4];
  quads_of(sample, quad);
  uint32x4_t sum[4] = {vaddw_u16(bias[0], vget_low_u16(low)), vaddw_high_u16(bias[1], low),
                       vaddw_u16(bias[2], vget_low_u16(high)), vaddw_high_u16(bias[3], high)};
  uint16x8_t half[4];
  for (int i = 0; i < 4; ++i) {
    sum[i] = vdotq_u32(sum[i], weight[i], quad[i]);
    half[i] = vreinterpretq_u16_u32(vcvtq_u32_f32(vmulq_f32(vcvtq_f32_u32(sum[i]), scale[i])));
  }
  return vuzp1q_u8(vreinterpretq_u8_u16(vuzp1q_u16(half[0], half[1])),
                   vreinterpretq_u8_u16(vuzp1q_u16(half[2], half[3])));
}

template <int kTables>
void filter_four(const chroma_span& s, const chroma_weights& weights) {
  const weight_table<kTables> table(weights.weight);
  const edges edge(weights);
  for (int x = 0; x < s.count; x += 16) {
    if (x > s.count - 16) x = s.count - 16;
    const centre_pixels centre(s, x);
    uint8x16_t w[kTaps], a[kTaps], b[kTaps], weight[4];
#pragma GCC unroll 4
    for (int k = 0; k < kTaps; ++k)
      w[k] = weigh(s, x, s.taps[k], centre, edge, table, &a[k], &b[k]);
    quads_of(w, weight);
    const uint8x16_t quarters8 =
        vreinterpretq_u8_s8(vaddq_s8(vld1q_s8(s.dither + x), vdupq_n_s8(s.quarters)));
    const uint16x8_t low = vmovl_u8(vget_low_u8(quarters8)), high = vmovl_high_u8(quarters8);
    const uint32x4_t quarters[4] = {vmovl_u16(vget_low_u16(low)), vmovl_high_u16(low),
                                    vmovl_u16(vget_low_u16(high)), vmovl_high_u16(high)};
    uint32x4_t bias[4];
    float32x4_t scale[4];
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
      const uint32x4_t total = vdotq_u32(vdupq_n_u32(256), weight[i], vdupq_n_u8(1));
      bias[i] = vmulq_u32(vshrq_n_u32(total, 2), quarters[i]);
      scale[i] = vmulq_n_f32(refined_reciprocal_x4(vcvtq_f32_u32(total)), kQuotientScale);
    }
    vst1q_u8(s.dst_a + x, quotients(centre.a, weight, a, bias, scale));
    vst1q_u8(s.dst_b + x, quotients(centre.b, weight, b, bias, scale));
  }
}

void filter(const chroma_span& s, const chroma_weights& weights) {
  if (s.tap_count != kTaps || weights.support > 255) return kChromaNeon.filter(s, weights);
  if (weights.support <= 64) return filter_four<1>(s, weights);
  if (weights.support <= 128) return filter_four<2>(s, weights);
  filter_four<4>(s, weights);
}

void split_gain(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs, int8_t gain) {
  kChromaNeon.split_gain(src_uv, dst_u, dst_v, pairs, gain);
}

}  // namespace

const chroma_kernels kChromaNeonDot = {filter, split_gain};

}  // namespace vorn
