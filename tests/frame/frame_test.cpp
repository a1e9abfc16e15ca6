// Whole frames through the entry points: the library's bytes against the slow model's, over random
// sizes, tunings and contents in every kernel form of this machine, and what must hold for any
// frame whatever its values.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tests/model/model.h"
#include "tests/support/forms.h"

namespace {

using namespace vorn_test;

int random_size(random_source& random, bool large) {
  return large ? random.between(60, 400) : random.between(4, 80);
}

// One trial, everything in it decided by the seed.
void compare_with_model(uint64_t seed, bool large, vorn::kernel_form form) {
  random_source random(seed);
  int width = random_size(random, large), height = random_size(random, large);
  if (!random.one_in(5)) width &= ~1;  // odd ones are for luma alone
  tuning t = random_tuning(random);
  if (large) t.cnr.smooth_radius = std::min(t.cnr.smooth_radius, 60);
  const auto picture = static_cast<content>(random.between(0, kContents - 1));

  frame src(width, height, random.between(0, 15)), dst(width, height, random.between(0, 15));
  frame model_src(width, height), model_dst(width, height);
  src.paint(picture, random);
  std::copy_n(src.data(), src.size(), model_src.data());
  ASSERT_TRUE(vorn::use_kernel_form(form));
  denoiser d(width, height);
  ASSERT_NE(d.get(), nullptr);

  const int result = d.run(src, dst, t);
  const int expected =
      model::process(width, height, model_src.data(), model_dst.data(), t.ynr, t.cnr);
  const std::string where = "seed " + std::to_string(seed) + ", form " +
                            vorn::kernel_form_name(form) + ", " + std::to_string(width) + "x" +
                            std::to_string(height) + " " + content_name(picture) + ", " + text(t);
  ASSERT_EQ(result, expected) << where;
  ASSERT_EQ(first_difference(dst, model_dst), "") << where;
  ASSERT_EQ(first_difference(src, model_src), "") << "src, " << where;
  ASSERT_TRUE(src.guards_intact() && dst.guards_intact()) << where;
}

void compare_many(uint64_t first_seed, int trials, bool large) {
  const quiet_log silence;
  const form_restorer restore;
  const auto all = available_forms();
  for (int i = 0; i < trials * effort(); ++i) {
    compare_with_model(first_seed + i, large, all[i % all.size()]);
    if (testing::Test::HasFatalFailure()) return;
  }
}

TEST(Model, SmallFrames) {
  compare_many(1000, 300, false);
}

TEST(Model, MediumFrames) {
  compare_many(9000000, 40, true);
}

// Sizes at which something ends: steps of 8, 16 and 32, odd levels, levels of a few samples.
TEST(Model, SizeSweep) {
  const quiet_log silence;
  const form_restorer restore;
  const auto all = available_forms();
  int trial = 0;
  for (int size = 4; size <= 132; size += size < 72 ? 1 : 5)
    for (int flip = 0; flip < 2; ++flip, ++trial) {
      const int width = flip ? 46 : size, height = flip ? size : 38;
      random_source random(trial);
      tuning t = everyday();
      t.ynr.layer = random.between(2, 3);
      t.ynr.pRadius[0] = random.pick({3, 5, 7});
      t.cnr.scale = trial / 2 % 3;
      t.cnr.saturation = random.pick({0, 0, 6});
      if (width % 2 != 0) t.cnr.enable = 0;
      frame src(width, height), dst(width, height), want(width, height), from(width, height);
      src.paint(trial % 3 ? content::texture : content::noise, random);
      std::copy_n(src.data(), src.size(), from.data());
      vorn::use_kernel_form(all[trial % all.size()]);
      const denoiser d(width, height);
      const int expected = model::process(width, height, from.data(), want.data(), t.ynr, t.cnr);
      ASSERT_EQ(d.run(src, dst, t), expected) << width << "x" << height;
      ASSERT_EQ(first_difference(dst, want), "")
          << width << "x" << height << ", form "
          << vorn::kernel_form_name(vorn::active_kernel_form()) << ", " << text(t);
      ASSERT_TRUE(dst.guards_intact());
    }
}

TEST(Properties, FlatColoursKeepTheirValue) {
  for (int scale = 0; scale < 3; ++scale)
    for (int value : {0, 1, 77, 128, 254, 255}) {
      frame src(96, 72), dst(96, 72);
      std::fill_n(src.data(), src.size(), static_cast<uint8_t>(value));
      tuning t = everyday();
      t.cnr.scale = scale;
      const denoiser d(96, 72);
      ASSERT_EQ(d.run(src, dst, t), 0);
      EXPECT_EQ(std::count(dst.data(), dst.data() + dst.size(), value),
                static_cast<long>(dst.size()))
          << "value " << value << ", scale " << scale;
    }
}

// A frame depends on its own pixels and tuning alone: not on earlier frames of the handle, nor on
// another handle of another size in between.
TEST(Properties, FramesAndHandlesAreIndependent) {
  const denoiser used(142, 94), fresh(142, 94), other(60, 130);
  random_source random(7);
  frame other_src(60, 130), other_dst(60, 130);
  other_src.paint(content::noise, random);
  for (int i = 0; i < 12; ++i) {
    tuning t = random_tuning(random), usual = everyday();
    frame src(142, 94), dst(142, 94), again_src(142, 94), again(142, 94);
    src.paint(static_cast<content>(i % kContents), random);
    std::copy_n(src.data(), src.size(), again_src.data());
    const int result = used.run(src, dst, t);  // a tuning that leaves other things behind
    ASSERT_EQ(other.run(other_src, other_dst, usual), 0);
    const denoiser first_frame(142, 94);
    ASSERT_EQ(first_frame.run(again_src, again, t), result) << text(t);
    ASSERT_EQ(first_difference(dst, again), "") << text(t);
  }
}

}  // namespace
