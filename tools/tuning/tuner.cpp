#include "tools/tuning/tuner.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <exception>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/metrics.h"

namespace vorn::tool {
namespace {

// A move must gain this much in dB to be made, and more where it costs time.
constexpr double kWorthwhile = 0.003;
constexpr double kWorthwhileSlower = 0.05;
// One dB of PSNR is about this much SSIM where the two trade.
constexpr double kSsimPerDecibel = 0.02;

constexpr int kFlatMask = 64;

// ---- fields -------------------------------------------------------------------------------------

int field_of(const char* key, int level = -1) {
  for (int i = 0; i < kTuningFields; ++i) {
    const tuning_field& field = tuning_field_at(i);
    if (std::strcmp(field.key, key) == 0 && field.level == level) return i;
  }
  return -1;
}

// Keys of both records (enable, param0) are found in the luma record, which comes first.
struct fields {
  std::array<int, 5> intensity, radius;
  int layer = field_of("layer"), corner = field_of("param0");
  int range = field_of("range_factor"), smooth = field_of("smooth_radius"),
      scale = field_of("scale"), step = field_of("step"), edge_u = field_of("color_edge_u"),
      edge_v = field_of("color_edge_v");
  fields() {
    for (int l = 0; l < 5; ++l) {
      intensity[l] = field_of("pIntensity", l);
      radius[l] = field_of("pRadius", l);
    }
  }
};
const fields& ids() {
  static const fields known;
  return known;
}

std::array<int32_t, kTuningFields> values_of(const tuning& t) {
  std::array<int32_t, kTuningFields> values;
  for (int i = 0; i < kTuningFields; ++i) values[i] = get_field(t, i);
  return values;
}

// Neighbours looked at per full-size sample, the measure of time.
double effort(const tuning& t) {
  double sum = 0;
  for (int l = 0; l < t.luma.layer && l < 5; ++l) {
    const int r = t.luma.pRadius[l];
    const bool filters = t.luma.pIntensity[l] > 0 && (r == 3 || r == 5 || r == 7);
    if (filters) sum += 4.0 * (r - 1) * std::pow(0.25, l);
  }
  const int step = std::max(1, 2 * t.chroma.step);
  const double taps = 4.0 * (t.chroma.smooth_radius / step);  // both passes
  const double level0 = 0.5, level1 = 0.125;                  // chroma samples per luma sample
  if (t.chroma.scale == 0) sum += level0 * taps;
  if (t.chroma.scale == 1) sum += level1 * taps;
  if (t.chroma.scale == 2) sum += level1 * taps + level0 * 8;
  return sum;
}

std::vector<int32_t> unique_values(std::vector<int32_t> values) {
  std::sort(values.begin(), values.end());
  values.erase(std::unique(values.begin(), values.end()), values.end());
  return values;
}

// value times factor^-reach .. factor^reach.
std::vector<int32_t> factors_around(int32_t value, double factor, int reach, int32_t lowest,
                                    int32_t highest) {
  std::vector<int32_t> values;
  for (int k = -reach; k <= reach; ++k) {
    const double v = std::round(value * std::pow(factor, k));
    values.push_back(std::clamp(static_cast<int32_t>(v), lowest, highest));
  }
  return unique_values(std::move(values));
}

// Weights are 0 from about 2.5 intensities on and distances end at 784.
constexpr int32_t kHighestIntensity = 2000;
constexpr int32_t kHighestRange = 200;
constexpr int32_t kWidestWindow = 64;
constexpr int32_t kHighestEdge = 64;
// Less would let colours of the same luma run into each other, which few pictures show but eyes
// see.
constexpr int32_t kLowestEdge = 3;

tuning with(tuning t, int field, int32_t value) {
  set_field(t, field, value);
  return t;
}

// Random moves that are the same on every machine: integers and the four basic operations alone.
class random_moves {
 public:
  explicit random_moves(uint64_t seed) : state_(seed) {}

