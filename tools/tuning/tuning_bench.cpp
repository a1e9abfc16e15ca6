#include "tools/tuning/tuning_bench.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/threads.h"

namespace vorn::tool {
namespace {

std::array<int32_t, kTuningFields> values_of(const tuning& t) {
  std::array<int32_t, kTuningFields> values;
  for (int i = 0; i < kTuningFields; ++i) values[i] = get_field(t, i);
  return values;
}

}  // namespace

struct tuning_bench::state {
  const std::vector<tuning_sample>& samples;
  objective goal;
  int threads;
  std::vector<frame> luma_results;  // inputs of the chroma trials
  // One set of denoisers per thread, by frame size.
  std::vector<std::map<std::pair<int, int>, std::unique_ptr<denoiser>>> denoisers;
  std::map<std::array<int32_t, kTuningFields>, tuning_score> luma_known, chroma_known;
  int trials = 0;
  const std::atomic<bool>* stop = nullptr;

  state(const std::vector<tuning_sample>& s, objective g, int n)
      : samples(s), goal(g), threads(n), denoisers(n) {}

  denoiser& denoiser_for(int thread, const frame& f) {
    auto& place = denoisers[thread][{f.padded_width, f.padded_height}];
    if (!place) place = std::make_unique<denoiser>(f.padded_width, f.padded_height);
    return *place;
  }

  tuning_score figures(const frame& f, const frame& clean, bool luma, bool all) const {
    return luma ? luma_figures(f, clean, goal, all) : chroma_figures(f, clean, goal, all);
  }

  // Runs job(thread, i) for i = 0 .. count-1 on all threads. Where the system has no thread left
  // for one of them or for its denoiser, the others go on, and this is so from then on.
  void for_all(size_t count, const std::function<void(int, size_t)>& job) {
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    std::vector<size_t> left;
    std::mutex lock;
    const auto work = [&](int thread) {
      size_t i = 0;
      try {
        for (i = next++; i < count; i = next++) job(thread, i);
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
    for (int t = 1; t < threads && others.start([&work, t] { work(t); }); ++t) {
    }
    work(0);
    others.join();
    if (failure) std::rethrow_exception(failure);
    if (left.empty()) return;
    threads = std::max(1, threads - int(left.size()));
    for (size_t t = 1; t < denoisers.size(); ++t) denoisers[t].clear();
    for (const size_t i : left) job(0, i);
    for (size_t i = next++; i < count; i = next++) job(0, i);
  }

  std::vector<tuning_score> score(const std::vector<tuning>& candidates, bool luma, bool all) {
    auto& known = luma ? luma_known : chroma_known;
    // What the other half says does not matter here.
    std::vector<tuning> todo;
    std::vector<std::array<int32_t, kTuningFields>> keys;
    for (tuning t : candidates) {
      (luma ? t.luma.enable : t.chroma.enable) = 1;
      if (luma) t.chroma = {};
      if (!luma) t.luma = {};
      keys.push_back(values_of(t));
      const bool repeated = std::find(keys.begin(), keys.end() - 1, keys.back()) != keys.end() - 1;
      const auto found = known.find(keys.back());
      const bool done = found != known.end() && (!all || found->second.ssim > 0);
      if (!repeated && !done) todo.push_back(t);
    }
    std::vector<tuning_score> parts(todo.size() * samples.size());
    std::vector<char> done(parts.size());
    for_all(parts.size(), [&](int thread, size_t i) {
      if (stop && *stop) return;
      const tuning_sample& sample = samples[i % samples.size()];
      frame f = luma ? sample.noisy : luma_results[i % samples.size()];
      naming(sample.name, [&] { denoiser_for(thread, f).run(f, todo[i / samples.size()]); });
      parts[i] = figures(f, sample.clean, luma, all);
      done[i] = 1;
    });
    for (size_t i = 0; i < todo.size(); ++i) {
      const auto first = done.begin() + static_cast<ptrdiff_t>(i * samples.size());
      if (std::find(first, first + static_cast<ptrdiff_t>(samples.size()), 0) !=
          first + static_cast<ptrdiff_t>(samples.size()))
        continue;
      known[values_of(todo[i])] = combine(&parts[i * samples.size()], samples.size(), goal);
      ++trials;
    }
    tuning_score left_out;
    left_out.value = -1e9;
    std::vector<tuning_score> scores;
    for (const auto& key : keys) {
      const auto found = known.find(key);
      scores.push_back(found == known.end() ? left_out : found->second);
    }
    return scores;
  }
};

tuning_bench::tuning_bench(const std::vector<tuning_sample>& samples, objective goal, int threads) {
  if (threads <= 0) threads = std::max(1u, std::thread::hardware_concurrency());
  state_ = std::make_unique<state>(samples, goal, threads);
  for (const tuning_sample& s : samples) state_->luma_results.push_back(s.noisy);
}

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
  tuning luma_only = t;
  luma_only.luma.enable = 1;
  luma_only.chroma.enable = 0;
  state_->chroma_known.clear();
  state_->for_all(state_->samples.size(), [&](int thread, size_t i) {
    frame f = state_->samples[i].noisy;
    state_->denoiser_for(thread, f).run(f, luma_only);
    state_->luma_results[i] = std::move(f);
  });
}

tuning_score tuning_bench::score_input_luma() const {
  std::vector<tuning_score> each;
  for (const tuning_sample& s : state_->samples)
    each.push_back(state_->figures(s.noisy, s.clean, true, true));
  return combine(each.data(), each.size(), state_->goal);
}

tuning_score tuning_bench::score_input_chroma() const {
  std::vector<tuning_score> each;
  for (const tuning_sample& s : state_->samples)
    each.push_back(state_->figures(s.noisy, s.clean, false, true));
  return combine(each.data(), each.size(), state_->goal);
}

void tuning_bench::heed(const std::atomic<bool>* stop) {
  state_->stop = stop;
}

std::vector<std::pair<int32_t, double>> tuning_bench::best_per_value(int field) const {
  const auto& known = tuning_field_at(field).luma ? state_->luma_known : state_->chroma_known;
  std::map<int32_t, double> best;
  for (const auto& [values, score] : known) {
    const auto [at, fresh] = best.emplace(values[field], score.value);
    if (!fresh) at->second = std::max(at->second, score.value);
  }
  return {best.begin(), best.end()};
}

int tuning_bench::trials() const {
  return state_->trials;
}

}  // namespace vorn::tool
