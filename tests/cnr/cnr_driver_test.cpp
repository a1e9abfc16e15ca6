#include "cnr/cnr_driver.h"

#include <gtest/gtest.h>

#include <climits>

#include "cnr/exported/masked_driver.h"
#include "tests/support/level.h"

namespace {

using namespace vorn_test;

using bytes = std::vector<uint8_t>;

// A denoiser whose chroma half runs from one frame to another.
struct chroma_run {
  const quiet_log silence;
  const denoiser owner;
  frame src, dst;

  chroma_run(int width, int height)
      : owner(width, height), src(width, height), dst(width, height) {}

  int run(_tag_cnr_param_output with) {
    dst.fill(0xEE);
    return uni_color_noise_reduce_process(owner.get(), &src.image, &dst.image, &with);
  }
};

_tag_cnr_param_output at_scale(int scale, int saturation = 0) {
  _tag_cnr_param_output t{};
  t.range_factor = 20;
  t.smooth_radius = 18;
  t.step = 2;
  t.scale = scale;
  t.saturation = saturation;
  t.color_edge_u = 8;
  t.color_edge_v = 9;
  return t;
}

TEST(CnrDriver, RadiusIsRoundedDownToTheStep) {
  chroma_run f(96, 80);
  f.src.draw(6);
  const auto result = [&](int radius, int step) {
    _tag_cnr_param_output t = at_scale(1);
    t.smooth_radius = radius;
    t.step = step;
    EXPECT_EQ(f.run(t), 0);
    return f.dst.bytes();
  };
  EXPECT_EQ(result(7, 2), result(6, 2));
  EXPECT_NE(result(8, 2), result(6, 2));
  EXPECT_EQ(result(7, 0), result(0, 2));
  EXPECT_EQ(result(INT_MIN, -1), result(0, 2));
  EXPECT_EQ(result(INT_MAX, INT_MIN), result(0, 2));
  // One tap per pixel: the first column, the first row, where the grid starts.
  EXPECT_NE(result(INT_MAX, INT_MAX), result(0, 2));
}

// The second plane pointer does not matter; mode 2 leaves its fine window in the caller's record.
TEST(CnrDriver, ACoarseLevelWithoutTapsIsSkipped) {
  for (const auto& size : {std::pair{64, 48}, {96, 80}, {66, 48}, {64, 50}, {70, 46}}) {
    chroma_run f(size.first, size.second);
    for (const int radius : {0, 1, -4}) {
      f.src.draw(static_cast<uint32_t>(9 + radius));
      _tag_cnr_param_output t = at_scale(2, radius ? 0 : 6);
      t.smooth_radius = radius;
      ASSERT_EQ(f.run(t), 0);
      ycnr_cnr_tuning_param same{};
      same.enable = 1;
      same.range_factor = t.range_factor;
      same.smooth_radius = t.smooth_radius;
      same.step = t.step / 2;
      same.scale = t.scale;
      same.saturation = t.saturation;
      same.color_edge_u = t.color_edge_u;
      same.color_edge_v = t.color_edge_v;
      bytes wanted = f.dst.bytes();
      ASSERT_EQ(model::chroma(size.first, size.second, f.src.data(), wanted.data(), same), 0);
      EXPECT_EQ(f.dst.bytes(), wanted) << size.first << "x" << size.second << ", radius " << radius;
    }
  }
}

TEST(CnrDriver, RecordsAsTheCallerSeesThem) {
  chroma_run f(48, 40);
  f.src.draw(8);
  ASSERT_EQ(f.run(at_scale(2)), 0);
  const bytes expected = f.dst.bytes();
  uint8_t elsewhere = 0;
  f.src.image.plane[1] = f.dst.image.plane[1] = &elsewhere;
  _tag_cnr_param param{};
  for (float& coef : param.range_coef) coef = 1.0f / 400;
  param.smooth_radius = 18;
  param.smooth_step = 2;
  param.scale = 2;
  param.color_edge_u = 8;
  param.color_edge_v = 9;
  ASSERT_EQ(color_noise_reduce_process(f.owner.get(), &f.src.image, &f.dst.image, &param), 0);
  EXPECT_EQ(f.dst.bytes(), expected);
  EXPECT_EQ(param.smooth_radius, 3);
  EXPECT_EQ(param.smooth_step, 2);
  EXPECT_EQ(param.level_mode, 0);
}

TEST(CnrDriver, RefusesWhatItCannotRun) {
  chroma_run f(16, 12);
  _tag_cnr_param param{};
  EXPECT_EQ(color_noise_reduce_process(nullptr, &f.src.image, &f.dst.image, &param), -1);
  EXPECT_EQ(color_noise_reduce_process(f.owner.get(), nullptr, &f.dst.image, &param), -1);
  EXPECT_EQ(color_noise_reduce_process(f.owner.get(), &f.src.image, nullptr, &param), -1);
  EXPECT_EQ(color_noise_reduce_process(f.owner.get(), &f.src.image, &f.dst.image, nullptr), -1);
  EXPECT_EQ(uni_color_noise_reduce_process(f.owner.get(), &f.src.image, &f.dst.image, nullptr), -1);
  EXPECT_EQ(
      color_noise_reduce_mask_process(f.owner.get(), &f.src.image, &f.dst.image, nullptr, &param),
      -1);
  f.src.image.width = 14;
  EXPECT_EQ(f.run(at_scale(2)), -1);
  EXPECT_EQ(f.dst.bytes(), bytes(f.dst.size(), 0xEE));

  const struct {
    int width, height, scale, expected;
  } cases[] = {{15, 12, 0, -1}, {2, 2, 0, 0}, {2, 2, 1, -1}, {4, 3, 2, -1},
               {4, 4, 2, 0},    {2, 2, 3, 0}, {2, 1, 0, -1}};
  for (const auto& c : cases) {
    cnr_handle_t handle{};
    handle.width = c.width;
    handle.height = c.height;
    EXPECT_EQ(vorn::cnr_check_frame(&handle, c.width, c.height, c.scale), c.expected)
        << c.width << "x" << c.height << " " << c.scale;
  }
}

// The masked chroma driver on whole frames, at full chroma size and at half of it.
TEST(CnrDriver, MaskedFramesFollowTheModel) {
  trials(1500, 60, [](random_source& random) {
    const int ratio = random.pick({1, 2, 4}), scale = random.between(0, 1);
    const int unit = ratio * (scale ? 4 : 2);
    const int mask_w = std::max(1, random.between(8, 120) / unit);
    const int mask_h = std::max(1, random.between(8, 90) / unit);
    const int w = mask_w * unit, h = mask_h * unit + random.between(0, 1);
    const denoiser own(w, h);
    ASSERT_NE(own.get(), nullptr);
    frame src(w, h), dst(w, h), want(w, h);
    src.paint(any_content(random), random);
    canvas mask(mask_w, mask_h, mask_w, random);
    _tag_cnr_param p = random_param(random, strength::everyday);
    p.scale = scale;
    p.saturation = random.pick({0, 0, 5, -9, 300});
    const model::chroma_param expected = of(p);
    ASSERT_EQ(model::chroma_masked(w, h, src.data(), want.data(), mask.plane(), expected, scale,
                                   p.saturation),
              0);
    _tag_uni_image from = src.image, to = dst.image;
    EXPECT_EQ(color_noise_reduce_mask_process(own.get(), &from, &to, mask.image(), &p), 0);
    EXPECT_EQ(first_difference(dst, want), "") << numbers({w, h, ratio, scale});
    EXPECT_TRUE(dst.guards_intact());
  });
}

}  // namespace
