// Whole numbers as an Arm processor computes them, defined for every value: sums and products wrap
// as 32-bit numbers, conversions from single precision saturate.
#pragma once

#include <cstdint>

namespace vorn {

static inline int wrapping_sum(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

static inline int wrapping_product(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

// Truncation toward zero; takes a NaN for 0.
static inline int32_t truncated(float x) {
  if (x >= 2147483648.0f) return INT32_MAX;
  if (x < -2147483648.0f) return INT32_MIN;
  return x == x ? static_cast<int32_t>(x) : 0;
}

}  // namespace vorn
