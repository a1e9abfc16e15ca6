#include <algorithm>

#include "tools/tuning/search_fields.h"
#include "tools/tuning/tuner.h"

namespace vorn::tool {
namespace {

// A field and the values of its line.
struct line_plan {
  int field;
  std::vector<int32_t> values;
};

line_plan plan_factors(int field, const tuning& at, int32_t highest) {
  const int32_t now = get_field(at, field);
  std::vector<int32_t> values = factors_around(std::max(1, now), 1.35, 4, 1, highest);
  values.push_back(now);
  return {field, unique_values(std::move(values))};
}

std::vector<line_plan> plan_luma(const tuning& at) {
  std::vector<line_plan> plans;
  for (int l = 0; l < at.luma.layer && l < 5; ++l)
    plans.push_back(plan_factors(ids().intensity[l], at, kHighestIntensity));
  for (int l = 0; l < at.luma.layer && l < 5; ++l)
    plans.push_back({ids().radius[l], unique_values({3, 5, 7, at.luma.pRadius[l]})});
  plans.push_back({ids().layer, {2, 3, 4, 5}});
  plans.push_back({ids().corner, unique_values({64, 72, 80, 88, 96, 104, 112, at.luma.param0})});
  return plans;
}

std::vector<line_plan> plan_chroma(const tuning& at) {
  std::vector<int32_t> windows = {at.chroma.smooth_radius};
  const int32_t step = std::max(1, 2 * at.chroma.step);
  for (int k = 1; k <= 10; ++k)
    windows.push_back(k * step * (at.chroma.smooth_radius > 16 ? 2 : 1));
  return {plan_factors(ids().range, at, kHighestRange),
          {ids().smooth, unique_values(std::move(windows))},
          {ids().scale, {0, 1, 2}},
          {ids().step, unique_values({1, 2, 3, 4, std::max(1, at.chroma.step)})},
          plan_factors(ids().edge_u, at, kHighestEdge),
          plan_factors(ids().edge_v, at, kHighestEdge)};
}

}  // namespace

std::vector<parameter_sweep> sweep_parameters(
    tuning_bench& bench, const tuning& at, const search_options& options,
    const std::function<void(const search_progress&)>& on_progress, const std::atomic<bool>& stop) {
  const std::vector<line_plan> luma = options.luma ? plan_luma(at) : std::vector<line_plan>();
  const std::vector<line_plan> chroma = options.chroma ? plan_chroma(at) : std::vector<line_plan>();
  const int total = static_cast<int>(luma.size() + chroma.size());
  std::vector<parameter_sweep> sweeps;
  const auto run = [&](const line_plan& plan, bool of_luma) {
    std::vector<tuning> candidates;
    for (int32_t v : plan.values) candidates.push_back(with(at, plan.field, v));
    parameter_sweep sweep;
    sweep.field = plan.field;
    sweep.values = plan.values;
    sweep.scores =
        of_luma ? bench.score_luma(candidates, true) : bench.score_chroma(candidates, true);
    sweep.chosen = get_field(at, plan.field);
    if (stop) return;  // the line may be cut short
    sweeps.push_back(std::move(sweep));
    if (on_progress)
      on_progress({static_cast<int>(sweeps.size()), total, "curve of " + label_of(plan.field)});
  };
  for (size_t i = 0; i < luma.size() && !stop; ++i) run(luma[i], true);
  if (!chroma.empty() && !stop) bench.use_luma(at);
  for (size_t i = 0; i < chroma.size() && !stop; ++i) run(chroma[i], false);
  return sweeps;
}

std::vector<parameter_sweep> sweep_parameters(
    const std::vector<tuning_sample>& samples, const tuning& at, const search_options& options,
    const std::function<void(const search_progress&)>& on_progress, const std::atomic<bool>& stop) {
  tuning_bench bench(samples, options.goal, options.threads);
  bench.heed(&stop);
  return sweep_parameters(bench, at, options, on_progress, stop);
}

}  // namespace vorn::tool
