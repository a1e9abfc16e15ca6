// vorn_tuning_follow: a stream's gain follows its noise and nothing else.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>  // the normal distribution
#include <vector>

#include "tests/support/random.h"
#include "vorn_noise.h"

namespace {

constexpr int kWidth = 320, kHeight = 240;

// A shaded area with normal noise of sigma in all planes; texture draws stripes all over it.
struct picture {
  std::vector<uint8_t> luma, u, v;
  picture(double sigma, unsigned seed, bool texture = false)
      : luma(kWidth * kHeight), u(kWidth * kHeight / 4), v(u.size()) {
    vorn_test::random_source engine(seed);
    std::normal_distribution<double> noise(0, sigma > 0 ? sigma : 1);
    const auto fill = [&](std::vector<uint8_t>& plane, int width, double scale) {
      for (size_t i = 0; i < plane.size(); ++i) {
        double value = 80 + 60.0 * double(i) / double(plane.size());
        if (texture && width == kWidth)
          value += 25 * std::sin(double(i % 7)) * std::cos(double(i / size_t(width) % 5));
        if (sigma > 0) value += scale * noise(engine);
        plane[i] = uint8_t(std::lround(std::min(250.0, std::max(5.0, value))));
      }
    };
    fill(luma, kWidth, 1);
    fill(u, kWidth / 2, 0.5);
    fill(v, kWidth / 2, 0.5);
  }
  vorn_noise_frame view() const {
    return {luma.data(), u.data(), v.data(), kWidth, kHeight, kWidth, kWidth / 2, 1};
  }
};

class stream {
 public:
  stream() : set_(vorn_tuning_default(nullptr), vorn_tuning_free) {}
  // Returns how often the entries changed.
  int show(double sigma, int frames) {
    int changes = 0;
    for (int i = 0; i < frames; ++i) {
      const picture p(sigma, ++seed_);
      const vorn_noise_frame view = p.view();
      EXPECT_EQ(vorn_tuning_follow(&follower, set_.get(), nullptr, &view, &luma, &chroma), 0);
      changes += follower.changed;
    }
    return changes;
  }
  vorn_noise_follower follower{};
  ycnr_ynr_tuning_param luma{};
  ycnr_cnr_tuning_param chroma{};

 private:
  std::unique_ptr<vorn_tuning_set, void (*)(vorn_tuning_set*)> set_;
  unsigned seed_ = 0;
};

TEST(Follow, ASteadyStreamKeepsItsEntries) {
  stream s;
  EXPECT_EQ(s.show(5, 95), 1);  // the first frame's choice
  EXPECT_GT(s.follower.luma_entry, 0);
  EXPECT_EQ(s.luma.enable, 1);
  EXPECT_EQ(s.chroma.enable, 1);
}

TEST(Follow, MoreNoiseTakesAHigherEntryAtACut) {
  stream s;
  s.show(2, 31);
  const double before = s.follower.luma_entry;
  // The leap is measured twice: at the next due frame and at the one after it.
  s.show(12, 31);
  EXPECT_GE(s.follower.luma_entry, 4 * before);
  EXPECT_LE(s.show(12, 60), 1);
}

TEST(Follow, CleanFramesStayAsTheyAre) {
  stream s;
  s.show(0, 1);
  EXPECT_EQ(s.follower.luma_entry, 0);
  EXPECT_EQ(s.luma.enable, 0);
  EXPECT_EQ(s.chroma.enable, 0);
}

TEST(Follow, OnlyDueFramesAreMeasured) {
  stream s;
  int measured = 0;
  for (int i = 0; i < 61; ++i) {
    s.show(5, 1);
    measured += s.follower.measured;
  }
  EXPECT_EQ(measured, 4 + 2);
}

TEST(Measure, RefusesWhatIsNoFrame) {
  const picture p(5, 1);
  vorn_noise noise;
  vorn_noise_frame f = p.view();
  EXPECT_EQ(vorn_tuning_measure(nullptr, 1, VORN_NOISE_ANY, &noise), VORN_TUNING_ARGUMENT);
  EXPECT_EQ(vorn_tuning_measure(&f, 1, VORN_NOISE_BURST, &noise), VORN_TUNING_ARGUMENT);
  f.luma_stride = kWidth - 1;
  EXPECT_EQ(vorn_tuning_measure(&f, 1, VORN_NOISE_ANY, &noise), VORN_TUNING_ARGUMENT);
  f = p.view();
  f.v = nullptr;
  EXPECT_EQ(vorn_tuning_measure(&f, 1, VORN_NOISE_ANY, &noise), VORN_TUNING_ARGUMENT);
  f.u = nullptr;  // luma alone is fine
  EXPECT_EQ(vorn_tuning_measure(&f, 1, VORN_NOISE_ANY, &noise), VORN_TUNING_OK);
  EXPECT_NEAR(noise.luma, 5, 0.4);
  double luma = 0, chroma = 0;
  const vorn_noise_sensor none = {0, 2};
  EXPECT_EQ(vorn_tuning_gain_for(&noise, &none, &luma, &chroma), VORN_TUNING_ARGUMENT);
  EXPECT_EQ(vorn_tuning_gain_for(&noise, nullptr, &luma, &chroma), VORN_TUNING_OK);
  EXPECT_EQ(luma, chroma);
}

}  // namespace
