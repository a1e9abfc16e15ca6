// The workbench's calls without a browser: views have the bytes of whole frames, figures are right
// on patterns whose figures are known, and a set is never lost.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>  // the normal distribution

#include "tests/support/random.h"
#include "tools/error.h"
#include "tools/lab/chart.h"
#include "tools/lab/chart_finder.h"
#include "tools/lab/figures.h"
#include "tools/lab/noise_model.h"
#include "tools/picture/output_file.h"
#include "tools/workbench/api.h"
#include "tools/workbench/levels.h"

namespace vorn::tool {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;

// A directory of a chart with noise, its clean version and no set yet.
class Workbench : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    directory_ = fs::path(::testing::TempDir()) / (std::string("workbench_") + test->name());
    fs::remove_all(directory_);
    fs::create_directories(directory_);
    frame picture = draw_chart(322, 240);
    write_picture(path("clean.png"), picture);
    noise_model model;
    add_noise(picture, model);
    write_picture(path("noisy_gain8.png"), picture);
  }
  void TearDown() override { fs::remove_all(directory_); }
  std::string path(const std::string& name) const { return (directory_ / name).string(); }

  fs::path directory_;
};

json values_json(const tuning& t) {
  json list = json::array();
  for (int i = 0; i < kTuningFields; ++i) list.push_back(get_field(t, i));
  return list;
}

TEST_F(Workbench, ViewsAreTheWholeFramesBytes) {
  project pictures(find_inputs({path("noisy_gain8.png")}, path("clean.png")), {});
  EXPECT_EQ(pictures.inputs().front().gain, 8);
  set_file set(path("set.json"));
  workbench_api api(pictures, set);
  tuning t = default_tuning_set().nearest(8).values;
  for (int intensity : {t.luma.pIntensity[0], 300}) {
    t.luma.pIntensity[0] = intensity;
    frame whole = read_picture(path("noisy_gain8.png"));
    denoiser(whole.padded_width, whole.padded_height).run(whole, t);
    const rgb_image expected = to_rgb(whole);
    const pixels p = api.view(
        {{"values", values_json(t)}, {"x", 101}, {"y", 51}, {"width", 90}, {"height", 61}});
    ASSERT_EQ(p.x, 100);
    ASSERT_EQ(p.y, 50);
    ASSERT_EQ(p.width, 90);
    for (int y = 0; y < p.height; ++y)
      for (int x = 0; x < p.width; ++x)
        for (int c = 0; c < 3; ++c)
          ASSERT_EQ(p.rgba[(size_t(y) * p.width + x) * 4 + c],
                    expected.data[(size_t(p.y + y) * expected.width + p.x + x) * 3 + c])
              << x << " " << y;
  }
  // Views that reach over the edge end there; far views are means.
  const pixels corner = api.view(
      {{"values", values_json(t)}, {"x", 300}, {"y", 200}, {"width", 999}, {"height", 999}});
  EXPECT_EQ(corner.width, 22);
  EXPECT_EQ(corner.height, 40);
  const pixels far =
      api.view({{"values", values_json(t)}, {"width", 322}, {"height", 240}, {"reduce", 4}});
  EXPECT_EQ(far.width, 80);
}

// What a level's filter does, level by level and put together again, is what the whole filter does.
TEST_F(Workbench, LevelsAreThoseOfTheFilter) {
  project pictures(find_inputs({path("noisy_gain8.png")}, ""), {});
  viewer v(pictures);
  tuning t = default_tuning_set().nearest(16).values;
  t.chroma.enable = 0;
  // Without the finest level's filter, level 1 after is level 1 of the picture after plus nothing:
  // a level that is only copied leaves its frame alone.
  tuning copied = t;
  for (int& intensity : copied.luma.pIntensity) intensity = 0;
  EXPECT_EQ(v.denoised(0, copied, 1)->data, v.reduced(0, 1)->data);
  EXPECT_NE(v.denoised(0, t, 1)->data, v.reduced(0, 1)->data);
  // The coarsest level in use has no coarser one to merge.
  const int coarsest = t.luma.layer - 1;
  EXPECT_EQ(v.denoised(0, t, coarsest)->data,
            v.denoised(0, only_level(t, coarsest), coarsest)->data);
  const block_weights w = v.weights(0, t, 0, 33, 17);
  EXPECT_EQ(w.x, 32);
  EXPECT_EQ(w.window, t.luma.pRadius[0]);
  EXPECT_EQ(int(w.weight.size()), w.window * w.window);
  EXPECT_EQ(w.weight[w.weight.size() / 2], 256);
}

