#include <algorithm>

#include "tools/tuning/search_fields.h"
#include "tools/tuning/tuner.h"

namespace vorn::tool {

std::vector<parameter_sweep> sweep_parameters(
    const std::vector<tuning_sample>& samples, const tuning& at, const search_options& options,
    const std::function<void(const search_progress&)>& on_progress, const std::atomic<bool>& stop) {
  struct plan {
    int field;
    std::vector<int32_t> values;
  };
  std::vector<plan> plans;
  const auto factors = [&](int field, int32_t highest) {
    const int32_t now = std::max(1, get_field(at, field));
    std::vector<int32_t> values = factors_around(now, 1.35, 4, 1, highest);
    values.push_back(get_field(at, field));
    plans.push_back({field, unique_values(std::move(values))});
  };
  if (options.luma) {
    for (int l = 0; l < at.luma.layer && l < 5; ++l) factors(ids().intensity[l], kHighestIntensity);
    for (int l = 0; l < at.luma.layer && l < 5; ++l)
      plans.push_back({ids().radius[l], unique_values({3, 5, 7, at.luma.pRadius[l]})});
    plans.push_back({ids().layer, {2, 3, 4, 5}});
    plans.push_back({ids().corner, unique_values({64, 72, 80, 88, 96, 104, 112, at.luma.param0})});
  }
  const size_t luma_plans = plans.size();
  if (options.chroma) {
    factors(ids().range, kHighestRange);
    std::vector<int32_t> windows = {at.chroma.smooth_radius};
    const int32_t step = std::max(1, 2 * at.chroma.step);
    for (int k = 1; k <= 10; ++k)
      windows.push_back(k * step * (at.chroma.smooth_radius > 16 ? 2 : 1));
    plans.push_back({ids().smooth, unique_values(std::move(windows))});
    plans.push_back({ids().scale, {0, 1, 2}});
    plans.push_back({ids().step, unique_values({1, 2, 3, 4, std::max(1, at.chroma.step)})});
    factors(ids().edge_u, kHighestEdge);
    factors(ids().edge_v, kHighestEdge);
  }
  tuning_bench bench(samples, options.goal, options.threads);
  if (options.chroma) bench.use_luma(at);
  std::vector<parameter_sweep> sweeps;
  for (size_t i = 0; i < plans.size() && !stop; ++i) {
    std::vector<tuning> candidates;
    for (int32_t v : plans[i].values) candidates.push_back(with(at, plans[i].field, v));
    parameter_sweep sweep;
    sweep.field = plans[i].field;
    sweep.values = plans[i].values;
    sweep.scores =
        i < luma_plans ? bench.score_luma(candidates, true) : bench.score_chroma(candidates, true);
    sweep.chosen = get_field(at, plans[i].field);
    sweeps.push_back(std::move(sweep));
    if (on_progress)
      on_progress(
          {static_cast<int>(i + 1), static_cast<int>(plans.size()), label_of(plans[i].field)});
  }
  return sweeps;
}

}  // namespace vorn::tool
