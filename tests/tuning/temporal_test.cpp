// The blend over time: steadier where nothing moves, no trace of what moved, nothing across a cut,
// the same in every layout.
#include "vorn_temporal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>  // the normal distribution
#include <vector>

#include "tests/support/random.h"

namespace {

constexpr int kWidth = 160, kHeight = 96;
constexpr double kDeviation = 2;

ycnr_ynr_tuning_param strength(int intensity) {
  ycnr_ynr_tuning_param luma = {};
  luma.enable = 1;
  luma.pIntensity[0] = intensity;
  return luma;
}

struct picture {
  int width = kWidth, height = kHeight, layout = VORN_LAYOUT_NV12, gap = 0;
  std::vector<uint8_t> data = {};

  int chroma_width() const { return (width + 1) / 2; }
  int chroma_height() const { return (height + 1) / 2; }
  bool planar() const { return layout == VORN_LAYOUT_I420; }

  vorn_ycnr_planes planes() {
    const int stride = width + gap, half = chroma_width() * (planar() ? 1 : 2) + gap;
    data.resize(size_t(stride) * height + size_t(half) * chroma_height() * (planar() ? 2 : 1));
    uint8_t* const first = data.data() + size_t(stride) * height;
    return {layout,
            width,
            height,
            {data.data(), first, planar() ? first + size_t(half) * chroma_height() : nullptr},
            {stride, half, half}};
  }
  // Of U (second 0) or V, where the layout has it.
  uint8_t& chroma(int x, int y, int second) {
    const vorn_ycnr_planes p = planes();
    if (planar()) return p.plane[1 + second][y * p.stride[1] + x];
    return p.plane[1][y * p.stride[1] + 2 * x + (layout == VORN_LAYOUT_NV21 ? 1 - second : second)];
  }
  uint8_t& luma(int x, int y) { return planes().plane[0][y * (width + gap) + x]; }
};

// A bar of 200 from column `bar` on, 24 wide, before a slope; noise as the filter leaves it.
picture scene(int bar, unsigned seed, int base = 60, picture shape = {}) {
  vorn_test::random_source engine(seed);
  std::normal_distribution<double> noise(0, kDeviation);
  for (int y = 0; y < shape.height; ++y)
    for (int x = 0; x < shape.width; ++x) {
      const double clean = x >= bar && x < bar + 24 ? 200 : base + x / 4;
      shape.luma(x, y) = static_cast<uint8_t>(std::lround(clean + noise(engine)));
    }
  for (int y = 0; y < shape.chroma_height(); ++y)
    for (int x = 0; x < shape.chroma_width(); ++x)
      for (int second : {0, 1})
        shape.chroma(x, y, second) =
            static_cast<uint8_t>(std::lround(128 + 10 * second + noise(engine)));
  return shape;
}

double difference(picture a, picture b, int x0, int x1) {
  double sum = 0;
  for (int y = 0; y < kHeight; ++y)
    for (int x = x0; x < x1; ++x) sum += std::pow(a.luma(x, y) - b.luma(x, y), 2);
  return std::sqrt(sum / ((x1 - x0) * kHeight));
}

struct stream {
  std::unique_ptr<vorn_temporal, decltype(&vorn_tuning_temporal_free)> state{
      vorn_tuning_temporal_new(), vorn_tuning_temporal_free};

