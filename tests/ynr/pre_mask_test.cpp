#include "ynr/pre_mask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/support/canvas.h"
#include "tests/support/forms.h"
#include "ynr/exported/pre_mask.h"

namespace {

using namespace vorn_test;

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

TEST(PreMask, BothChainsFollowTheModel) {
  trials(800, 150, [](random_source& random) {
    const int w = random.between(0, 600), h = random.between(0, 300);
    const int strength = random.one_in(2)
                             ? random.between(0, 400)
                             : random.pick({INT32_MIN, -1, 63, 64, 112, 536870975, 536870976,
                                            1073741888, 1 << 20, INT32_MAX});
    canvas mask(w / 4, h / 4, w / 4 + random.between(0, 9), random), want(mask), sliced(mask);
    canvas want_sliced(mask);
    model::pre_mask(want.plane(), w, h, strength);
    pre_mask(nullptr, mask.image(), w, h, strength);
    EXPECT_TRUE(mask.same(want)) << numbers({w, h, strength});
    model::pre_mask_sliced(want_sliced.plane(), w, h);
    pre_mask_thread(stage_handle()->ynr, nullptr, sliced.image(), w, h);
    EXPECT_TRUE(sliced.same(want_sliced)) << "sliced " << numbers({w, h});
  });
}

}  // namespace
