// Fine mode: what it promises over the plain one. Its bytes stand in tests/frame/corpus.txt.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "tests/support/frames.h"
#include "tests/support/host.h"
#include "vorn_ycnr_ext.h"

namespace {

using namespace vorn_test;

constexpr int kWidth = 256, kHeight = 192;

int run_fine(denoiser& library, frame& src, frame& dst, tuning& with) {
  return vorn_ycnr_process_fine(library.get(), &src.image, &dst.image, &with.params);
}

uint8_t clean_sample(size_t i) {
  const size_t luma = size_t{kWidth} * kHeight;
  if (i >= luma) return i % 2 ? 118 : 140;
  const size_t x = i % kWidth, y = i / kWidth;
  return static_cast<uint8_t>(x < 96 ? 110 : (x + y) % 64 < 32 ? 70 + y / 4 : 160);
}

// Flat parts and slanting edges under noise; chroma's noise comes in blotches where `blotchy`.
void draw_noisy(frame* f, bool blotchy) {
  const size_t luma = size_t{kWidth} * kHeight;
  random_source random(7);
  const auto noise = [&random] {
    int sum = 0;
    for (int i = 0; i < 4; ++i) sum += random.between(0, 15);
    return (sum - 30) / 2;
  };
  std::vector<int> grain(luma / 2);
  for (int& g : grain) g = noise();
  for (size_t i = 0; i < luma * 3 / 2; ++i) {
    int change = noise();
    if (i >= luma) {
      const size_t at = i - luma;
      change = grain[at];
      if (blotchy) change = grain[at / kWidth / 6 * 6 * kWidth + at % kWidth / 12 * 12 + at % 2];
    }
    f->image.plane[0][i] = static_cast<uint8_t>(clean_sample(i) + change);
  }
}

// Mean squared error of samples begin..end - 1.
double error_of(const frame& f, size_t begin, size_t end) {
  double sum = 0;
  for (size_t i = begin; i < end; ++i) {
    const double d = f.image.plane[0][i] - clean_sample(i);
    sum += d * d;
  }
  return sum / static_cast<double>(end - begin);
}

// Share of single-pixel alternation in what is left on the flat part, 1 for white noise.
double alternation(const frame& f) {
  double steps = 0, power = 0;
  for (int y = 16; y < kHeight - 16; ++y) {
    const uint8_t* row = f.image.plane[0] + y * kWidth;
    for (int x = 16; x < 80; ++x) {
      const double a = row[x] - row[x + 1] + row[x + 2] - row[x + 3];
      const double d = row[x] - 110.0;
      steps += a * a / 4;
      power += d * d;
    }
  }
  return steps / power;
}

TEST(Fine, CloserToTheCleanFrameThanThePlainCall) {
  const size_t luma = size_t{kWidth} * kHeight;
  denoiser library(kWidth, kHeight);
  for (const bool blotchy : {false, true}) {
    frame src(kWidth, kHeight), plain(kWidth, kHeight), fine(kWidth, kHeight);
    tuning with;  // as the default set has it for noise like this
    with.ynr = {1, 3, {130, 45, 14, 0, 0}, {3, 7, 3, 7, 7}, 64, 0, 0};
    with.cnr = {1, 25, 0, 2, 1, 3, 11, 0, 0, 0, 0};
    draw_noisy(&src, blotchy);
    ASSERT_EQ(library.run(src, plain, with), 0);
    draw_noisy(&src, blotchy);
    ASSERT_EQ(run_fine(library, src, fine, with), 0);
    EXPECT_LT(error_of(fine, 0, luma), 0.93 * error_of(plain, 0, luma));
    EXPECT_LT(error_of(fine, luma, luma * 3 / 2), 0.93 * error_of(plain, luma, luma * 3 / 2));
    EXPECT_LT(alternation(fine), 1);
  }
}

// A border that a shifted grid gets wrong, or a rounding that drifts, shows on an even plane.
TEST(Fine, EvenFramesStayAsTheyAre) {
  for (const auto& size : {std::pair(4, 4), {6, 4}, {5, 7}, {18, 34}, {66, 50}, {131, 67}}) {
    denoiser library(size.first, size.second);
    tuning with(1, size.first % 2 == 0);
    with.ynr.layer = 2;
    for (const uint8_t value : {0, 77, 255}) {
      frame src(size.first, size.second), dst(size.first, size.second);
      src.fill(value);
      ASSERT_EQ(run_fine(library, src, dst, with), 0);
      src.fill(value);
      EXPECT_EQ(dst.bytes(), src.bytes()) << size.first << "x" << size.second;
      EXPECT_TRUE(dst.guards_intact());
    }
  }
}

TEST(Fine, FramesOfBothKindsAlternate) {
  denoiser library(kWidth, kHeight);
  tuning with;
  std::vector<uint8_t> plain, fine;
  for (int round = 0; round < 3; ++round) {
    frame src(kWidth, kHeight), dst(kWidth, kHeight);
    src.draw(3);
    ASSERT_EQ(library.run(src, dst, with), 0);
    if (round > 0) {
      EXPECT_EQ(dst.bytes(), plain);
    }
    plain = dst.bytes();
    src.draw(3);
    ASSERT_EQ(run_fine(library, src, dst, with), 0);
    if (round > 0) {
      EXPECT_EQ(dst.bytes(), fine);
    }
    fine = dst.bytes();
    EXPECT_NE(fine, plain);
    EXPECT_EQ(vorn_ycnr_prepare_fine(library.get()), 0);  // when there already
  }
}

TEST(Fine, RefusesWhatThePlainCallRefuses) {
  denoiser library(kWidth, kHeight);
  frame src(kWidth, kHeight), dst(kWidth, kHeight), other(kWidth, kHeight - 2);
  tuning with, layers;
  layers.ynr.layer = 6;
  src.draw(5);
  const std::vector<uint8_t> input = src.bytes();
  log_capture log;
  EXPECT_EQ(vorn_ycnr_process_fine(nullptr, &src.image, &dst.image, &with.params), -1);
  EXPECT_EQ(vorn_ycnr_prepare_fine(nullptr), -1);
  EXPECT_EQ(vorn_ycnr_process_fine(library.get(), &src.image, &dst.image, nullptr), -1);
  EXPECT_EQ(run_fine(library, src, other, with), -1);
  EXPECT_EQ(run_fine(library, src, dst, layers), -1);
  EXPECT_EQ(dst.bytes(), input);
}

}  // namespace
