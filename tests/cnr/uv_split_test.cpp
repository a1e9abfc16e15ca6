#include "cnr/uv_split.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <numeric>
#include <vector>

#include "cnr/cnr_driver.h"
#include "tests/support/canvas.h"
#include "tests/support/forms.h"

namespace {

using namespace vorn_test;

// Splits pairs of x, x and returns U.
std::vector<uint8_t> split_value(uint8_t x, int gain, size_t pairs) {
  const std::vector<uint8_t> uv(2 * pairs, x);
  std::vector<uint8_t> u(pairs), v(pairs);
  vorn::split_with_gain(uv.data(), u.data(), v.data(), uv.size(), gain);
  EXPECT_EQ(u, v);
  return u;
}

TEST(UvSplit, GainByHand) {
  with_every_form([] {
    const struct {
      int x, gain, expected;
    } cases[] = {{128, 16, 128}, {128, -128, 128}, {255, 16, 255}, {0, 16, 0},    {200, 4, 218},
                 {100, -8, 114}, {200, 0, 200},    {129, 8, 130},  {127, 8, 127}, {0, -128, 255},
                 {255, -128, 0}, {0, -16, 128},    {200, -32, 56}};
    for (const auto& c : cases)
      for (uint8_t sample : split_value(static_cast<uint8_t>(c.x), c.gain, 40))
        EXPECT_EQ(sample, c.expected) << c.x << " gain " << c.gain;
  });
}

// Kept on purpose: whole steps of 16 pairs see the low 8 bits of the gain, the rest all of it.
TEST(UvSplit, GainBeyondEightBits) {
  with_every_form([] {
    const std::vector<uint8_t> u = split_value(130, 256 + 16, 20);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(u[i], 132);
    for (int i = 16; i < 20; ++i) EXPECT_EQ(u[i], 130 + 34);
    // 31 bytes: a pair begins in each two of them, but they are no whole step.
    const std::vector<uint8_t> uv(32, 130);
    std::vector<uint8_t> short_u(16), short_v(16);
    vorn::split_with_gain(uv.data(), short_u.data(), short_v.data(), 31, 256 + 16);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(short_u[i], 130 + 34);
    // 127 * INT_MIN wraps to INT_MIN, -128 * INT_MIN to 0.
    EXPECT_EQ(split_value(255, INT_MIN, 1)[0], 0);
    EXPECT_EQ(split_value(0, INT_MIN, 1)[0], 0);
  });
}

// Jobs of an odd number of bytes: every pair that begins in them is split or merged, whole.
TEST(UvSplit, APairThatBeginsInTheLastByteIsTaken) {
  for (int bytes : {1, 7, 33}) {
    const int pairs = (bytes + 1) / 2;
    std::vector<uint8_t> uv(36), u(20), v(20), merged(36);
    std::iota(uv.begin(), uv.end(), uint8_t{1});
    split_uv_job split{u.data(), v.data(), uv.data(), 0, 0, bytes, stage_handle()->pool};
    split_UV_process(&split);
    for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(u[i], i < pairs ? uv[2 * i] : 0) << bytes;
      EXPECT_EQ(v[i], i < pairs ? uv[2 * i + 1] : 0) << bytes;
    }
    merge_uv_job merge{u.data(), v.data(), merged.data(), 0, bytes, stage_handle()->pool};
    mergeUV_process(&merge);
    for (int i = 0; i < 36; ++i) EXPECT_EQ(merged[i], i < 2 * pairs ? uv[i] : 0) << bytes;
  }
}

TEST(UvSplit, FollowsTheModel) {
  trials(1600, 100, [](random_source& random) {
    const int w = 2 * random.between(1, 70), rows = random.between(1, 30);
    const int s = random.pick({1, 4, 16, -8, -16, -40, 127, -128, 128, 256, 300, -1000, INT32_MAX});
    canvas uv = painted(w, rows, w, random), u(w / 2, rows, w / 2, random), v(u);
    canvas want_u(u), want_v(v), merged(uv);
    for (int saturation : {0, s}) {
      model::split_sliced(uv.data(), want_u.data(), want_v.data(), w, rows, saturation);
      if (saturation == 0)
        split_UV_thread(stage_handle()->cnr, uv.data(), u.data(), v.data(), w, rows);
      else
        split_UV_saturation_thread(stage_handle()->cnr, uv.data(), u.data(), v.data(), s, w, rows);
      EXPECT_TRUE(u.same(want_u) && v.same(want_v)) << numbers({w, rows, saturation});
      if (saturation == 0) {
        std::memset(merged.data(), 0, static_cast<size_t>(w) * rows);
        mergeUV_thread(stage_handle()->cnr, merged.data(), u.data(), v.data(), w, rows);
        EXPECT_TRUE(merged.same(uv)) << numbers({w, rows});
      }
    }
  });
}

}  // namespace
