// Searches the tuning of one sensor gain on pictures whose clean version is known.
//
// Luma first, then chroma on the luma result, as the library runs them. Within each, one parameter
// at a time: a line of values around the best so far is tried, the best one stays, and the round
// begins anew with finer steps. Intensities move in factors, radii, layers and modes run through
// all their values; the parameters that matter most come first. A parameter moves only for a gain
// of kWorthwhile, so noise in the last digit decides nothing, and cheaper settings win ties.
// Strengths and windows depend on each other, so every window of the finest level and every chroma
// mode gets a short search of its own, the best one a long one, and repeatable random moves of several
// parameters at a time help where single lines are stuck.
//
// Deterministic: the trials of a line run in parallel over denoisers of their own, the choice is
// made when all of them are in. The number of threads changes nothing but the time.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/picture/frame.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

enum class objective {
  psnr,  // mean PSNR of Y in dB; of U and V together in dB
  ssim,  // mean SSIM of Y; of U and V
  mix,   // PSNR less kTexturePrice dB times the share of luma texture that was lost
};
objective objective_of(const std::string& name);  // an `error` for other names

// Price of losing all faint texture, in dB, under objective::mix.
constexpr double kTexturePrice = 6;

// Share of faint texture that a picture lost against its clean version, 0..1: over blocks of 8x8
// whose clean scatter lies between 1.5 and 16 grey levels, one less the regression of the picture's
// block-wise deviations on the clean ones.
double lost_texture(const frame& f, const frame& clean);

struct tuning_sample {
  std::string name;
  frame clean, noisy;
};

// Figures of one tuning over all samples; means of the samples' values.
struct tuning_score {
  double value = 0;  // under the objective, of the half (luma or chroma) being searched
  // Figures that the objective does not need are there on request only, else 0.
  double psnr = 0, ssim = 0;
  double lost_texture = 0;  // luma only
};

// One line of trials: a parameter's values, all else held.
struct parameter_sweep {
  int field = 0;  // as in tuning_field_at
  std::vector<int32_t> values;
  std::vector<tuning_score> scores;
  int32_t chosen = 0;
};

struct search_options {
  objective goal = objective::psnr;
  int threads = 0;  // 0: one per core
  int rounds = 4;
  bool luma = true, chroma = true;
  bool corners = false;  // search param0 too: for sensors with more noise towards the corners
};

struct search_progress {
  int done = 0, total = 0;  // lines
  std::string note;         // "luma pIntensity[1] 34.12 dB"
};

struct search_result {
  tuning best;
  tuning_score luma_before, luma_after, chroma_before, chroma_after;
  std::vector<parameter_sweep> sweeps;  // the last line of every parameter
  int trials = 0;
  bool stopped = false;
};

// Runs tunings over samples in parallel.
class tuning_bench {
 public:
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
  tuning_score score_input_luma() const;
  tuning_score score_input_chroma() const;
  // Trials so far, a tuning over all samples counting one; repeated ones cost nothing.
  int trials() const;

 private:
  struct state;
  std::unique_ptr<state> state_;
};

// A start for the search from the samples' own noise, without any trial.
tuning guess_tuning(const std::vector<tuning_sample>& samples);
// The same from the standard deviation of the noise, grey levels of luma and of chroma.
tuning guess_tuning(double sigma_luma, double sigma_chroma);

// on_progress is called after every line, on the calling thread. When stop becomes true the search
// ends after the running line with the best so far.
search_result search_tuning(const std::vector<tuning_sample>& samples, const tuning& start,
                            const search_options& options,
                            const std::function<void(const search_progress&)>& on_progress,
                            const std::atomic<bool>& stop);

// One line per parameter around a tuning, without moving it: for plots of quality against each
// parameter.
std::vector<parameter_sweep> sweep_parameters(
    const std::vector<tuning_sample>& samples, const tuning& at, const search_options& options,
    const std::function<void(const search_progress&)>& on_progress, const std::atomic<bool>& stop);

}  // namespace vorn::tool
