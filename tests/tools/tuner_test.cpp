// The search, the sweeps and the report page on small frames, and the default set on the chart.
#include "tools/tuning/tuner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>  // the normal distribution

#include "tests/support/pictures.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/chart.h"
#include "tools/lab/metrics.h"
#include "tools/lab/noise_meter.h"
#include "tools/lab/pair_check.h"
#include "tools/lab/report_page.h"
#include "tools/tuning/from_noise.h"

namespace vorn::tool {
namespace {

const bool quiet = (quiet_library_log(), true);
const std::atomic<bool> go_on{false};

tuning_sample chart_sample(double gain, int width = 192, int height = 144) {
  tuning_sample s;
  s.name = "chart";
  s.clean = draw_chart(width, height);
  s.noisy = vorn_test::noisy(s.clean, gain);
  return s;
}

search_options short_search(int threads) {
  search_options o;
  o.threads = threads;
  o.rounds = 1;
  return o;
}

TEST(Search, GainsAndIsTheSameForAnyNumberOfThreads) {
  const std::vector<tuning_sample> samples = {chart_sample(8), chart_sample(8, 161, 119)};
  const tuning start = guess_tuning(samples);
  const search_result one = search_tuning(samples, start, short_search(1), nullptr, go_on);
  const search_result three = search_tuning(samples, start, short_search(3), nullptr, go_on);
  for (int i = 0; i < kTuningFields; ++i)
    EXPECT_EQ(get_field(one.best, i), get_field(three.best, i)) << tuning_field_at(i).key;
  EXPECT_EQ(one.trials, three.trials);
  EXPECT_GT(one.luma_after.psnr, one.luma_before.psnr + 3);
  EXPECT_GT(one.chroma_after.psnr, one.chroma_before.psnr + 1);
  tuning_bench bench(samples, objective::psnr, 2);
  EXPECT_GE(one.luma_after.psnr, bench.score_luma({start}, false)[0].psnr);
}

TEST(Search, StopsAtOnceWithWhatItHas) {
  const std::vector<tuning_sample> samples = {chart_sample(8)};
  const tuning start = guess_tuning(samples);
  const std::atomic<bool> stop{true};
  const search_result r = search_tuning(samples, start, short_search(1), nullptr, stop);
  EXPECT_TRUE(r.stopped);
  EXPECT_EQ(r.best.luma.pIntensity[0], start.luma.pIntensity[0]);
  EXPECT_EQ(r.best.chroma.range_factor, start.chroma.range_factor);
}

TEST(Search, LeavesTheOtherHalfAlone) {
  const std::vector<tuning_sample> samples = {chart_sample(16)};
  tuning start = guess_tuning(samples);
  start.chroma.range_factor = 77;
  search_options o = short_search(2);
  o.chroma = false;
  o.curves = true;
  const search_result r = search_tuning(samples, start, o, nullptr, go_on);
  EXPECT_EQ(r.best.chroma.range_factor, 77);
  ASSERT_FALSE(r.sweeps.empty());
  for (const parameter_sweep& s : r.sweeps) {
    EXPECT_TRUE(tuning_field_at(s.field).luma);
    // The line goes through the result, and no trial was better than it by a move's worth.
    EXPECT_EQ(s.chosen, get_field(r.best, s.field));
    EXPECT_FALSE(s.explored.empty());
    for (const auto& [value, best] : s.explored) EXPECT_LE(best, r.luma_after.value + 0.3) << value;
  }
}

TEST(Search, ChromaTrialsSeeTheLumaResult) {
  const std::vector<tuning_sample> samples = {chart_sample(16)};
  const tuning t = default_tuning_set().nearest(16).values;
  tuning_bench bench(samples, objective::psnr, 2);
  bench.use_luma(t);
  const double psnr_apart = bench.score_chroma({t}, false)[0].psnr;
  frame f = samples[0].noisy;
  denoiser(f.padded_width, f.padded_height).run(f, t);
  EXPECT_NEAR(psnr_apart, compare_frames(f, samples[0].clean).psnr_uv, 1e-9);
}

// The clean picture with normal noise; correlated with the left neighbour's by `lag`. Nothing is
// clipped: clipped noise has another mean, which no shot can tell from the scene.
frame shot_of(const frame& clean, double deviation, double lag, uint64_t seed) {
  vorn_test::random_source engine(seed);
  std::normal_distribution<double> noise(0, deviation / std::sqrt(1 + lag * lag));
  frame f = clean;
  double before[2] = {0, 0};
  for (size_t i = 0; i < f.data.size(); ++i) {
    const double now = noise(engine);
    double& last = before[f.data.data() + i < f.chroma() ? 0 : i % 2];
    f.data[i] = static_cast<uint8_t>(std::lround(clean.data[i] + now + lag * last));
    last = now;
  }
  return f;
}

// Two shots of one scene, each held against the other.
std::vector<tuning_sample> shots_of(const frame& clean, double deviation, double lag) {
  const frame a = shot_of(clean, deviation, lag, 1), b = shot_of(clean, deviation, lag, 2);
  const double luma = mean_squared_error(luma_view(a), luma_view(b)) / 2;
  const double chroma =
      (mean_squared_error(u_view(a), u_view(b)) + mean_squared_error(v_view(a), v_view(b))) / 4;
  return {{"a", b, a, luma, chroma}, {"b", a, b, luma, chroma}};
}

TEST(Burst, EstimatesPsnrWithoutTheCleanPicture) {
  frame clean = draw_chart(320, 240);
  for (uint8_t& b : clean.data) b = static_cast<uint8_t>(64 + b / 2);
  for (const double deviation : {1.5, 4.0, 10.0}) {
    for (const double lag : {0.0, 0.5}) {
      const std::vector<tuning_sample> shots = shots_of(clean, deviation, lag);
      std::vector<tuning_sample> known;
      for (const tuning_sample& s : shots) known.push_back({s.name, clean, s.noisy});
      tuning_bench estimate(shots, objective::psnr, 1), truth(known, objective::psnr, 1);
      std::vector<tuning> tunings;
      for (const double strength : {1.0, 8.0, 64.0})
        tunings.push_back(default_tuning_set().nearest(strength).values);
      const auto luma = estimate.score_luma(tunings, false), is = truth.score_luma(tunings, false);
      estimate.use_luma(tunings[1]);
      truth.use_luma(tunings[1]);
      const auto chroma = estimate.score_chroma(tunings, true);
      const auto chroma_is = truth.score_chroma(tunings, false);
      for (size_t i = 0; i < tunings.size(); ++i) {
        EXPECT_NEAR(luma[i].psnr, is[i].psnr, 0.2) << deviation << ", " << lag << ": tuning " << i;
        EXPECT_NEAR(chroma[i].psnr, chroma_is[i].psnr, 0.2)
            << deviation << ", " << lag << ": tuning " << i;
        EXPECT_EQ(chroma[i].ssim, 0);  // nothing is said of structure
      }
      EXPECT_NEAR(estimate.score_input_luma().psnr, truth.score_input_luma().psnr, 0.1);
    }
  }
}

TEST(Burst, ShotsHaveToDifferByNoiseAlone) {
  const frame wide = draw_chart(336, 240);
  const auto part = [&](int left) {
    frame f = make_frame(320, 240);
    for (int y = 0; y < 240; ++y)
      std::copy_n(wide.luma() + y * 336 + left, 320, f.luma() + y * 320);
    for (int y = 0; y < 120; ++y)
      std::copy_n(wide.chroma() + y * 336 + left, 320, f.chroma() + y * 320);
    return f;
  };
  const frame clean = part(8);
  for (const double gain : {1.0, 8.0, 64.0})
    EXPECT_EQ(fault_of_shots(vorn_test::noisy(clean, gain, 1), vorn_test::noisy(clean, gain, 2)),
              "")
        << gain;
  const frame a = vorn_test::noisy(clean, 8, 1);
  const auto fault = [&](const frame& b) { return fault_of_shots(a, b); };
  EXPECT_NE(fault(a).find("same picture"), std::string::npos);
  EXPECT_NE(fault(vorn_test::noisy(part(10), 8, 2)).find("beside the first"), std::string::npos);
  EXPECT_NE(fault(clean).find("much the noisier"), std::string::npos);
  EXPECT_NE(fault(vorn_test::noisy(clean, 32, 2)).find("much the noisier"), std::string::npos);
  frame brighter = vorn_test::noisy(clean, 8, 2), warmer = brighter, moved = brighter;
  for (uint8_t* p = brighter.luma(); p != brighter.chroma(); ++p)
    *p = static_cast<uint8_t>(std::min(255, *p + 2));
  EXPECT_NE(fault(brighter).find("luma of the second shot is 2.0 grey levels higher"),
            std::string::npos);
  for (size_t i = 1; i < size_t{320} * 120; i += 2) warmer.chroma()[i] += 3;
  EXPECT_NE(fault(warmer).find("V of the second shot"), std::string::npos);
  for (int y = 64; y < 112; ++y) std::fill_n(moved.luma() + y * 320 + 96, 48, uint8_t{90});
  EXPECT_NE(fault(moved).find("something moved"), std::string::npos);
}

// The formula, fed with what the meter says of two shots, beside the default set's best entry. The
// chart is smoother than the photographs that it is meant for, and would be filtered more.
TEST(FromNoise, SuitsTheNoiseWhateverItsBlur) {
  const frame clean = draw_chart(320, 240);
  int32_t strongest = 0;
  for (const double gain : {2.0, 8.0, 32.0}) {
    for (const double blur : {0.0, 0.8}) {
      const frame a = vorn_test::noisy(clean, gain, 1, blur);
      const frame b = vorn_test::noisy(clean, gain, 2, blur);
      const vorn_noise measured = measure_noise({a, b}, noise_scene::burst).all;
      noise_levels noise;
      std::copy_n(measured.luma_levels, noise.luma.size(), noise.luma.begin());
      std::copy_n(measured.chroma_levels, noise.chroma.size(), noise.chroma.begin());
      const tuning t = tuning_for_noise(noise);
      check_tuning(t, "formula");
      if (blur == 0) {
        EXPECT_GT(t.luma.pIntensity[0], strongest);
        strongest = t.luma.pIntensity[0];
      }
      const std::vector<tuning_sample> samples = {{"a", clean, a}};
      tuning_bench bench(samples, objective::psnr, 1);
      std::vector<tuning> entries;
      for (const tuning_entry& entry : default_tuning_set().entries)
        entries.push_back(entry.values);
      const auto best = [](const std::vector<tuning_score>& scores) {
        double most = 0;
        for (const tuning_score& s : scores) most = std::max(most, s.psnr);
        return most;
      };
      EXPECT_GT(bench.score_luma({t}, false)[0].psnr, best(bench.score_luma(entries, false)) - 0.8)
          << gain << " blur " << blur;
      EXPECT_GT(bench.score_chroma({t}, false)[0].psnr,
                best(bench.score_chroma(entries, false)) - 0.8)
          << gain << " blur " << blur;
    }
  }
  const tuning nothing = tuning_for_noise({});
  EXPECT_EQ(nothing.luma.enable, 0);
  EXPECT_EQ(nothing.chroma.enable, 0);
  check_tuning(nothing, "nothing");
}

TEST(Figures, LostTexture) {
  const frame clean = draw_chart(320, 240);
  EXPECT_NEAR(lost_texture(clean, clean), 0, 1e-12);
  frame grey = clean;
  std::fill(grey.luma(), grey.chroma(), uint8_t{120});
  EXPECT_DOUBLE_EQ(lost_texture(grey, clean), 1);
  EXPECT_LT(lost_texture(chart_sample(4, 320, 240).noisy, clean), 0.05);
  EXPECT_THROW(objective_of("best"), error);
}

TEST(Denoiser, SmallFramesAreEnlargedAndCropped) {
  tuning t = default_tuning_set().nearest(16).values;
  t.luma.layer = 5;  // wants 16x16
  const tuning_sample s = chart_sample(16, 64, 64);
  for (const auto& [width, height] : {std::pair{1, 1}, {2, 6}, {9, 3}, {16, 14}, {14, 40}}) {
    frame small = make_frame(width, height);
    const int full_width = std::max(small.padded_width, 16);
    const int full_height = std::max(small.padded_height, 16);
    frame large = make_frame(full_width, full_height);
    const auto sample = [&](frame& f, int x, int y) -> uint8_t& {
      return f.luma()[size_t(y) * f.padded_width + x];
    };
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) sample(small, x, y) = s.noisy.luma()[y * 64 + x];
    pad_edges(small);
    for (int y = 0; y < small.padded_height / 2; ++y)
      for (int x = 0; x < small.padded_width; ++x)
        small.chroma()[y * small.padded_width + x] = s.noisy.chroma()[y * 64 + x];
    for (int y = 0; y < full_height; ++y)
      for (int x = 0; x < full_width; ++x)
        sample(large, x, y) = sample(small, std::min(x, width - 1), std::min(y, height - 1));
    for (int y = 0; y < full_height / 2; ++y)
      for (int x = 0; x < full_width; ++x)
        large.chroma()[y * full_width + x] =
            small.chroma()[std::min(y, (height - 1) / 2) * small.padded_width +
                           std::min(x / 2, (width - 1) / 2) * 2 + x % 2];
    denoiser(small.padded_width, small.padded_height).run(small, t);
    denoiser(full_width, full_height).run(large, t);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        ASSERT_EQ(sample(small, x, y), sample(large, x, y)) << width << "x" << height;
    for (int y = 0; y < small.padded_height / 2; ++y)
      for (int x = 0; x < small.padded_width; ++x)
        ASSERT_EQ(small.chroma()[y * small.padded_width + x], large.chroma()[y * full_width + x]);
  }
}

TEST(DefaultSet, HelpsAtEveryGain) {
  for (const double gain : {1.0, 2.0, 4.0, 8.0, 16.0, 32.0, 64.0}) {
    const tuning_sample s = chart_sample(gain, 640, 480);
    const tuning_entry& entry = default_tuning_set().nearest(gain);
    EXPECT_EQ(entry.gain, gain);
    frame f = s.noisy;
    denoiser(f.padded_width, f.padded_height).run(f, entry.values);
    const quality before = compare_frames(s.noisy, s.clean), after = compare_frames(f, s.clean);
    EXPECT_GT(after.psnr_y, before.psnr_y + 2) << gain;
    EXPECT_GT(after.psnr_uv, before.psnr_uv + 1) << gain;
    EXPECT_GT(after.ssim_y, before.ssim_y) << gain;
    EXPECT_GT(after.ssim_u, before.ssim_u) << gain;
    EXPECT_GT(after.ssim_v, before.ssim_v) << gain;
    // Flat colours keep their mean. Noise of strong colours is clipped on one side, which shifts
    // the noisy mean; moving back towards the clean one is no fault.
    constexpr double kTolerance = 1;
    for (const chart_patch& p : chart_patches(640, 480)) {
      const auto part = [&](const frame& whole, int plane) {
        const uint8_t* start = plane == 0
                                   ? whole.luma() + size_t(p.y) * whole.padded_width + p.x
                                   : whole.chroma() + size_t(p.y / 2) * whole.padded_width + p.x;
        const int half = plane == 0 ? 1 : 2;
        return mean(
            {start + (plane == 2), p.width / half, p.height / half, whole.padded_width, half});
      };
      for (int plane = 0; plane < 3; ++plane) {
        const double is = part(f, plane), was = part(s.noisy, plane), clean = part(s.clean, plane);
        EXPECT_NEAR(is, std::clamp(is, std::min(was, clean), std::max(was, clean)), kTolerance)
            << "gain " << gain << " plane " << plane << " patch at " << p.x << "," << p.y;
      }
    }
  }
}

TEST(Report, OnePageWithItsDataAndNothingFromOutside) {
  const tuning_sample s = chart_sample(8, 65, 67);
  report_entry entry;
  entry.gain = 8;
  entry.label = "8";
  entry.values = default_tuning_set().nearest(8).values;
  entry.sweeps = sweep_parameters({s}, entry.values, short_search(2), nullptr, go_on);
  entry.pictures.push_back(
      make_report_picture("<!--<script></script><b>\xff", s.noisy, s.clean, s.clean, 1 << 20));
  entry.pictures.push_back(make_report_picture("part", s.noisy, s.clean, s.clean, 1000));
  const std::string page = render_report("a <title>", "", {entry});
  for (const char* outside : {"src=\"http", "href=", "@import", "url(http", "fetch("})
    EXPECT_EQ(page.find(outside), std::string::npos) << outside;

  const std::string open = "<script type=\"application/json\" id=\"data\">";
  const size_t from = page.find(open) + open.size();
  const size_t to = page.find("</script>", from);
  const auto data = nlohmann::json::parse(page.substr(from, to - from));
  EXPECT_EQ(data["title"], "a <title>");
  EXPECT_EQ(page.substr(from, to - from).find('<'), std::string::npos);
  const auto& j = data["entries"][0];
  EXPECT_EQ(j["tuning"]["luma"]["pIntensity"].size(), 5u);
  EXPECT_EQ(j["tuning"]["chroma"]["range_factor"], entry.values.chroma.range_factor);
  EXPECT_EQ(j["pictures"][0]["quality"]["after"]["psnr_y"], 99.0);
  EXPECT_EQ(j["pictures"][0]["y"].get<std::string>().rfind("data:image/png;base64,iVBOR", 0), 0u);
  EXPECT_EQ(j["pictures"][1]["quality"], j["pictures"][0]["quality"]);  // of the whole picture
  EXPECT_LE(j["pictures"][1]["width"].get<int>() * j["pictures"][1]["height"].get<int>(), 1000);
  EXPECT_GE(j["sweeps"].size(), 10u);
  for (const auto& sweep : j["sweeps"]) {
    bool marked = false;
    for (const auto& point : sweep["points"]) marked = marked || point["x"] == sweep["chosen"];
    EXPECT_TRUE(marked) << sweep["label"];
  }
}

}  // namespace
}  // namespace vorn::tool
