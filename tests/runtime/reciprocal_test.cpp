#include "runtime/reciprocal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "tests/model/model.h"
#include "tests/support/host.h"

namespace {

using namespace vorn_test;

uint32_t bits_of(float x) {
  uint32_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  return bits;
}

float from_bits(uint32_t bits) {
  float x;
  std::memcpy(&x, &bits, sizeof x);
  return x;
}

// Every leading fraction that the estimate looks at, at several exponents, both signs, with the
// bits below it clear and set.
std::vector<float> estimate_inputs() {
  std::vector<float> inputs = {0.0f, -0.0f};
  for (uint32_t exponent : {1u, 60u, 126u, 127u, 128u, 139u, 200u, 252u})
    for (uint32_t top = 0; top < 256; ++top)
      for (uint32_t low : {0u, 1u, 0x7fffu})
        for (uint32_t sign : {0u, 1u})
          inputs.push_back(from_bits(sign << 31 | exponent << 23 | top << 15 | low));
  return inputs;
}

TEST(Reciprocal, EstimateIsTheInstructions) {
  std::vector<uint32_t> results;
  for (float x : estimate_inputs()) {
    results.push_back(bits_of(vorn::reciprocal_estimate(x)));
#if defined(__aarch64__)
    EXPECT_EQ(results.back(), bits_of(vrecpes_f32(x))) << x;
#endif
  }
  EXPECT_EQ(checksum(results.data(), results.size() * 4), 5707538632183440533u);
}

TEST(Reciprocal, TableIsTheRefinedEstimate) {
  const float* table = vorn::reciprocal_table();
  for (int n = 0; n < vorn::kReciprocals; ++n) {
    const float x = static_cast<float>(n);
    EXPECT_EQ(bits_of(table[n]), bits_of(vorn::refined_reciprocal(x))) << n;
#if defined(__aarch64__)
    float e = vrecpes_f32(x);
    e = e * vrecpss_f32(x, e);
    e = e * vrecpss_f32(x, e);
    EXPECT_EQ(bits_of(table[n]), bits_of(e)) << n;
#endif
    if (n > 0) {
      EXPECT_LE(std::fabs(table[n] * x - 1.0f), 0x1p-14f) << n;
    }
  }
  // The same on every machine.
  EXPECT_EQ(checksum(table, vorn::kReciprocals * sizeof *table), 15154941868638902673u);
}

TEST(Reciprocal, FourAtATime) {
  float lanes[4] = {255.0f, 6376.0f, 64.5f, -3.0f};
  float results[4];
  vst1q_f32(results, vorn::refined_reciprocal_x4(vld1q_f32(lanes)));
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(bits_of(results[i]), bits_of(vorn::refined_reciprocal(lanes[i]))) << lanes[i];
}

// The index of the vector rule is the integer one for every distance and mask value, and its
// reciprocals follow from rounding the estimate on paper.
TEST(Reciprocal, IndexOfTheVectorRuleIsTheIntegerOne) {
  const float* table = vorn::reciprocal_table();
  for (int n = 1; n < vorn::kReciprocals; ++n)
    ASSERT_EQ(table[n], model::refined_reciprocal(static_cast<float>(n))) << n;
  for (int m = 1; m <= 255; ++m)
    for (int distance = 0; distance <= 784; ++distance) {
      const float product = static_cast<float>(distance * 64) * table[m];
      ASSERT_EQ(static_cast<int>(0.5f + product), (distance * 64 + m / 2) / m)
          << distance << " " << m;
    }
}

}  // namespace