  // 0 .. count - 1.
  int32_t pick(int32_t count) {
    return static_cast<int32_t>(next() % static_cast<uint64_t>(count));
  }
  bool one_in(int32_t count) { return pick(count) == 0; }

  // value times a factor around 1, which leaves it as often raised as lowered; always another value
  // unless that is out of bounds.
  int32_t near(int32_t value, double width, int32_t lowest, int32_t highest) {
    const double move = width * bell();
    const double factor = move >= 0 ? 1 + move : 1 / (1 - move);
    const int32_t moved = static_cast<int32_t>(std::floor(value * factor + 0.5));
    return std::clamp(moved != value ? moved : value + (move >= 0 ? 1 : -1), lowest, highest);
  }

 private:
  uint64_t next() {  // splitmix64
    uint64_t z = state_ += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }
  // Bell-shaped, mean 0, standard deviation 1.
  double bell() {
    double sum = -6;
    for (int i = 0; i < 12; ++i) sum += static_cast<double>(next() >> 11) * 0x1p-53;
    return sum;
  }

  uint64_t state_;
};

}  // namespace

// ---- figures ------------------------------------------------------------------------------------

objective objective_of(const std::string& name) {
  if (name == "psnr") return objective::psnr;
  if (name == "ssim") return objective::ssim;
  if (name == "mix") return objective::mix;
  throw error("--objective", "\"" + name + "\" is none of psnr, ssim, mix");
}

double lost_texture(const frame& f, const frame& clean) {
  constexpr int kSide = 8;
  constexpr double kFaint = 1.5 * 1.5, kStrong = 16.0 * 16.0, kCount = kSide * kSide;
  double kept = 0, there = 0;
  for (int y0 = 0; y0 + kSide <= clean.height; y0 += kSide) {
    for (int x0 = 0; x0 + kSide <= clean.width; x0 += kSide) {
      int sum_c = 0, sum_f = 0, sum_cc = 0, sum_cf = 0;
      for (int y = y0; y < y0 + kSide; ++y) {
        const uint8_t* c = clean.luma() + size_t(y) * clean.padded_width + x0;
        const uint8_t* p = f.luma() + size_t(y) * f.padded_width + x0;
        for (int x = 0; x < kSide; ++x) {
          sum_c += c[x];
          sum_f += p[x];
          sum_cc += c[x] * c[x];
          sum_cf += c[x] * p[x];
        }
      }
      const double variance = (sum_cc - sum_c / kCount * sum_c) / kCount;
      if (variance < kFaint || variance > kStrong) continue;
      there += variance;
      kept += (sum_cf - sum_c / kCount * sum_f) / kCount;
    }
  }
  return there > 0 ? std::clamp(1 - kept / there, 0.0, 1.0) : 0;
}

// ---- running trials -----------------------------------------------------------------------------

struct tuning_bench::state {
  const std::vector<tuning_sample>& samples;
  objective goal;
  int threads;
  std::vector<frame> luma_results;  // inputs of the chroma trials
  // One set of denoisers per thread, by frame size.
  std::vector<std::map<std::pair<int, int>, std::unique_ptr<denoiser>>> denoisers;
  std::map<std::array<int32_t, kTuningFields>, tuning_score> luma_known, chroma_known;
  int trials = 0;

  state(const std::vector<tuning_sample>& s, objective g, int n)
      : samples(s), goal(g), threads(n), denoisers(n) {}

  denoiser& denoiser_for(int thread, const frame& f) {
    auto& place = denoisers[thread][{f.padded_width, f.padded_height}];
    if (!place) place = std::make_unique<denoiser>(f.padded_width, f.padded_height);
    return *place;
  }

