#include "tools/tuning/search.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/tuning/search_fields.h"

namespace vorn::tool {
namespace {

std::string decibels(double value) {
  char text[32];
  std::snprintf(text, sizeof text, " %.2f dB", value);
  return text;
}

}  // namespace

search::search(std::unique_ptr<scorer> where, const tuning& start, const search_options& options,
               const std::function<void(const search_progress&)>& on_progress,
               const std::atomic<bool>& stop)
    : bench_(std::move(where), options.goal),
      guess_(guess_tuning(bench_.inputs())),
      best_(start),
      options_(options),
      on_progress_(on_progress),
      stop_(stop) {
  bench_.heed(&stop_);
}

search_result search::run() {
  search_result result;
  result.luma_before = bench_.score_input_luma();
  result.chroma_before = bench_.score_input_chroma();
  total_ = (options_.luma ? luma_lines() : 0) + (options_.chroma ? chroma_lines() : 0);
  if (options_.luma) search_luma();
  const auto explored = [&](bool luma) {
    for (int i = 0; options_.curves && i < kTuningFields; ++i)
      if (tuning_field_at(i).luma == luma) explored_[i] = bench_.best_per_value(i);
  };
  explored(true);
  bench_.heed(nullptr);  // the figures of the result are wanted even when it was stopped
  result.luma_after = bench_.score_luma({best_}, true).front();
  if (options_.chroma && !stop_) {
    bench_.use_luma(best_);
    bench_.heed(&stop_);
    search_chroma();
    explored(false);
    bench_.heed(nullptr);
    result.chroma_after = bench_.score_chroma({best_}, true).front();
  }
  result.best = best_;
  result.trials = bench_.trials();
  if (options_.curves && !stop_) result.sweeps = curves();
  result.stopped = stop_;
  return result;
}

std::vector<parameter_sweep> search::curves() {
  bench_.heed(&stop_);
  std::vector<parameter_sweep> sweeps = sweep_parameters(
      bench_, best_, options_,
      [&](const search_progress& p) {
        if (on_progress_) on_progress_({total_, total_, p.note});
      },
      stop_);
  for (parameter_sweep& sweep : sweeps) sweep.explored = explored_[sweep.field];
  return sweeps;
}

int search::try_line(const std::vector<tuning>& candidates) {
  const std::vector<tuning_score> scores =
      luma_half_ ? bench_.score_luma(candidates, false) : bench_.score_chroma(candidates, false);
  const tuning_score now =
      (luma_half_ ? bench_.score_luma({best_}, false) : bench_.score_chroma({best_}, false))
          .front();
  if (now.value < -1e8) return -1;  // stopped before there was anything to compare with
  int chosen = -1;
  double best_value = now.value;
  const double effort_now = effort(best_);
  for (size_t i = 0; i < candidates.size(); ++i) {
    const double needed =
        now.value + (effort(candidates[i]) > effort_now ? kWorthwhileSlower : kWorthwhile);
    if (scores[i].value > best_value && scores[i].value > needed) {
      best_value = scores[i].value;
      chosen = static_cast<int>(i);
    }
  }
  if (chosen >= 0) best_ = candidates[chosen];
  value_ = best_value;
  return chosen;
}

void search::line(int field, const std::function<std::vector<int32_t>(int32_t)>& values_around) {
  if (field == held_) return step_done(label_of(field));
  for (int turn = 0; turn < 4 && !stop_; ++turn) {
    const std::vector<int32_t> values = values_around(get_field(best_, field));
    std::vector<tuning> candidates;
    for (int32_t v : values) candidates.push_back(with(best_, field, v));
    const int chosen = try_line(candidates);
    if (chosen < 0 || (chosen > 0 && chosen + 1 < static_cast<int>(values.size()))) break;
  }
  step_done(label_of(field));
}

void search::step_done(const std::string& label) {
  ++done_;
  if (on_progress_)
    on_progress_({std::min(done_, total_), total_,
                  (luma_half_ ? "luma " : "chroma ") + label + decibels(value_), best_});
}

double search::factor_of(int round) {
  constexpr std::array<double, 4> kFactors = {1.6, 1.3, 1.12, 1.05};
  return kFactors[std::min<size_t>(round, kFactors.size() - 1)];
}

void search::evolve(int generations,
                    const std::function<void(tuning&, random_moves&, double)>& move,
                    const char* label) {
  random_moves random(0x7a11e5u);
  double width = 0.4;
  for (int g = 0; g < generations && !stop_; ++g) {
    std::vector<tuning> candidates(kCandidates, best_);
    for (tuning& t : candidates) {
      move(t, random, width);
      if (held_ >= 0) set_field(t, held_, get_field(best_, held_));
    }
    width = try_line(candidates) >= 0 ? std::min(0.6, width * 1.2) : std::max(0.03, width * 0.9);
    step_done(label);
  }
}

void search::try_starts(int field, const std::vector<int32_t>& values,
                        const std::function<void()>& search) {
  const tuning start = best_;
  std::vector<tuning> ends;
  held_ = field;
  for (int32_t value : values) {
    if (stop_ && !ends.empty()) break;
    best_ = with(start, field, value);
    search();
    ends.push_back(best_);
  }
  held_ = -1;
  best_ = ends.front();
  try_line(ends);
}

}  // namespace vorn::tool
