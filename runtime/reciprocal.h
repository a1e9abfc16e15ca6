// The refined single-precision reciprocal that the luma vector rules divide by: the architecture's
// 8-bit estimate, then two Newton-Raphson steps e = e * (2 - x * e), the bracket with one rounding,
// the product rounded. One definition, bit for bit the same on every machine.
#pragma once

#include "runtime/neon.h"

namespace vorn {

// The 8-bit estimate of 1 / x that Arm's FRECPE instruction gives, in integer arithmetic. x is a
// normal number of magnitude below 2^126, or zero (which gives an infinity of its sign).
// Source: Arm Architecture Reference Manual, pseudocode function RecipEstimate.
float reciprocal_estimate(float x);

// The estimate refined by two steps, for any x that reciprocal_estimate takes. Slow where the
// machine has no fused multiply-add; see reciprocal_table.
float refined_reciprocal(float x);

constexpr int kReciprocals = 6377;  // divisors 0..6376: mask values and total block weights

// Table of refined_reciprocal(n) for n = 0..kReciprocals-1, built once.
const float* reciprocal_table();

// Four refined reciprocals: the instructions on AArch64, the same bits elsewhere. Static, so that a
// file compiled for a newer machine keeps its own copy.
static inline float32x4_t refined_reciprocal_x4(float32x4_t x) {
#if defined(__aarch64__)
  float32x4_t e = vrecpeq_f32(x);
  e = vmulq_f32(e, vrecpsq_f32(x, e));
  return vmulq_f32(e, vrecpsq_f32(x, e));
#else
  float lanes[4];
  vst1q_f32(lanes, x);
  const float* table = reciprocal_table();
  for (float& lane : lanes) {
    const int n =
        lane >= 0 && lane < static_cast<float>(kReciprocals) ? static_cast<int>(lane) : -1;
    lane = n >= 0 && static_cast<float>(n) == lane ? table[n] : refined_reciprocal(lane);
  }
  return vld1q_f32(lanes);
#endif
}

}  // namespace vorn