TEST_F(Workbench, ASetIsSavedWholeAndNeverOverAnother) {
  set_file set(path("set.json"));
  set.keep_draft("{\"set\":1}");
  EXPECT_EQ(set_file(path("set.json")).draft(), "{\"set\":1}");
  tuning_set changed = set.loaded();
  changed.name = "mine";
  set.save(changed, "", false);
  EXPECT_EQ(read_tuning_set(path("set.json")).name, "mine");
  EXPECT_EQ(set.draft(), "");
  // Somebody else writes the file.
  write_file(path("set.json"), tuning_set_to_json(default_tuning_set()));
  changed.name = "again";
  EXPECT_THROW(set.save(changed, "", false), set_file::conflict);
  EXPECT_NE(read_tuning_set(path("set.json")).name, "again");
  set.save(changed, "", true);
  EXPECT_EQ(read_tuning_set(path("set.json")).name, "again");
  // Another name: beside it, and not over what is there.
  EXPECT_THROW(set.save(changed, "../set.json", true), error);
  EXPECT_THROW(set.save(changed, "clean.png", true), error);
  EXPECT_EQ(set.save(changed, "other.json", false), path("other.json"));
  EXPECT_THROW(set.save(changed, "set.json", false), set_file::conflict);
}

TEST_F(Workbench, RequestsAreChecked) {
  project pictures(find_inputs({directory_.string()}, path("clean.png")), {});
  ASSERT_EQ(pictures.inputs().size(), 1u);  // the clean version is none of the pictures
  set_file set("");
  workbench_api api(pictures, set);
  const json values = values_json(default_tuning_set().nearest(8).values);
  EXPECT_THROW(api.view({{"values", values}, {"picture", 1}}), error);
  EXPECT_THROW(api.view({{"values", values}, {"reduce", 0}}), error);
  EXPECT_THROW(api.view({{"values", values}, {"version", "other"}}), error);
  EXPECT_THROW(api.view({{"values", json::array({1, 2})}}), error);
  EXPECT_THROW(api.figures({{"picture", "0"}}), error);
  EXPECT_THROW(api.save({{"set", json::object()}}), error);
  EXPECT_THROW(api.file({{"kind", "other"}, {"values", values}}), error);
  const json set_of_page = api.state({})["set"];
  EXPECT_NE(api.file({{"kind", "c"}, {"set", set_of_page}}).find("camera_nearest"),
            std::string::npos);
  EXPECT_EQ(api.size({})["gain"], 8);  // by its name
  const json figures = api.figures({{"values", values}, {"before", true}, {"slow", true}});
  EXPECT_GT(figures["after"]["psnr_y"].get<double>(),
            figures["before"]["psnr_y"].get<double>() + 2);
}

// The chart is found by what a picture shows, noisy or denoised; nothing else is taken for it.
TEST_F(Workbench, FindsTheChartAndItsParts) {
  for (const auto& [width, height] : {std::pair{322, 241}, {640, 480}}) {
    const frame clean = draw_chart(width, height);
    frame f = clean;
    noise_model model;
    model.gain = 64;
    add_noise(f, model);
    EXPECT_EQ(find_chart(f).data, clean.data);
    denoiser(f.padded_width, f.padded_height).run(f, default_tuning_set().nearest(64).values);
    EXPECT_EQ(find_chart(f).data, clean.data);
    // Upside down and mirrored it has the chart's levels, and a grey row that falls.
    std::reverse(f.data.begin(), f.data.begin() + ptrdiff_t(f.luma_size()));
    EXPECT_EQ(find_chart(f).width, 0);
    // A grey row that rises over another scene, and over leaves that lie elsewhere.
    f = clean;
    std::reverse(f.data.begin() + ptrdiff_t(f.luma_size() / 6),
                 f.data.begin() + ptrdiff_t(f.luma_size()));
    EXPECT_EQ(find_chart(f).width, 0);
    f = clean;
    for (int y = height / 3 + 2; y < height; ++y)
      std::reverse(f.luma() + y * f.padded_width + width * 2 / 3,
                   f.luma() + y * f.padded_width + width);
    EXPECT_EQ(find_chart(f).width, 0);
  }
  int edges = 0;
  const frame chart = draw_chart(640, 480);
  for (const auto& [kind, place] : chart_regions(640, 480)) {
    const plane_view part =
        part_of(luma_view(chart), {place.x, place.y, place.width, place.height});
    EXPECT_EQ(part.width, place.width);
    EXPECT_EQ(part.height, place.height);
    if (kind == chart_kind::grey) {
      EXPECT_EQ(measure_patch(part).deviation, 0);
    } else if (kind == chart_kind::leaves) {
      EXPECT_GT(measure_patch(part).deviation, 5);
    }
    if (kind != chart_kind::edge) continue;
    const edge_figures edge = measure_edge(part);
    ASSERT_TRUE(edge.found);
    EXPECT_NEAR(edge.height, edges == 0 ? 170 : 50, 1);
    EXPECT_NEAR(std::abs(edge.angle), 5, 0.2);
    ++edges;
  }
  EXPECT_EQ(edges, 2);
}