  int32_t run(picture& p, int intensity = 110) {
    const vorn_ycnr_planes planes = p.planes();
    const ycnr_ynr_tuning_param luma = strength(intensity);
    return vorn_tuning_temporal_run(state.get(), &planes, &luma);
  }
};

TEST(Temporal, StillScenesFlickerLess) {
  stream blend;
  picture before = scene(40, 1);
  EXPECT_EQ(blend.run(before), VORN_TEMPORAL_FIRST);
  double last = 0;
  for (unsigned seed = 2; seed < 10; ++seed) {
    picture f = scene(40, seed);
    EXPECT_EQ(blend.run(f), VORN_TEMPORAL_BLENDED);
    last = difference(f, before, 0, kWidth);
    before = f;
  }
  EXPECT_LT(last, 0.5 * kDeviation * std::sqrt(2));
}

TEST(Temporal, AMovingBarLeavesNoGhost) {
  stream blend;
  for (int i = 0; i < 12; ++i) {
    const int bar = 16 + 6 * i;
    picture f = scene(bar, unsigned(20 + i));
    const picture alone = f;
    EXPECT_EQ(blend.run(f), i == 0 ? VORN_TEMPORAL_FIRST : VORN_TEMPORAL_BLENDED);
    // Where the bar was and where it is, no sample is further off than the noise explains.
    EXPECT_LE(difference(f, alone, std::max(0, bar - 12), bar + 24), 0.5 * kDeviation) << i;
  }
}

TEST(Temporal, ACutAnotherSizeAndAResetBeginAnew) {
  stream blend;
  picture first = scene(40, 1);
  blend.run(first);
  picture f = scene(90, 2, 120);
  const picture alone = f;
  EXPECT_EQ(blend.run(f), VORN_TEMPORAL_FIRST);
  EXPECT_EQ(f.data, alone.data);
  picture small = scene(8, 3, 60, {32, 20});
  EXPECT_EQ(blend.run(small), VORN_TEMPORAL_FIRST);
  picture next = scene(8, 4, 60, {32, 20});
  EXPECT_EQ(blend.run(next), VORN_TEMPORAL_BLENDED);
  vorn_tuning_temporal_reset(blend.state.get());
  picture again = scene(8, 5, 60, {32, 20});
  const picture untouched = again;
  EXPECT_EQ(blend.run(again), VORN_TEMPORAL_FIRST);
  EXPECT_EQ(again.data, untouched.data);
}

TEST(Temporal, LayoutsAgreeAndGapsStay) {
  for (const auto& [width, height] : {std::pair{64, 48}, {61, 43}, {1, 1}, {7, 3}}) {
    stream plain;
    picture wanted;
    for (unsigned seed : {1u, 2u}) {
      wanted = scene(20, seed, 60, {width, height});
      plain.run(wanted);
    }
    for (int layout : {VORN_LAYOUT_NV21, VORN_LAYOUT_I420}) {
      stream other;
      picture got;
      for (unsigned seed : {1u, 2u}) {
        picture shape = {width, height, layout, 5};
        shape.planes();
        std::fill(shape.data.begin(), shape.data.end(), uint8_t{0xee});
        got = scene(20, seed, 60, shape);
        other.run(got);
      }
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) ASSERT_EQ(got.luma(x, y), wanted.luma(x, y));
        for (int x = width; x < width + 5; ++x) ASSERT_EQ(got.luma(x, y), 0xee);
      }
      for (int y = 0; y < got.chroma_height(); ++y)
        for (int x = 0; x < got.chroma_width(); ++x)
          for (int second : {0, 1})
            ASSERT_EQ(got.chroma(x, y, second), wanted.chroma(x, y, second)) << x << "," << y;
    }
  }
}

TEST(Temporal, WhatIsNoFrameIsRefused) {
  stream blend;
  picture p = scene(40, 1);
  const vorn_ycnr_planes good = p.planes();
  const ycnr_ynr_tuning_param luma = strength(110);
  std::vector<vorn_ycnr_planes> bad(6, good);
  bad[0].layout = 3;
  bad[1].width = 0;
  bad[2].stride[0] = kWidth - 1;
  bad[3].stride[1] = kWidth - 1;
  bad[4].plane[1] = nullptr;
  bad[5].layout = VORN_LAYOUT_I420;  // without a third plane
  for (const vorn_ycnr_planes& planes : bad)
    EXPECT_EQ(vorn_tuning_temporal_run(blend.state.get(), &planes, &luma), VORN_TUNING_ARGUMENT);
  EXPECT_EQ(vorn_tuning_temporal_run(nullptr, &good, &luma), VORN_TUNING_ARGUMENT);
  EXPECT_EQ(vorn_tuning_temporal_run(blend.state.get(), nullptr, &luma), VORN_TUNING_ARGUMENT);
  EXPECT_EQ(vorn_tuning_temporal_run(blend.state.get(), &good, nullptr), VORN_TUNING_ARGUMENT);
  vorn_tuning_temporal_reset(nullptr);
  vorn_tuning_temporal_free(nullptr);
}

}  // namespace