  tuning_score figures(const frame& f, const frame& clean, bool luma, bool all) const {
    tuning_score s;
    if (luma) {
      s.psnr = std::min(99.0, psnr(luma_view(f), luma_view(clean)));
      if (all || goal == objective::ssim) s.ssim = ssim(luma_view(f), luma_view(clean));
      if (all || goal == objective::mix) s.lost_texture = tool::lost_texture(f, clean);
    } else {
      const double mse = (mean_squared_error(u_view(f), u_view(clean)) +
                          mean_squared_error(v_view(f), v_view(clean))) /
                         2;
      s.psnr = std::min(99.0, psnr_of(mse));
      if (all || goal == objective::ssim)
        s.ssim = (ssim(u_view(f), u_view(clean)) + ssim(v_view(f), v_view(clean))) / 2;
    }
    return s;
  }

  // Means over the samples, and the value under the objective in dB.
  tuning_score combine(const tuning_score* each) const {
    tuning_score s;
    const double n = static_cast<double>(samples.size());
    for (size_t i = 0; i < samples.size(); ++i) {
      s.psnr += each[i].psnr / n;
      s.ssim += each[i].ssim / n;
      s.lost_texture += each[i].lost_texture / n;
    }
    s.value = s.psnr;
    if (goal == objective::ssim) s.value = s.ssim / kSsimPerDecibel;
    if (goal == objective::mix) s.value = s.psnr - kTexturePrice * s.lost_texture;
    return s;
  }

  // Runs job(thread, i) for i = 0 .. count-1 on all threads.
  void for_all(size_t count, const std::function<void(int, size_t)>& job) const {
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    std::mutex failure_lock;
    const auto work = [&](int thread) {
      try {
        for (size_t i = next++; i < count; i = next++) job(thread, i);
      } catch (...) {
        next = count;
        const std::lock_guard<std::mutex> guard(failure_lock);
        failure = std::current_exception();
      }
    };
    std::vector<std::thread> others;
    for (int t = 1; t < threads; ++t) others.emplace_back(work, t);
    work(0);
    for (std::thread& t : others) t.join();
    if (failure) std::rethrow_exception(failure);
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
    for_all(parts.size(), [&](int thread, size_t i) {
      const tuning_sample& sample = samples[i % samples.size()];
      frame f = luma ? sample.noisy : luma_results[i % samples.size()];
      naming(sample.name, [&] { denoiser_for(thread, f).run(f, todo[i / samples.size()]); });
      parts[i] = figures(f, sample.clean, luma, all);
    });
    for (size_t i = 0; i < todo.size(); ++i)
      known[values_of(todo[i])] = combine(&parts[i * samples.size()]);
    trials += static_cast<int>(todo.size());
    std::vector<tuning_score> scores;
    for (const auto& key : keys) scores.push_back(known[key]);
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
  return state_->combine(each.data());
}

tuning_score tuning_bench::score_input_chroma() const {
  std::vector<tuning_score> each;
  for (const tuning_sample& s : state_->samples)
    each.push_back(state_->figures(s.noisy, s.clean, false, true));
  return state_->combine(each.data());
}

int tuning_bench::trials() const {
  return state_->trials;
}

// ---- the search ---------------------------------------------------------------------------------

tuning guess_tuning(double sigma_luma, double sigma_chroma) {
  const auto whole = [](double v) { return static_cast<int32_t>(std::lround(v)); };
  tuning t = {};
  t.luma.enable = 1;
  t.luma.layer = 4;
  // Two blocks of the same content differ by 16 * 1.13 sigma on average. Each coarser level holds
  // about half the noise of the one before, and the finer levels have yet to come.
  constexpr std::array<double, 5> kShare = {14, 7, 4, 2, 1};
  for (int l = 0; l < 5; ++l) {
    t.luma.pIntensity[l] = whole(kShare[l] * sigma_luma);
    t.luma.pRadius[l] = 7;
  }
  t.luma.param0 = kFlatMask;
  t.chroma.enable = 1;
  t.chroma.range_factor = std::max(2, whole(3 * sigma_chroma));
  t.chroma.smooth_radius = 12;
  t.chroma.scale = 2;
  t.chroma.step = 1;
  t.chroma.color_edge_u = 8;
  t.chroma.color_edge_v = 8;
  return t;
}

tuning guess_tuning(const std::vector<tuning_sample>& samples) {
  double luma = 0, chroma = 0;
  for (const tuning_sample& s : samples) {
    luma += mean_squared_error(luma_view(s.noisy), luma_view(s.clean));
    chroma += (mean_squared_error(u_view(s.noisy), u_view(s.clean)) +
               mean_squared_error(v_view(s.noisy), v_view(s.clean))) /
              2;
  }
  const double n = static_cast<double>(std::max<size_t>(1, samples.size()));
  return guess_tuning(std::sqrt(luma / n), std::sqrt(chroma / n));
}

namespace {

std::string label_of(int field) {
  const tuning_field& f = tuning_field_at(field);
  std::string label = f.key;
  if (f.level >= 0) label += "[" + std::to_string(f.level) + "]";
  return label;
}

std::string decibels(double value) {
  char text[32];
  std::snprintf(text, sizeof text, " %.2f dB", value);
  return text;
}

class search {
 public:
  search(const std::vector<tuning_sample>& samples, const tuning& start,
         const search_options& options,
         const std::function<void(const search_progress&)>& on_progress,
         const std::atomic<bool>& stop)
      : bench_(samples, options.goal, options.threads),
        guess_(guess_tuning(samples)),
        best_(start),
        options_(options),
        on_progress_(on_progress),
        stop_(stop) {}