// The chart's parts, and figures of its texture without a clean version; neither elsewhere.
TEST_F(Workbench, OffersTheChartsParts) {
  frame stripes = make_frame(320, 240);
  for (int y = 0; y < 240; ++y)  // a ramp rises as the greys do
    for (int x = 0; x < 320; ++x) stripes.luma()[y * 320 + x] = uint8_t(x * 255 / 319);
  write_picture(path("ramp.png"), stripes);
  project pictures(find_inputs({path("noisy_gain8.png"), path("ramp.png")}, ""), {});
  set_file set("");
  workbench_api api(pictures, set);
  EXPECT_TRUE(api.regions({{"picture", 1}})["regions"].empty());
  const json regions = api.regions({})["regions"];
  ASSERT_FALSE(regions.empty());
  EXPECT_EQ(regions.front()["kind"], "grey");
  json request = regions.back();
  EXPECT_EQ(request["kind"], "leaves");
  request["values"] = values_json(default_tuning_set().nearest(8).values);
  const json figures = api.patch(request);
  EXPECT_NEAR(figures["before"]["texture"][4].get<double>(), 1, 0.15);
  EXPECT_NEAR(figures["clean"]["texture"][4].get<double>(), 1, 1e-9);
  request["picture"] = 1;
  EXPECT_FALSE(api.patch(request).contains("clean"));
}

struct plane {
  int width, height;
  std::vector<uint8_t> data = std::vector<uint8_t>(size_t(width) * height);
  plane_view view() const { return {data.data(), width, height, width, 1}; }
};

TEST(Figures, SpectrumOfWhiteNoiseIsItsVariance) {
  plane p{256, 192};
  vorn_test::random_source random(7);
  std::normal_distribution<double> normal(128, 6);
  for (int y = 0; y < p.height; ++y)  // a slope must not count as noise
    for (int x = 0; x < p.width; ++x)
      p.data[size_t(y) * p.width + x] = uint8_t(std::lround(normal(random) + x / 8.0));
  const std::vector<double> spectrum = noise_spectrum(p.view());
  ASSERT_EQ(spectrum.size(), 17u);
  for (size_t i = 2; i < spectrum.size(); ++i) EXPECT_NEAR(spectrum[i], 36, 5) << i;
  EXPECT_NEAR(measure_patch(part_of(p.view(), {0, 0, 8, 192})).deviation, 6, 0.5);
  EXPECT_TRUE(noise_spectrum(part_of(p.view(), {0, 0, 31, 64})).empty());
}

TEST(Figures, EdgeTransferOfAKnownBlur) {
  // An edge five degrees off the vertical, integrated over a box of `blur` pixels across.
  for (double blur : {1.0, 4.0}) {
    plane p{96, 80};
    for (int y = 0; y < p.height; ++y) {
      for (int x = 0; x < p.width; ++x) {
        const double position = (x - 48 - (y - 40) * std::tan(5 * M_PI / 180)) / blur;
        p.data[size_t(y) * p.width + x] =
            uint8_t(std::lround(60 + 140 * std::clamp(position + 0.5, 0.0, 1.0)));
      }
    }
    const edge_figures edge = measure_edge(p.view());
    ASSERT_TRUE(edge.found);
    EXPECT_NEAR(edge.height, 140, 2);
    EXPECT_NEAR(std::abs(edge.angle), 5, 0.2);
    // A box of width b passes half of the contrast at 0.603 / b cycles per pixel.
    EXPECT_NEAR(edge.half, std::min(0.5, 0.603 / blur), 0.01);
  }
  plane flat{64, 64};
  EXPECT_FALSE(measure_edge(flat.view()).found);
}

TEST(Figures, TextureThatIsHalvedKeepsHalf) {
  plane clean{128, 128}, kept{128, 128};
  vorn_test::random_source random(3);
  for (size_t i = 0; i < clean.data.size(); ++i) {
    const int deviation = random.between(-40, 40), noise = random.between(-10, 10);
    clean.data[i] = uint8_t(128 + deviation);
    kept.data[i] = uint8_t(128 + deviation / 2 + noise);
  }
  for (double share : texture_transfer(kept.view(), clean.view())) EXPECT_NEAR(share, 0.5, 0.06);
}

}  // namespace
}  // namespace vorn::tool
