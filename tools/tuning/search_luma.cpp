#include "tools/tuning/search.h"

#include <algorithm>
#include <cmath>

#include "tools/tuning/search_fields.h"

namespace vorn::tool {

void search::search_luma() {
  luma_half_ = true;
  if (stop_) return;
  const auto move = [&](tuning& t, random_moves& random, double width) {
    move_luma(t, random, width);
  };
  try_starts(ids().radius[0], {3, 5, 7}, [&] {
    luma_grid();
    if (!stop_) luma_round(0);
    evolve(kStartGenerations, move, "joint moves");
  });
  for (int round = 1; round < options_.rounds && !stop_; ++round) luma_round(round);
  evolve(kGenerations * options_.rounds, move, "joint moves");
  tidy_luma();
  if (!stop_) luma_round(3);  // last, so that its lines run through the result
  // Levels that are not in use say so.
  for (int level = best_.luma.layer; level < kLevels; ++level) {
    best_.luma.pIntensity[level] = 0;
    best_.luma.pRadius[level] = 7;
  }
}

void search::intensity_line(int level, int round) {
  line(ids().intensity[level], [&](int32_t now) {
    if (now < 1) {  // off: see whether a little helps
      const int32_t guess = std::max<int32_t>(4, guess_.luma.pIntensity[level]);
      return unique_values({0, guess / 4, guess / 2, guess});
    }
    std::vector<int32_t> values = factors_around(now, factor_of(round), 2, 1, kHighestIntensity);
    if (round < 2) values.push_back(0);
    return unique_values(std::move(values));
  });
}

void search::move_luma(tuning& t, random_moves& random, double width) const {
  for (int level = 0; level < t.luma.layer; ++level) {
    int32_t& intensity = t.luma.pIntensity[level];
    if (random.one_in(2) && intensity > 0)
      intensity = random.near(intensity, width, 1, kHighestIntensity);
    if (level > 1 && random.one_in(10))
      intensity = intensity > 0 ? 0 : std::max<int32_t>(4, guess_.luma.pIntensity[level]);
    if (random.one_in(8)) t.luma.pRadius[level] = 3 + 2 * random.pick(3);
  }
  if (random.one_in(10)) t.luma.layer = 2 + random.pick(4);
}

void search::tidy_luma() {
  const auto try_cheaper = [&](const tuning& t) {
    const std::vector<tuning_score> scores = bench_.score_luma({best_, t}, false);
    if (scores[1].value >= scores[0].value - kWorthwhile) best_ = t;
  };
  while (best_.luma.layer > 2 && !stop_) {
    const int32_t layers = best_.luma.layer;
    try_cheaper(with(best_, ids().layer, layers - 1));
    if (best_.luma.layer == layers) break;
  }
  for (int level = best_.luma.layer - 1; level >= 0 && !stop_; --level) {
    if (best_.luma.pIntensity[level] > 0) try_cheaper(with(best_, ids().intensity[level], 0));
    for (int32_t radius : {5, 3}) {
      if (best_.luma.pIntensity[level] > 0 && best_.luma.pRadius[level] > radius)
        try_cheaper(with(best_, ids().radius[level], radius));
    }
  }
}

void search::luma_round(int round) {
  const int before = done_;
  for (int level = 0; level < best_.luma.layer && !stop_; ++level) intensity_line(level, round);
  if (!stop_) line(ids().layer, [](int32_t) { return std::vector<int32_t>{2, 3, 4, 5}; });
  for (int level = 0; level < best_.luma.layer && !stop_; ++level) {
    if (best_.luma.pIntensity[level] > 0)
      line(ids().radius[level], [](int32_t) { return std::vector<int32_t>{3, 5, 7}; });
  }
  if (options_.corners && !stop_) {
    line(ids().corner,
         [](int32_t) { return std::vector<int32_t>{kFlatMask, 68, 72, 80, 88, 96, 112}; });
  }
  done_ = before + luma_round_lines();
}

void search::luma_grid() {
  const tuning start = best_;
  std::vector<tuning> grid;
  for (double finest : {0.7, 1.0, 1.4, 2.0}) {
    for (double next : {0.5, 1.0, 1.6}) {
      tuning t = start;
      for (int level : {0, 1}) {
        const double v = start.luma.pIntensity[level] * (level == 0 ? finest : next);
        t.luma.pIntensity[level] =
            std::clamp(static_cast<int32_t>(std::round(v)), 0, kHighestIntensity);
      }
      grid.push_back(t);
    }
  }
  try_line(grid);
  step_done("window " + std::to_string(start.luma.pRadius[0]));
}

}  // namespace vorn::tool
