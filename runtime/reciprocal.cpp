#include "runtime/reciprocal.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace vorn {
namespace {

// 2 - x * e with one rounding, as the FRECPS instruction: zero times infinity counts as zero.
float reciprocal_step(float x, float e) {
  if ((x == 0.0f && std::isinf(e)) || (std::isinf(x) && e == 0.0f)) return 2.0f;
  return std::fma(-x, e, 2.0f);
}

struct reciprocals {
  float of[kReciprocals];
  reciprocals() {
    for (int n = 0; n < kReciprocals; ++n) of[n] = refined_reciprocal(static_cast<float>(n));
  }
};

}  // namespace

float reciprocal_estimate(float x) {
  uint32_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  const uint32_t sign = bits & 0x80000000u;
  const uint32_t exponent = (bits >> 23) & 0xff;
  if (exponent == 0)
    return sign ? -std::numeric_limits<float>::infinity() : std::numeric_limits<float>::infinity();
  const uint32_t scaled = 256 | ((bits >> 15) & 0xff);  // 1.xxxxxxxx as 256..511
  const uint32_t quotient = (1u << 19) / (scaled * 2 + 1);
  const uint32_t estimate = (quotient + 1) / 2;  // 256..511, the top nine bits of the result
  bits = sign | ((253 - exponent) << 23) | ((estimate & 0xff) << 15);
  std::memcpy(&x, &bits, sizeof x);
  return x;
}

float refined_reciprocal(float x) {
  float e = reciprocal_estimate(x);
  e = e * reciprocal_step(x, e);
  return e * reciprocal_step(x, e);
}

const float* reciprocal_table() {
  static const reciprocals table;
  return table.of;
}

}  // namespace vorn
