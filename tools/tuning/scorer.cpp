#include "tools/tuning/scorer.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

#include "tools/error.h"
#include "tools/threads.h"

namespace vorn::tool {
namespace {

class local_scorer : public scorer {
 public:
  local_scorer(const std::vector<tuning_sample>& samples, objective goal, int threads)
      : samples_(samples), goal_(goal), runners_(static_cast<size_t>(threads)) {
    for (const tuning_sample& s : samples) luma_results_.push_back(s.noisy);
  }

  size_t samples() const override { return samples_.size(); }

  std::vector<sample_input> inputs() override {
    std::vector<sample_input> found(samples_.size());
    for_all(found.size(),
            [&](trial_runner&, size_t i) { found[i] = figures_of_input(samples_[i], goal_); });
    return found;
  }

  void use_luma(const tuning& t) override {
    const tuning luma_only = half_of(t, true);
    for_all(samples_.size(), [&](trial_runner& runner, size_t i) {
      frame f = samples_[i].noisy;
      runner.denoise(f, luma_only);
      luma_results_[i] = std::move(f);
    });
  }

  trials_done run(const trials_wanted& wanted, const std::atomic<bool>* stop) override {
    trials_done result(wanted.candidates.size() * samples_.size());
    for_all(result.figures.size(), [&](trial_runner& runner, size_t i) {
      if (stop && *stop) return;
      const size_t at = i % samples_.size();
      const tuning& t = wanted.candidates[i / samples_.size()];
      naming(samples_[at].name, [&] {
        result.figures[i] = runner.run(wanted.luma ? samples_[at].noisy : luma_results_[at], t,
                                       samples_[at].held_against(), wanted, goal_);
      });
      result.done[i] = 1;
    });
    return result;
  }

 private:
  // Runs job(runner, i) for i = 0 .. count-1 on all threads. Where the system has no thread left
  // for one of them or for its denoiser, the others go on, and this is so from then on.
  void for_all(size_t count, const std::function<void(trial_runner&, size_t)>& job) {
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    std::vector<size_t> left;
    std::mutex lock;
    const auto work = [&](trial_runner& runner) {
      size_t i = 0;
      try {
        for (i = next++; i < count; i = next++) job(runner, i);
      } catch (const no_threads&) {
        const std::lock_guard<std::mutex> guard(lock);
        left.push_back(i);
      } catch (...) {
        next = count;
        const std::lock_guard<std::mutex> guard(lock);
        failure = std::current_exception();
      }
    };
    thread_group others;
    for (size_t t = 1; t < runners_.size() && others.start([&, t] { work(runners_[t]); }); ++t) {
    }
    work(runners_[0]);
    others.join();
    if (failure) std::rethrow_exception(failure);
    if (left.empty()) return;
    runners_.resize(runners_.size() > left.size() ? runners_.size() - left.size() : 1);
    for (size_t t = 1; t < runners_.size(); ++t) runners_[t] = {};
    for (const size_t i : left) job(runners_[0], i);
    for (size_t i = next++; i < count; i = next++) job(runners_[0], i);
  }

  const std::vector<tuning_sample>& samples_;
  objective goal_;
  std::vector<trial_runner> runners_;
  std::vector<frame> luma_results_;  // inputs of the chroma trials
};

}  // namespace

std::unique_ptr<scorer> score_here(const std::vector<tuning_sample>& samples, objective goal,
                                   int threads) {
  return std::make_unique<local_scorer>(samples, goal, thread_count(threads));
}

void trial_runner::denoise(frame& f, const tuning& t) {
  auto& place = denoisers_[{f.padded_width, f.padded_height}];
  if (!place) place = std::make_unique<denoiser>(f.padded_width, f.padded_height);
  place->run(f, t);
}

sample_figures trial_runner::run(frame f, const tuning& t, const reference& r,
                                 const trials_wanted& wanted, objective goal) {
  denoise(f, t);
  return wanted.luma ? luma_figures(f, r, goal, wanted.all)
                     : chroma_figures(f, r, goal, wanted.all);
}

sample_input figures_of_input(const tuning_sample& s, objective goal) {
  const reference r = s.held_against();
  return {luma_figures(s.noisy, r, goal, true), chroma_figures(s.noisy, r, goal, true)};
}

tuning half_of(tuning t, bool luma) {
  (luma ? t.luma.enable : t.chroma.enable) = 1;
  if (luma) t.chroma = {};
  if (!luma) t.luma = {};
  return t;
}

int thread_count(int threads) {
  if (threads > 0) return threads;
  return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

}  // namespace vorn::tool
