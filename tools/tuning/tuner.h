// Searches the tuning of one sensor gain on pictures whose clean version is known.
//
// Luma first, then chroma on the luma result, as the library runs them. Within each, one parameter
// at a time: a line of values around the best so far is tried, the best one stays, and the round
// begins anew with finer steps. Intensities move in factors, radii, layers and modes run through
// all their values; the parameters that matter most come first. A parameter moves only for a gain
// of kWorthwhile, so noise in the last digit decides nothing, and cheaper settings win ties.
// Strengths and windows depend on each other, so every window of the finest level and every chroma
// mode gets a short search of its own, the best one a long one, and repeatable random moves of
// several parameters at a time help where single lines are stuck.
//
// Deterministic: the trials of a line run in parallel over denoisers of their own, the choice is
// made when all of them are in. The number of threads changes nothing but the time.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/tuning/tuning_bench.h"

namespace vorn::tool {

// One line of trials: a parameter's values, all else held.
struct parameter_sweep {
  int field = 0;  // as in tuning_field_at
  std::vector<int32_t> values;
  std::vector<tuning_score> scores;
  int32_t chosen = 0;
  // Of a search: for every value that any of its trials had, the best score under the objective,
  // whatever the other parameters were.
  std::vector<std::pair<int32_t, double>> explored;
};

struct search_options {
  objective goal = objective::psnr;
  int threads = 0;  // 0: one per core
  int rounds = 4;
  bool luma = true, chroma = true;
  bool curves = false;   // fill in search_result::sweeps
  bool corners = false;  // search param0 too: for sensors with more noise towards the corners
};

struct search_progress {
  int done = 0, total = 0;  // lines
  std::string note;         // "luma pIntensity[1] 34.12 dB"
  tuning best = {};         // so far
};

struct search_result {
  tuning best;
  tuning_score luma_before, luma_after, chroma_before, chroma_after;
  std::vector<parameter_sweep> sweeps;  // one line per parameter through `best`
  int trials = 0;
  bool stopped = false;
};

// A start for the search from the samples' own noise, without any trial.
tuning guess_tuning(const std::vector<tuning_sample>& samples);
tuning guess_tuning(const std::vector<sample_input>& inputs);
// The same from the standard deviation of the noise, grey levels of luma and of chroma.
tuning guess_tuning(double sigma_luma, double sigma_chroma);

// on_progress is called after every line, on the calling thread. When stop becomes true the search
// ends after the running line with the best so far.
search_result search_tuning(const std::vector<tuning_sample>& samples, const tuning& start,
                            const search_options& options,
                            const std::function<void(const search_progress&)>& on_progress,
                            const std::atomic<bool>& stop);
// The same with the trials run elsewhere; options.threads says nothing then.
search_result search_tuning(std::unique_ptr<scorer> where, const tuning& start,
                            const search_options& options,
                            const std::function<void(const search_progress&)>& on_progress,
                            const std::atomic<bool>& stop);

// One line per parameter around a tuning, without moving it: for plots of quality against each
// parameter. When stop becomes true, those that are done.
std::vector<parameter_sweep> sweep_parameters(
    tuning_bench& bench, const tuning& at, const search_options& options,
    const std::function<void(const search_progress&)>& on_progress, const std::atomic<bool>& stop);
std::vector<parameter_sweep> sweep_parameters(
    const std::vector<tuning_sample>& samples, const tuning& at, const search_options& options,
    const std::function<void(const search_progress&)>& on_progress, const std::atomic<bool>& stop);

}  // namespace vorn::tool
