#include "tools/tuning/search.h"

#include <algorithm>
#include <cmath>

#include "tools/tuning/search_fields.h"

namespace vorn::tool {

void search::search_chroma() {
  luma_half_ = false;
  // Mode 0 with a wide window lets flat colours run into each other and costs the most; the lines
  // over the modes still try it.
  try_starts(ids().scale, {1, 2}, [&] {
    chroma_grid();
    if (!stop_) chroma_round(0);
    evolve(kStartGenerations, move_chroma, "joint moves");
  });
  for (int round = 1; round < options_.rounds && !stop_; ++round) chroma_round(round);
  evolve(kChromaGenerations * options_.rounds, move_chroma, "joint moves");
  if (!stop_) chroma_round(3);
}

void search::range_line(int round) {
  line(ids().range, [&](int32_t now) {
    return factors_around(std::max(1, now), factor_of(round), 2, 1, kHighestRange);
  });
}

void search::radius_line(int round) {
  line(ids().smooth, [&](int32_t now) {
    const int32_t step = std::max(1, 2 * best_.chroma.step) * (round == 0 ? 2 : 1);
    std::vector<int32_t> values;
    for (int k = -2; k <= 2; ++k) values.push_back(std::clamp(now + k * step, 0, kWidestWindow));
    return unique_values(std::move(values));
  });
}

void search::step_line() {
  line(ids().step, [](int32_t) { return std::vector<int32_t>{1, 2, 3, 4}; });
}

void search::edges_line(int round) {
  const tuning now = best_;
  std::vector<tuning> candidates;
  for (int k = -2; k <= 2; ++k) {
    const double f = std::pow(factor_of(round), k);
    tuning t = now;
    for (int field : {ids().edge_u, ids().edge_v}) {
      const double v = std::round(get_field(now, field) * f);
      set_field(t, field, std::clamp(static_cast<int32_t>(v), kLowestEdge, kHighestEdge));
    }
    candidates.push_back(t);
  }
  try_line(candidates);
  step_done("color_edge_u+v");
}

void search::edge_v_line(int round) {
  line(ids().edge_v, [&](int32_t now) {
    return factors_around(now, factor_of(round + 1), 1, kLowestEdge, kHighestEdge);
  });
}

void search::chroma_grid() {
  const tuning start = best_;
  for (int32_t radius : {0, 4, 8, 16}) {
    if (stop_) return;
    std::vector<tuning> grid;
    for (int32_t edge : {3, 5, 8}) {
      for (double share : {0.7, 1.0, 1.5, 2.2, 3.2}) {
        tuning t = start;
        t.chroma.smooth_radius = radius;
        t.chroma.color_edge_u = t.chroma.color_edge_v = edge;
        const double range = std::round(guess_.chroma.range_factor * share);
        t.chroma.range_factor = std::clamp(static_cast<int32_t>(range), 1, kHighestRange);
        grid.push_back(t);
      }
    }
    if (start.chroma.scale == 2 || radius > 0) try_line(grid);
    step_done("scale " + std::to_string(start.chroma.scale) + ", radius " + std::to_string(radius));
  }
}

void search::chroma_round(int round) {
  range_line(round);
  if (!stop_) radius_line(round);
  if (!stop_) step_line();
  if (!stop_) edges_line(round);
  if (!stop_) edge_v_line(round);
  if (!stop_) line(ids().scale, [](int32_t) { return std::vector<int32_t>{0, 1, 2}; });
}

void search::move_chroma(tuning& t, random_moves& random, double width) {
  if (random.one_in(2))
    t.chroma.range_factor = random.near(t.chroma.range_factor, width, 1, kHighestRange);
  if (random.one_in(2))
    t.chroma.color_edge_u =
        random.near(t.chroma.color_edge_u, 2 * width, kLowestEdge, kHighestEdge);
  if (random.one_in(2))
    t.chroma.color_edge_v =
        random.near(t.chroma.color_edge_v, 2 * width, kLowestEdge, kHighestEdge);
  if (random.one_in(6)) {
    const int32_t step = std::max(1, 2 * t.chroma.step);
    const int32_t moved = t.chroma.smooth_radius + step * (random.pick(3) - 1);
    t.chroma.smooth_radius = std::clamp(moved, 0, kWidestWindow);
  }
}

}  // namespace vorn::tool
