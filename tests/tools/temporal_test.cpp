// The blend over time: steadier where nothing moves, no trace of what moved, nothing across a cut.
#include "tools/temporal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>  // the normal distribution

#include "tests/support/random.h"

namespace vorn::tool {
namespace {

constexpr int kWidth = 160, kHeight = 96;
constexpr double kDeviation = 2;

tuning strength(int intensity) {
  tuning t = {};
  t.luma.enable = t.chroma.enable = 1;
  t.luma.pIntensity[0] = intensity;
  return t;
}

// A bar of 200 from column `bar` on, 24 wide, before a slope; noise as the filter leaves it.
frame scene(int bar, unsigned seed, int base = 60) {
  vorn_test::random_source engine(seed);
  std::normal_distribution<double> noise(0, kDeviation);
  frame f = make_frame(kWidth, kHeight);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const double clean = x >= bar && x < bar + 24 ? 200 : base + x / 4;
      f.luma()[y * kWidth + x] = static_cast<uint8_t>(std::lround(clean + noise(engine)));
    }
  for (int i = 0; i < kWidth * kHeight / 2; ++i)
    f.chroma()[i] = static_cast<uint8_t>(std::lround(128 + noise(engine)));
  return f;
}

double difference(const frame& a, const frame& b, int x0, int x1) {
  double sum = 0;
  for (int y = 0; y < kHeight; ++y)
    for (int x = x0; x < x1; ++x) {
      const double d = a.luma()[y * kWidth + x] - b.luma()[y * kWidth + x];
      sum += d * d;
    }
  return std::sqrt(sum / ((x1 - x0) * kHeight));
}

TEST(Temporal, StillScenesFlickerLess) {
  temporal_blend blend;
  frame before = scene(40, 1);
  blend.run(before, strength(110));
  double last = 0;
  for (unsigned seed = 2; seed < 10; ++seed) {
    frame f = scene(40, seed);
    blend.run(f, strength(110));
    last = difference(f, before, 0, kWidth);
    before = f;
  }
  EXPECT_LT(last, 0.5 * kDeviation * std::sqrt(2));
  EXPECT_EQ(blend.cuts(), 0);
}

TEST(Temporal, AMovingBarLeavesNoGhost) {
  temporal_blend blend;
  for (int i = 0; i < 12; ++i) {
    const int bar = 16 + 6 * i;
    frame f = scene(bar, unsigned(20 + i));
    const frame alone = f;
    blend.run(f, strength(110));
    // Where the bar was and where it is, no sample is further off than the noise explains.
    EXPECT_LE(difference(f, alone, std::max(0, bar - 12), bar + 24), 0.5 * kDeviation) << i;
  }
  EXPECT_EQ(blend.cuts(), 0);
}

TEST(Temporal, ACutAndAnotherSizeBeginAnew) {
  temporal_blend blend;
  frame first = scene(40, 1);
  blend.run(first, strength(110));
  frame f = scene(90, 2, 120);
  const frame alone = f;
  blend.run(f, strength(110));
  EXPECT_EQ(f.data, alone.data);
  EXPECT_EQ(blend.cuts(), 1);
  frame small = make_frame(32, 20);
  const frame same = small;
  blend.run(small, strength(110));
  EXPECT_EQ(small.data, same.data);
}

}  // namespace
}  // namespace vorn::tool
