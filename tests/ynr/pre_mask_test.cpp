// Both rules are held in tests/frame/stage_test.cpp.
#include "ynr/pre_mask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

std::vector<unsigned char> run(int width, int height, int strength, int stride) {
  std::vector<unsigned char> bytes(static_cast<size_t>(stride) * std::max(height / 4, 1), 0xEE);
  _tag_uni_image mask{};
  mask.plane[0] = bytes.data();
  mask.stride[0] = stride;
  EXPECT_EQ(pre_mask(nullptr, &mask, width, height, strength), 0);
  return bytes;
}

TEST(PreMask, StatedValues) {
  const std::vector<unsigned char> mask = run(4000, 3000, 112, 1000);
  EXPECT_EQ(mask[375 * 1000 + 500], 64);
  EXPECT_EQ(mask[0], 255);
  EXPECT_EQ(run(4000, 3000, 10, 1000)[0], 120);  // weak strengths count as k = 56
  for (unsigned char v : run(640, 480, 64, 160)) ASSERT_EQ(v, 64);
  EXPECT_EQ(run(640, 3, 100, 160)[0], 0xEE);  // too low: nothing written
  EXPECT_EQ(run(7, 7, 100, 1)[0], 64);        // R = 0
}

}  // namespace
