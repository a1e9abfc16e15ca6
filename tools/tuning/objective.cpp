#include "tools/tuning/objective.h"

#include <algorithm>

#include "tools/error.h"
#include "tools/lab/metrics.h"

namespace vorn::tool {
namespace {

// One dB of PSNR is about this much SSIM where the two trade.
constexpr double kSsimPerDecibel = 0.02;

// The rest is an estimate and may come out below nothing. What is left of the error is never that
// small a part of the noise: no filter gains 20 dB.
double without_noise(double mse, double noise) {
  return noise > 0 ? std::max(mse - noise, noise / 100) : mse;
}

}  // namespace

objective objective_of(const std::string& name) {
  if (name == "psnr") return objective::psnr;
  if (name == "ssim") return objective::ssim;
  if (name == "mix") return objective::mix;
  throw error("--objective", "\"" + name + "\" is none of psnr, ssim, mix");
}

double lost_texture(const frame& f, const frame& clean) {
  constexpr int kSide = 8;
  constexpr double kFaint = 1.5 * 1.5, kStrong = 16.0 * 16.0, kCount = kSide * kSide;
  double kept = 0, there = 0;
  for (int y0 = 0; y0 + kSide <= clean.height; y0 += kSide) {
    for (int x0 = 0; x0 + kSide <= clean.width; x0 += kSide) {
      int sum_c = 0, sum_f = 0, sum_cc = 0, sum_cf = 0;
      for (int y = y0; y < y0 + kSide; ++y) {
        const uint8_t* c = clean.luma() + size_t(y) * clean.padded_width + x0;
        const uint8_t* p = f.luma() + size_t(y) * f.padded_width + x0;
        for (int x = 0; x < kSide; ++x) {
          sum_c += c[x];
          sum_f += p[x];
          sum_cc += c[x] * c[x];
          sum_cf += c[x] * p[x];
        }
      }
      const double variance = (sum_cc - sum_c / kCount * sum_c) / kCount;
      if (variance < kFaint || variance > kStrong) continue;
      there += variance;
      kept += (sum_cf - sum_c / kCount * sum_f) / kCount;
    }
  }
  return there > 0 ? std::clamp(1 - kept / there, 0.0, 1.0) : 0;
}

sample_figures luma_figures(const frame& f, const reference& r, objective goal, bool all) {
  sample_figures s;
  const plane_view is = luma_view(f), should_be = luma_view(r.picture);
  s.mse = without_noise(mean_squared_error(is, should_be), r.luma_noise);
  if (r.noisy()) return s;
  if (all || goal == objective::ssim) s.ssim = ssim(is, should_be);
  if (all || goal == objective::mix) s.lost_texture = lost_texture(f, r.picture);
  return s;
}

sample_figures chroma_figures(const frame& f, const reference& r, objective goal, bool all) {
  sample_figures s;
  const frame& p = r.picture;
  s.mse = without_noise(
      (mean_squared_error(u_view(f), u_view(p)) + mean_squared_error(v_view(f), v_view(p))) / 2,
      r.chroma_noise);
  if (r.noisy()) return s;
  if (all || goal == objective::ssim)
    s.ssim = (ssim(u_view(f), u_view(p)) + ssim(v_view(f), v_view(p))) / 2;
  return s;
}

tuning_score combine(const sample_figures* each, size_t count, objective goal) {
  tuning_score s;
  const double n = static_cast<double>(count);
  for (size_t i = 0; i < count; ++i) {
    s.psnr += std::min(99.0, psnr_of(each[i].mse)) / n;
    s.ssim += each[i].ssim / n;
    s.lost_texture += each[i].lost_texture / n;
  }
  s.value = s.psnr;
  if (goal == objective::ssim) s.value = s.ssim / kSsimPerDecibel;
  if (goal == objective::mix) s.value = s.psnr - kTexturePrice * s.lost_texture;
  return s;
}

}  // namespace vorn::tool