  search_result run() {
    search_result result;
    result.luma_before = bench_.score_input_luma();
    result.chroma_before = bench_.score_input_chroma();
    total_ = (options_.luma ? luma_lines() : 0) + (options_.chroma ? chroma_lines() : 0);
    if (options_.luma) search_luma();
    result.luma_after = bench_.score_luma({best_}, true).front();
    if (options_.chroma && !stop_) {
      bench_.use_luma(best_);
      search_chroma();
      result.chroma_after = bench_.score_chroma({best_}, true).front();
    }
    result.best = best_;
    for (auto& entry : sweeps_) result.sweeps.push_back(std::move(entry.second));
    result.trials = bench_.trials();
    result.stopped = stop_;
    return result;
  }

 private:
  static constexpr int kLevels = 5;

  // Joint moves: generations per start and per round of lines, candidates per generation.
  static constexpr int kStartGenerations = 10, kGenerations = 12, kChromaGenerations = 8;
  static constexpr int kCandidates = 8;
  static constexpr int kStarts = 3, kChromaStarts = 2;  // windows of the finest level; modes

  int luma_round_lines() const { return 2 * kLevels + 1 + (options_.corners ? 1 : 0); }
  int luma_lines() const {
    return kStarts * (1 + kStartGenerations) + options_.rounds * kGenerations +
           (kStarts + options_.rounds) * luma_round_lines();
  }
  static constexpr int kChromaRoundLines = 6;
  int chroma_lines() const {
    return kChromaStarts * (4 + kStartGenerations) + options_.rounds * kChromaGenerations +
           (kChromaStarts + options_.rounds) * kChromaRoundLines;
  }

  // Tries the candidates and moves to the best one. Returns its place, -1 for no move.
  int try_line(const std::vector<tuning>& candidates, int field) {
    const std::vector<tuning_score> scores =
        luma_half_ ? bench_.score_luma(candidates, false) : bench_.score_chroma(candidates, false);
    const tuning_score now =
        (luma_half_ ? bench_.score_luma({best_}, false) : bench_.score_chroma({best_}, false))
            .front();
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
    if (field >= 0) {
      parameter_sweep sweep;
      sweep.field = field;
      sweep.scores = scores;
      for (const tuning& t : candidates) sweep.values.push_back(get_field(t, field));
      sweep.chosen = get_field(best_, field);
      sweeps_[field] = std::move(sweep);
    }
    value_ = best_value;
    return chosen;
  }

