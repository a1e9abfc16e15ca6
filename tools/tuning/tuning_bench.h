// Scores tunings over all samples, wherever their trials are run, and remembers every one.
#pragma once

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "tools/tuning/objective.h"
#include "tools/tuning/scorer.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

class tuning_bench {
 public:
  tuning_bench(std::unique_ptr<scorer> where, objective goal);
  // In this process.
  tuning_bench(const std::vector<tuning_sample>& samples, objective goal, int threads);
  ~tuning_bench();
  tuning_bench(const tuning_bench&) = delete;
  tuning_bench& operator=(const tuning_bench&) = delete;

  // Scores of candidates on luma (chroma off) or on chroma (luma off: call use_luma first).
  // all: with every figure of tuning_score.
  std::vector<tuning_score> score_luma(const std::vector<tuning>& candidates, bool all);
  std::vector<tuning_score> score_chroma(const std::vector<tuning>& candidates, bool all);
  // Makes the luma result of this tuning the input of score_chroma.
  void use_luma(const tuning& t);
  // The samples as they came in.
  const std::vector<sample_input>& inputs();
  tuning_score score_input_luma();
  tuning_score score_input_chroma();
  // From now on trials not begun when *stop becomes true are left out: they score -1e9 and are not
  // kept. Null heeds nothing, as at first.
  void heed(const std::atomic<bool>* stop);
  // Of all trials so far on the field's half (those on an earlier luma result excepted): the best
  // value of the objective for every value that the field had, by rising values.
  std::vector<std::pair<int32_t, double>> best_per_value(int field) const;
  // Trials so far, a tuning over all samples counting one; repeated ones cost nothing.
  int trials() const;

 private:
  struct state;
  std::unique_ptr<state> state_;
};

}  // namespace vorn::tool
