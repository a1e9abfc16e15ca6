// NEON intrinsics: the real ones on AArch64; on x86-64 the same names through SIMDe, so that
// sanitizers and debuggers see the very code that a phone runs. No speed is expected there.
#pragma once

#if defined(__aarch64__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>

// SIMDe multiplies unsigned 32-bit lanes as signed ones and shifts negative products to the left,
// both of which the sanitizers report. The same results without that.
namespace vorn::neon_on_x86 {

static inline uint32x4_t widen_multiply(uint16x4_t a, uint16x4_t b) {
  return vmovl_u16(a) * vmovl_u16(b);
}

// High half of twice the product; only -32768 squared leaves the range, and saturates.
static inline int16x8_t high_of_double(int16x8_t a, int16x8_t b) {
  int16_t x[8], y[8];
  vst1q_s16(x, a);
  vst1q_s16(y, b);
  for (int i = 0; i < 8; ++i) {
    const int high = (x[i] * y[i]) >> 15;
    x[i] = static_cast<int16_t>(high > INT16_MAX ? INT16_MAX : high);
  }
  return vld1q_s16(x);
}

}  // namespace vorn::neon_on_x86

#undef vmull_u16
#define vmull_u16(a, b) vorn::neon_on_x86::widen_multiply((a), (b))
#undef vmull_high_u16
#define vmull_high_u16(a, b) vorn::neon_on_x86::widen_multiply(vget_high_u16(a), vget_high_u16(b))
#undef vmlal_u16
#define vmlal_u16(sum, a, b) vaddq_u32((sum), vmull_u16((a), (b)))
#undef vmlal_high_u16
#define vmlal_high_u16(sum, a, b) vaddq_u32((sum), vmull_high_u16((a), (b)))
#undef vqdmulhq_s16
#define vqdmulhq_s16(a, b) vorn::neon_on_x86::high_of_double((a), (b))
#endif