  // A line over one field. Follows the best value while it lies at an end of the line.
  void line(int field, const std::function<std::vector<int32_t>(int32_t)>& values_around) {
    if (field == held_) return step_done(label_of(field));
    for (int turn = 0; turn < 4 && !stop_; ++turn) {
      const std::vector<int32_t> values = values_around(get_field(best_, field));
      std::vector<tuning> candidates;
      for (int32_t v : values) candidates.push_back(with(best_, field, v));
      const int chosen = try_line(candidates, field);
      if (chosen < 0 || (chosen > 0 && chosen + 1 < static_cast<int>(values.size()))) break;
    }
    step_done(label_of(field));
  }

  void step_done(const std::string& label) {
    ++done_;
    if (on_progress_)
      on_progress_({std::min(done_, total_), total_,
                    (luma_half_ ? "luma " : "chroma ") + label + decibels(value_)});
  }

  static double factor_of(int round) {
    constexpr std::array<double, 4> kFactors = {1.6, 1.3, 1.12, 1.05};
    return kFactors[std::min<size_t>(round, kFactors.size() - 1)];
  }

  void intensity_line(int level, int round) {
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

  // A window wants its own strength, and what one level leaves the next one has to take, so lines
  // alone get stuck: move(t, random, width) changes several values of t at a time by about `width`
  // of themselves. The best of a generation is where the next one starts; moves get smaller while
  // nothing is found.
  void evolve(int generations, const std::function<void(tuning&, random_moves&, double)>& move,
              const char* label) {
    random_moves random(0x7a11e5u);
    double width = 0.4;
    for (int g = 0; g < generations && !stop_; ++g) {
      std::vector<tuning> candidates(kCandidates, best_);
      for (tuning& t : candidates) {
        move(t, random, width);
        if (held_ >= 0) set_field(t, held_, get_field(best_, held_));
      }
      width =
          try_line(candidates, -1) >= 0 ? std::min(0.6, width * 1.2) : std::max(0.03, width * 0.9);
      step_done(label);
    }
  }

  void move_luma(tuning& t, random_moves& random, double width) const {
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

  static void move_chroma(tuning& t, random_moves& random, double width) {
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

  // What can go without being missed goes: levels and windows that joint moves left behind.
  void tidy_luma() {
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

  void luma_round(int round) {
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

  // Searches with every value of a field apart and goes on from where the best of them led. Cheaper
  // values come first, so that dearer ones have to be worth it.
  void try_starts(int field, const std::vector<int32_t>& values,
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
    try_line(ends, -1);
  }

  void luma_grid() {
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
    try_line(grid, -1);
    step_done("window " + std::to_string(start.luma.pRadius[0]));
  }

  void search_luma() {
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

  void range_line(int round) {
    line(ids().range, [&](int32_t now) {
      return factors_around(std::max(1, now), factor_of(round), 2, 1, kHighestRange);
    });
  }

  void radius_line(int round) {
    line(ids().smooth, [&](int32_t now) {
      const int32_t step = std::max(1, 2 * best_.chroma.step) * (round == 0 ? 2 : 1);
      std::vector<int32_t> values;
      for (int k = -2; k <= 2; ++k) values.push_back(std::clamp(now + k * step, 0, kWidestWindow));
      return unique_values(std::move(values));
    });
  }

  void step_line() {
    line(ids().step, [](int32_t) { return std::vector<int32_t>{1, 2, 3, 4}; });
  }

  // Both colour edges together, keeping their ratio.
  void edges_line(int round) {
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
    try_line(candidates, ids().edge_u);
    step_done("color_edge_u+v");
  }

  void edge_v_line(int round) {
    line(ids().edge_v, [&](int32_t now) {
      return factors_around(now, factor_of(round + 1), 1, kLowestEdge, kHighestEdge);
    });
  }

  // Range and edges trade against each other and every pyramid mode wants its own window. Radius 0
  // leaves only mode 2's small window at full chroma size.
  void chroma_grid() {
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
      if (start.chroma.scale == 2 || radius > 0) try_line(grid, -1);
      step_done("scale " + std::to_string(start.chroma.scale) + ", radius " +
                std::to_string(radius));
    }
  }

  void search_chroma() {
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

  void chroma_round(int round) {
    range_line(round);
    if (!stop_) radius_line(round);
    if (!stop_) step_line();
    if (!stop_) edges_line(round);
    if (!stop_) edge_v_line(round);
    if (!stop_) line(ids().scale, [](int32_t) { return std::vector<int32_t>{0, 1, 2}; });
  }

  tuning_bench bench_;
  tuning guess_;
  tuning best_;
  search_options options_;
  const std::function<void(const search_progress&)>& on_progress_;
  const std::atomic<bool>& stop_;
  std::map<int, parameter_sweep> sweeps_;
  int held_ = -1;  // a field that does not move for now
  bool luma_half_ = true;
  double value_ = 0;
  int done_ = 0, total_ = 0;
};

}  // namespace

search_result search_tuning(const std::vector<tuning_sample>& samples, const tuning& start,
                            const search_options& options,
                            const std::function<void(const search_progress&)>& on_progress,
                            const std::atomic<bool>& stop) {
  return search(samples, start, options, on_progress, stop).run();
}

std::vector<parameter_sweep> sweep_parameters(
    const std::vector<tuning_sample>& samples, const tuning& at, const search_options& options,
    const std::function<void(const search_progress&)>& on_progress, const std::atomic<bool>& stop) {
  struct plan {
    int field;
    std::vector<int32_t> values;
  };
  std::vector<plan> plans;
  const auto factors = [&](int field, int32_t highest) {
    const int32_t now = std::max(1, get_field(at, field));
    std::vector<int32_t> values = factors_around(now, 1.35, 4, 1, highest);
    values.push_back(get_field(at, field));
    plans.push_back({field, unique_values(std::move(values))});
  };
  if (options.luma) {
    for (int l = 0; l < at.luma.layer && l < 5; ++l) factors(ids().intensity[l], kHighestIntensity);
    for (int l = 0; l < at.luma.layer && l < 5; ++l)
      plans.push_back({ids().radius[l], unique_values({3, 5, 7, at.luma.pRadius[l]})});
    plans.push_back({ids().layer, {2, 3, 4, 5}});
    plans.push_back({ids().corner, unique_values({64, 72, 80, 88, 96, 104, 112, at.luma.param0})});
  }
  const size_t luma_plans = plans.size();
  if (options.chroma) {
    factors(ids().range, kHighestRange);
    std::vector<int32_t> windows = {at.chroma.smooth_radius};
    const int32_t step = std::max(1, 2 * at.chroma.step);
    for (int k = 1; k <= 10; ++k)
      windows.push_back(k * step * (at.chroma.smooth_radius > 16 ? 2 : 1));
    plans.push_back({ids().smooth, unique_values(std::move(windows))});
    plans.push_back({ids().scale, {0, 1, 2}});
    plans.push_back({ids().step, unique_values({1, 2, 3, 4, std::max(1, at.chroma.step)})});
    factors(ids().edge_u, kHighestEdge);
    factors(ids().edge_v, kHighestEdge);
  }
  tuning_bench bench(samples, options.goal, options.threads);
  if (options.chroma) bench.use_luma(at);
  std::vector<parameter_sweep> sweeps;
  for (size_t i = 0; i < plans.size() && !stop; ++i) {
    std::vector<tuning> candidates;
    for (int32_t v : plans[i].values) candidates.push_back(with(at, plans[i].field, v));
    parameter_sweep sweep;
    sweep.field = plans[i].field;
    sweep.values = plans[i].values;
    sweep.scores =
        i < luma_plans ? bench.score_luma(candidates, true) : bench.score_chroma(candidates, true);
    sweep.chosen = get_field(at, plans[i].field);
    sweeps.push_back(std::move(sweep));
    if (on_progress)
      on_progress(
          {static_cast<int>(i + 1), static_cast<int>(plans.size()), label_of(plans[i].field)});
  }
  return sweeps;
}

}  // namespace vorn::tool
