// Where the trials of a search are run: in this process, or wherever an engine takes them
// (ask_tell.h). What a trial says depends on its sample and its tuning alone.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/denoiser.h"
#include "tools/picture/frame.h"
#include "tools/tuning/objective.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

struct tuning_sample {
  std::string name;
  frame clean;  // or another shot, whose noise is below
  frame noisy;
  // Variance of the noise of `clean`, grey levels squared; of chroma the mean of U's and V's.
  double luma_noise = 0, chroma_noise = 0;

  reference held_against() const { return {clean, luma_noise, chroma_noise}; }
};

// A sample as it came in.
struct sample_input {
  sample_figures luma, chroma;
};

// One half of a tuning is tried at a time, with the other one off.
struct trials_wanted {
  std::vector<tuning> candidates;
  bool luma = true;  // else chroma
  bool all = false;  // every figure, not only those that the objective needs
};

// By candidate, then sample.
struct trials_done {
  std::vector<sample_figures> figures;
  std::vector<char> done;  // 0: left out

  explicit trials_done(size_t count) : figures(count), done(count) {}
};

class scorer {
 public:
  scorer() = default;
  virtual ~scorer() = default;
  scorer(const scorer&) = delete;
  scorer& operator=(const scorer&) = delete;

  virtual size_t samples() const = 0;
  // With every figure.
  virtual std::vector<sample_input> inputs() = 0;
  // Makes the luma result of this tuning the input of chroma trials; at first it is the sample.
  virtual void use_luma(const tuning& t) = 0;
  // Trials not begun when *stop becomes true are left out. Null: none is.
  virtual trials_done run(const trials_wanted& wanted, const std::atomic<bool>* stop) = 0;
};

// threads 0: one per core. samples have to stay.
std::unique_ptr<scorer> score_here(const std::vector<tuning_sample>& samples, objective goal,
                                   int threads);

// One thread's denoisers, by frame size.
class trial_runner {
 public:
  void denoise(frame& f, const tuning& t);
  // Of f after t, against r.
  sample_figures run(frame f, const tuning& t, const reference& r, const trials_wanted& wanted,
                     objective goal);

 private:
  std::map<std::pair<int, int>, std::unique_ptr<denoiser>> denoisers_;
};

sample_input figures_of_input(const tuning_sample& s, objective goal);
// t with that half alone, on.
tuning half_of(tuning t, bool luma);
// 0 means one thread per core.
int thread_count(int threads);

}  // namespace vorn::tool
