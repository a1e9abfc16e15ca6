#include "tools/tuning/tuner.h"

#include <algorithm>
#include <array>
#include <cmath>

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

tuning guess_tuning(const std::vector<sample_input>& inputs) {
  double luma = 0, chroma = 0;
  for (const sample_input& input : inputs) {
    luma += input.luma.mse;
    chroma += input.chroma.mse;
  }
  const double n = static_cast<double>(std::max<size_t>(1, inputs.size()));
  return guess_tuning(std::sqrt(luma / n), std::sqrt(chroma / n));
}

tuning guess_tuning(const std::vector<tuning_sample>& samples) {
  std::vector<sample_input> inputs;
  for (const tuning_sample& s : samples)
    inputs.push_back({luma_figures(s.noisy, s.held_against(), objective::psnr, false),
                      chroma_figures(s.noisy, s.held_against(), objective::psnr, false)});
  return guess_tuning(inputs);
}

search_result search_tuning(const std::vector<tuning_sample>& samples, const tuning& start,
                            const search_options& options,
                            const std::function<void(const search_progress&)>& on_progress,
                            const std::atomic<bool>& stop) {
  return search_tuning(score_here(samples, options.goal, options.threads), start, options,
                       on_progress, stop);
}

search_result search_tuning(std::unique_ptr<scorer> where, const tuning& start,
                            const search_options& options,
                            const std::function<void(const search_progress&)>& on_progress,
                            const std::atomic<bool>& stop) {
  return search(std::move(where), start, options, on_progress, stop).run();
}

}  // namespace vorn::tool
