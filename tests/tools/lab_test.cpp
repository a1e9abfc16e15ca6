// The measuring units of the tool: figures against closed forms, chart and noise the same bytes on
// every machine.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/pictures.h"
#include "tools/lab/alignment.h"
#include "tools/lab/chart.h"
#include "tools/lab/frame_mean.h"
#include "tools/lab/metrics.h"
#include "tools/lab/noise_model.h"

namespace vorn::tool {
namespace {

using namespace vorn_test;

uint64_t checksum(const frame& f) {
  uint64_t h = 0;
  for (uint8_t b : f.data) h = h * 1099511628211u + b;
  return h;
}

// SSIM by the definition: every window position on its own, in double precision.
double slow_ssim(const plane_view& a, const plane_view& b) {
  double weights[11], total = 0, sum = 0;
  for (int i = 0; i < 11; ++i) sum += weights[i] = std::exp(-(i - 5) * (i - 5) / 4.5);
  const auto at = [](const plane_view& p, int x, int y) -> double {
    return p.data[y * p.stride + x * p.step];
  };
  int count = 0;
  for (int y = 0; y + 11 <= a.height; ++y) {
    for (int x = 0; x + 11 <= a.width; ++x, ++count) {
      double ma = 0, mb = 0, aa = 0, bb = 0, ab = 0;
      for (int j = 0; j < 11; ++j) {
        for (int i = 0; i < 11; ++i) {
          const double w = weights[i] * weights[j] / (sum * sum);
          const double p = at(a, x + i, y + j), q = at(b, x + i, y + j);
          ma += w * p;
          mb += w * q;
          aa += w * p * p;
          bb += w * q * q;
          ab += w * p * q;
        }
      }
      const double c1 = 6.5025, c2 = 58.5225;
      total += (2 * ma * mb + c1) * (2 * (ab - ma * mb) + c2) /
               ((ma * ma + mb * mb + c1) * (aa - ma * ma + bb - mb * mb + c2));
    }
  }
  return total / count;
}

TEST(Metrics, ClosedForms) {
  const frame a = grey_frame(40, 30, 100), b = grey_frame(40, 30, 110);
  EXPECT_NEAR(psnr(luma_view(a), luma_view(b)), 20 * std::log10(255.0 / 10), 1e-12);
  EXPECT_TRUE(std::isinf(psnr(u_view(a), u_view(b))));
  EXPECT_NEAR(ssim(luma_view(a), luma_view(b)),
              (2 * 100 * 110 + 6.5025) / (100 * 100 + 110 * 110 + 6.5025), 1e-5);
  const quality q = compare_frames(b, a);
  EXPECT_DOUBLE_EQ(q.mean_shift_y, 10);
  EXPECT_DOUBLE_EQ(q.mean_shift_u, 0);
}

TEST(Metrics, SsimFollowsItsDefinition) {
  const frame a = random_frame(37, 29, 1), b = noisy(a, 30);
  EXPECT_NEAR(ssim(luma_view(a), luma_view(b)), slow_ssim(luma_view(a), luma_view(b)), 2e-5);
  EXPECT_NEAR(ssim(v_view(a), v_view(b)), slow_ssim(v_view(a), v_view(b)), 2e-5);
  const frame chart = draw_chart(320, 240), other = noisy(chart, 8);
  EXPECT_NEAR(ssim(luma_view(chart), luma_view(other)),
              slow_ssim(luma_view(chart), luma_view(other)), 2e-5);
}

TEST(Metrics, PaddingDoesNotCount) {
  frame a = random_frame(21, 17, 2), b = a;
  for (int y = 0; y < b.padded_height; ++y) b.luma()[y * b.padded_width + 21] ^= 0xff;
  for (int x = 0; x < b.padded_width; ++x) b.luma()[17 * b.padded_width + x] ^= 0xff;
  EXPECT_EQ(mean_squared_error(luma_view(a), luma_view(b)), 0);
  EXPECT_NEAR(ssim(luma_view(a), luma_view(b)), 1, 1e-9);
  const frame tiny = random_frame(1, 1, 3);
  EXPECT_NEAR(compare_frames(tiny, tiny).ssim_y, 1, 1e-9);
}

TEST(Chart, SameBytesOnEveryMachine) {
  EXPECT_EQ(checksum(draw_chart(640, 480)), 0xf510bff6ed3b762bu);
  for (const auto& size : {std::pair{64, 64}, {65, 67}, {1000, 100}})
    EXPECT_EQ(draw_chart(size.first, size.second).width, size.first);
}

TEST(Chart, PatchesAreFlat) {
  for (const auto& size : {std::pair{64, 64}, {640, 480}, {333, 251}}) {
    const frame f = draw_chart(size.first, size.second);
    const auto patches = chart_patches(size.first, size.second);
    ASSERT_EQ(patches.size(), 24u);
    for (const chart_patch& p : patches) {
      const uint8_t level = f.luma()[p.y * f.padded_width + p.x];
      const uint8_t* uv = f.chroma() + p.y / 2 * f.padded_width + p.x;
      for (int y = p.y; y < p.y + p.height; ++y) {
        for (int x = p.x; x < p.x + p.width; ++x) {
          ASSERT_EQ(f.luma()[y * f.padded_width + x], level);
          ASSERT_EQ(f.chroma()[y / 2 * f.padded_width + x], uv[x % 2]);
        }
      }
    }
  }
}

TEST(NoiseModel, SameBytesOnEveryMachine) {
  const frame chart = draw_chart(640, 480);
  EXPECT_EQ(checksum(noisy(chart, 8)), 0xd665a3913f06de04u);
  EXPECT_EQ(checksum(noisy(chart, 64, 5, 0.7)), 0xe4c8f22718206d0fu);
  EXPECT_EQ(checksum(noisy(chart, 0)), checksum(chart));
}

// Photon and read noise through the slope of the tone curve at the level.
TEST(NoiseModel, DeviationIsTheFormula) {
  for (const double blur : {0.0, 0.7}) {
    for (const int level : {70, 128, 200}) {
      const frame clean = grey_frame(512, 512, static_cast<uint8_t>(level));
      const frame f = noisy(clean, 8, 3, blur);
      const auto linear = [](double v) { return std::pow((v / 255 + 0.055) / 1.055, 2.4); };
      const double light = linear(level), per_electron = 8 / 4500.0;
      const double slope = 1 / (linear(level + 0.5) - linear(level - 0.5));
      const double green = std::sqrt(light * per_electron + 4 * per_electron * per_electron);
      // Luma noise is green noise and a share of what red and blue add to it.
      const double measured = std::sqrt(mean_squared_error(luma_view(f), luma_view(clean)));
      EXPECT_GT(measured, 0.85 * green * slope) << level << " blur " << blur;
      EXPECT_LT(measured, 1.1 * green * slope) << level << " blur " << blur;
      // The tone curve bends, so even noise of mean 0 moves the mean a little down.
      EXPECT_NEAR(mean(luma_view(f)), level - 0.3, 0.35);
    }
  }
}

// Noisy frames of the chart, displaced by whole and by half pixels.
TEST(Alignment, FindsDisplacementsInNoise) {
  const frame chart = draw_chart(400, 300);
  const auto part = [&](int x, int y, bool half) {
    frame f = make_frame(320, 240);
    for (int row = 0; row < 240; ++row) {
      for (int column = 0; column < 320; ++column) {
        const uint8_t* const p = chart.luma() + (row + y) * 400 + column + x;
        f.luma()[row * 320 + column] = half ? uint8_t((p[0] + p[1] + 1) / 2) : p[0];
      }
    }
    return f;
  };
  const frame reference = noisy(part(40, 30, false), 8, 1);
  for (const auto& [x, y] : {std::pair{0, 0}, {1, 0}, {-3, 2}, {7, -9}, {-12, -12}}) {
    for (const bool half : {false, true}) {
      const displacement d =
          measure_displacement(reference, noisy(part(40 - x, 30 - y, half), 8, 2));
      EXPECT_NEAR(d.x, x - (half ? 0.5 : 0), 0.15) << x << "," << y;
      EXPECT_NEAR(d.y, y, 0.15) << x << "," << y;
      EXPECT_LT(d.error, 0.1);
    }
  }
  // A grey wall tells nothing, and says so.
  EXPECT_GT(measure_displacement(noisy(grey_frame(200, 150, 120), 8, 1),
                                 noisy(grey_frame(200, 150, 120), 8, 2))
                .error,
            0.25);
}

TEST(FrameMean, MovesFramesBackAndLeavesOddOnesOut) {
  const frame chart = draw_chart(400, 300);
  std::vector<frame> frames;
  std::vector<burst_frame> burst;
  for (int i = 0; i < 6; ++i) {
    frame f = make_frame(320, 240);  // a crop that wanders by two pixels a frame, chroma by one
    for (int y = 0; y < 240; ++y)
      std::copy_n(chart.luma() + (30 + y) * 400 + 20 + 2 * i, 320, f.luma() + y * 320);
    for (int y = 0; y < 120; ++y)
      std::copy_n(chart.chroma() + (15 + y) * 400 + 20 + 2 * i, 320, f.chroma() + y * 320);
    frames.push_back(noisy(f, 8, uint64_t(i + 1)));
    burst.push_back(look_at(frames.back(), frames.front()));
  }
  frame flash = frames[3];
  for (size_t i = 0; i < flash.luma_size(); ++i)
    flash.luma()[i] = uint8_t(std::min(255, flash.luma()[i] + 20));
  burst.push_back(look_at(flash, frames.front()));
  leave_out_odd_ones(burst);
  frame_sum sum(frames.front());
  for (size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(burst[i].left_out, nullptr) << i;
    sum.add(frames[i], burst[i].moved);
  }
  EXPECT_NE(burst.back().left_out, nullptr);
  frame clean = make_frame(320, 240);
  for (int y = 0; y < 240; ++y)
    std::copy_n(chart.luma() + (30 + y) * 400 + 20, 320, clean.luma() + y * 320);
  const frame mean = sum.mean();
  EXPECT_GT(psnr(luma_view(mean), luma_view(clean)),
            psnr(luma_view(frames.front()), luma_view(clean)) + 5);  // 7.8 dB less what is clipped
}

TEST(Metrics, FlickerIsWhatChanges) {
  const frame a = grey_frame(40, 30, 100), b = grey_frame(40, 30, 104), c = grey_frame(40, 30, 110);
  EXPECT_DOUBLE_EQ(flicker_between(b, a, b, a).y, 0);  // stands still
  EXPECT_DOUBLE_EQ(flicker_between(c, a, b, a).y, 6);
  EXPECT_DOUBLE_EQ(flicker_between(c, b, b, a).y, 2);
}

// Neighbours agree by 0.72 in pictures of real cameras.
TEST(NoiseModel, ChromaBlurSpreadsChromaNoise) {
  const frame flat = grey_frame(256, 256, 128);
  frame f = flat;
  noise_model model;
  model.gain = 30;
  model.chroma_blur = 0.85;
  add_noise(f, model);
  double same = 0, next = 0;
  const plane_view u = u_view(f);
  for (int y = 0; y < 128; ++y)
    for (int x = 0; x < 127; ++x) {
      const uint8_t* at = u.data + y * u.stride + x * u.step;
      same += (at[0] - 128) * (at[0] - 128);
      next += (at[0] - 128) * (at[u.step] - 128);
    }
  EXPECT_NEAR(next / same, 0.72, 0.06);
}

}  // namespace
}  // namespace vorn::tool
