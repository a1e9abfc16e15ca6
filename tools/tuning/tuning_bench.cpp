#include "tools/tuning/tuning_bench.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace vorn::tool {
namespace {

using field_values = std::array<int32_t, kTuningFields>;

field_values values_of(const tuning& t) {
  field_values values;
  for (int i = 0; i < kTuningFields; ++i) values[i] = get_field(t, i);
  return values;
}

}  // namespace

struct known_score {
  tuning_score score;
  bool all;  // with every figure
};

struct tuning_bench::state {
  std::unique_ptr<scorer> where;
  objective goal;
  std::vector<sample_input> inputs;  // none yet: empty
  std::map<field_values, known_score> luma_known, chroma_known;
  int trials = 0;
  const std::atomic<bool>* stop = nullptr;

  state(std::unique_ptr<scorer> w, objective g) : where(std::move(w)), goal(g) {}

  std::vector<tuning_score> score(const std::vector<tuning>& candidates, bool luma, bool all) {
    auto& known = luma ? luma_known : chroma_known;
    // What the other half says does not matter here.
    trials_wanted todo;
    todo.luma = luma;
    todo.all = all;
    std::vector<field_values> keys;
    for (const tuning& candidate : candidates) {
      const tuning t = half_of(candidate, luma);
      keys.push_back(values_of(t));
      const bool repeated = std::find(keys.begin(), keys.end() - 1, keys.back()) != keys.end() - 1;
      const auto found = known.find(keys.back());
      const bool done = found != known.end() && (!all || found->second.all);
      if (!repeated && !done) todo.candidates.push_back(t);
    }
    const trials_done parts = where->run(todo, stop);
    const size_t samples = where->samples();
    for (size_t i = 0; i < todo.candidates.size(); ++i) {
      const char* const first = parts.done.data() + i * samples;
      if (std::find(first, first + samples, 0) != first + samples) continue;
      known[values_of(todo.candidates[i])] = {combine(&parts.figures[i * samples], samples, goal),
                                              all};
      ++trials;
    }
    tuning_score left_out;
    left_out.value = -1e9;
    std::vector<tuning_score> scores;
    for (const auto& key : keys) {
      const auto found = known.find(key);
      scores.push_back(found == known.end() ? left_out : found->second.score);
    }
    return scores;
  }

  tuning_score score_input(sample_figures sample_input::*half) const {
    std::vector<sample_figures> each;
    for (const sample_input& input : inputs) each.push_back(input.*half);
    return combine(each.data(), each.size(), goal);
  }
};

tuning_bench::tuning_bench(std::unique_ptr<scorer> where, objective goal)
    : state_(std::make_unique<state>(std::move(where), goal)) {}

tuning_bench::tuning_bench(const std::vector<tuning_sample>& samples, objective goal, int threads)
    : tuning_bench(score_here(samples, goal, threads), goal) {}

tuning_bench::~tuning_bench() = default;

std::vector<tuning_score> tuning_bench::score_luma(const std::vector<tuning>& candidates,
                                                   bool all) {
  return state_->score(candidates, true, all);
}

std::vector<tuning_score> tuning_bench::score_chroma(const std::vector<tuning>& candidates,
                                                     bool all) {
  return state_->score(candidates, false, all);
}

void tuning_bench::use_luma(const tuning& t) {
  state_->chroma_known.clear();
  state_->where->use_luma(t);
}

const std::vector<sample_input>& tuning_bench::inputs() {
  if (state_->inputs.empty()) state_->inputs = state_->where->inputs();
  return state_->inputs;
}

tuning_score tuning_bench::score_input_luma() {
  inputs();
  return state_->score_input(&sample_input::luma);
}

tuning_score tuning_bench::score_input_chroma() {
  inputs();
  return state_->score_input(&sample_input::chroma);
}

void tuning_bench::heed(const std::atomic<bool>* stop) {
  state_->stop = stop;
}

std::vector<std::pair<int32_t, double>> tuning_bench::best_per_value(int field) const {
  const auto& known = tuning_field_at(field).luma ? state_->luma_known : state_->chroma_known;
  std::map<int32_t, double> best;
  for (const auto& [values, entry] : known) {
    const auto [at, fresh] = best.emplace(values[field], entry.score.value);
    if (!fresh) at->second = std::max(at->second, entry.score.value);
  }
  return {best.begin(), best.end()};
}

int tuning_bench::trials() const {
  return state_->trials;
}

}  // namespace vorn::tool
