// Arm v8.0; on x86-64 the same source through SIMDe, for checks. 16 pixels per step, tap by tap.
#include "cnr/kernels/chroma_neon.h"

namespace vorn {
namespace {

using namespace chroma_neon;

void filter(const chroma_span& s, const chroma_weights& weights) {
  // Indices saturate at 255, so that entry has to be 0 for the look-up in registers.
  if (weights.support <= 64) return filter_span<1>(s, weights);
  if (weights.support <= 128) return filter_span<2>(s, weights);
  if (weights.support <= 255) return filter_span<4>(s, weights);
  filter_span<0>(s, weights);
}

// Sixteen samples; a product of two signed bytes fits 16 bits with the rounding, and so does its
// sixteenth on top of a sample. Exact.
uint8x16_t with_gain(uint8x16_t x, int8x8_t gain) {
  const int8x16_t d = vreinterpretq_s8_u8(veorq_u8(x, vdupq_n_u8(128)));
  const int16x8_t low = vrshrq_n_s16(vmull_s8(vget_low_s8(d), gain), 4);
  const int16x8_t high = vrshrq_n_s16(vmull_s8(vget_high_s8(d), gain), 4);
  const int16x8_t x_low = vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(x)));
  const int16x8_t x_high = vreinterpretq_s16_u16(vmovl_high_u8(x));
  return narrow(vaddq_s16(x_low, low), vaddq_s16(x_high, high));
}

void split_gain(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs, int8_t gain) {
  const int8x8_t g = vdup_n_s8(gain);
  for (size_t i = 0; i + 16 <= pairs; i += 16) {
    const uint8x16x2_t uv = vld2q_u8(src_uv + 2 * i);
    vst1q_u8(dst_u + i, with_gain(uv.val[0], g));
    vst1q_u8(dst_v + i, with_gain(uv.val[1], g));
  }
}

}  // namespace

const chroma_kernels kChromaNeon = {filter, split_gain};

}  // namespace vorn
