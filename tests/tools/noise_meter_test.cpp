// The noise meter against noise of known size, and what it says where there is none.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/pictures.h"
#include "tools/lab/chart.h"
#include "tools/lab/metrics.h"
#include "tools/lab/noise_meter.h"
#include "tools/lab/noise_model.h"

namespace vorn::tool {
namespace {

using namespace vorn_test;

TEST(NoiseMeter, ChromaNoiseIsWiderThanLumaNoise) {
  noise_model model;
  model.gain = 16;
  const noise_curve sharp = model_curve(model);
  EXPECT_NEAR(sharp.correlation_y, 0, 0.08);
  EXPECT_GT(sharp.correlation_uv, 0.15);
  model.luma_blur = 0.7;
  EXPECT_GT(model_curve(model).correlation_y, 0.15);
}

TEST(NoiseMeter, FindsTheGain) {
  // Without colours, which have more noise than greys of their brightness.
  frame chart = draw_chart(960, 720);
  std::fill(chart.chroma(), chart.data.data() + chart.data.size(), uint8_t{128});
  for (const double gain : {2.0, 8.0, 32.0}) {
    const noise_curve any = measure_noise({noisy(chart, gain)}, noise_scene::any);
    EXPECT_NEAR(std::log2(gains_of(any).luma / gain), 0, 0.3) << gain;
    EXPECT_NEAR(std::log2(gains_of(any).chroma / gain), 0, 0.5) << gain;
    const noise_curve burst = measure_noise(
        {noisy(chart, gain, 1), noisy(chart, gain, 2), noisy(chart, gain, 3)}, noise_scene::burst);
    EXPECT_NEAR(std::log2(gains_of(burst).luma / gain), 0, 0.15) << gain;
    EXPECT_NEAR(std::log2(gains_of(burst).chroma / gain), 0, 0.25) << gain;
  }
}

double added(const plane_view& noisy_plane, const plane_view& clean) {
  return std::sqrt(mean_squared_error(noisy_plane, clean));
}

TEST(NoiseMeter, FlatsAndBurstsMeasureWhatWasAdded) {
  for (const double blur : {0.0, 0.7}) {
    const frame flat = grey_frame(256, 256, 128);
    const frame f = noisy(flat, 8, 1, blur), g = noisy(flat, 8, 2, blur);
    const double y = added(luma_view(f), luma_view(flat)), u = added(u_view(f), u_view(flat));
    const noise_curve one = measure_noise({f}, noise_scene::flat);
    EXPECT_NEAR(one.y, y, 0.05 * y) << blur;
    EXPECT_NEAR(one.u, u, 0.05 * u) << blur;
    const noise_curve two = measure_noise({f, g}, noise_scene::burst);
    EXPECT_NEAR(two.y, y, 0.05 * y) << blur;
    EXPECT_NEAR(two.u, u, 0.05 * u) << blur;
  }
}

TEST(NoiseMeter, CleanPicturesHaveNoNoise) {
  frame ramp = grey_frame(320, 240, 128);
  for (int y = 0; y < 240; ++y)
    for (int x = 0; x < 320; ++x) ramp.luma()[y * 320 + x] = static_cast<uint8_t>(20 + x / 2);
  for (const frame& f : {draw_chart(960, 720), grey_frame(256, 256, 90), ramp}) {
    const noise_curve curve = measure_noise({f}, noise_scene::any);
    EXPECT_EQ(curve.all.found, 0) << curve.y << " " << curve.u << " " << curve.v;
    EXPECT_EQ(gains_of(curve).luma, 0);
  }
  const frame still = draw_chart(320, 240);
  EXPECT_EQ(measure_noise({still, still}, noise_scene::burst).all.found, 0);
}

// Bars of one value beside a noisy picture are neither its noise nor a sign of its absence.
TEST(NoiseMeter, BlackBarsDoNotCount) {
  const frame chart = draw_chart(640, 480);
  frame f = noisy(chart, 16);
  const double without = measure_noise({f}, noise_scene::any).y;
  std::fill(f.luma(), f.luma() + 640 * 160, uint8_t{16});
  EXPECT_NEAR(std::log2(measure_noise({f}, noise_scene::any).y / without), 0, 0.2);
}

TEST(NoiseMeter, SaysNothingAboutPicturesTooSmallOrClipped) {
  for (const frame& f : {random_frame(1, 1, 1), random_frame(17, 9, 1), grey_frame(256, 256, 255),
                         grey_frame(256, 256, 0)}) {
    const noise_curve curve = measure_noise({f}, noise_scene::any);
    EXPECT_TRUE(curve.classes.empty());
    EXPECT_EQ(curve.all.doubt, VORN_NOISE_FEW);
    EXPECT_EQ(curve.all.found, 0);
  }
  EXPECT_TRUE(measure_noise({}, noise_scene::flat).classes.empty());
}

}  // namespace
}  // namespace vorn::tool
