#include "tools/tuning/tuner.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/lab/metrics.h"
#include "tools/tuning/search.h"
#include "tools/tuning/search_fields.h"

namespace vorn::tool {

tuning guess_tuning(double sigma_luma, double sigma_chroma) {
  const auto whole = [](double v) { return static_cast<int32_t>(std::lround(v)); };
  tuning t = {};
  t.luma.enable = 1;
  t.luma.layer = 4;
  // Two blocks of the same content differ by 16 * 1.13 sigma on average. Each coarser level holds
  // about half the noise of the one before, and the finer levels have yet to come.
  constexpr std::array<double, 5> kShare = {14, 7, 4, 2, 1};
  for (int l = 0; l < 5; ++l) {
    t.luma.pIntensity[l] = whole(kShare[l] * sigma_luma);
    t.luma.pRadius[l] = 7;
  }
  t.luma.param0 = kFlatMask;
  t.chroma.enable = 1;
  t.chroma.range_factor = std::max(2, whole(3 * sigma_chroma));
  t.chroma.smooth_radius = 12;
  t.chroma.scale = 2;
  t.chroma.step = 1;
  t.chroma.color_edge_u = 8;
  t.chroma.color_edge_v = 8;
  return t;
}

tuning guess_tuning(const std::vector<tuning_sample>& samples) {
  double luma = 0, chroma = 0;
  for (const tuning_sample& s : samples) {
    luma += mean_squared_error(luma_view(s.noisy), luma_view(s.clean));
    chroma += (mean_squared_error(u_view(s.noisy), u_view(s.clean)) +
               mean_squared_error(v_view(s.noisy), v_view(s.clean))) /
              2;
  }
  const double n = static_cast<double>(std::max<size_t>(1, samples.size()));
  return guess_tuning(std::sqrt(luma / n), std::sqrt(chroma / n));
}

search_result search_tuning(const std::vector<tuning_sample>& samples, const tuning& start,
                            const search_options& options,
                            const std::function<void(const search_progress&)>& on_progress,
                            const std::atomic<bool>& stop) {
  return search(samples, start, options, on_progress, stop).run();
}

}  // namespace vorn::tool
