// The search, the sweeps and the report page on small frames, and the default set on the chart.
#include "tools/tuning/tuner.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/support/pictures.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/chart.h"
#include "tools/lab/metrics.h"
#include "tools/lab/report_page.h"

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
