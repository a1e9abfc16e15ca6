// The full-resolution blurs: planes of one row or column, in place. The formula is held in
// tests/frame/stage_test.cpp.
#include "pyramid/exported/blur3x3.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "cnr/exported/pyramid_stages.h"
#include "tests/frame/frame_util.h"
#include "tests/support/forms.h"

using frame_util::canvas;
using frame_util::noisy;

namespace {

TEST(Blur, InPlaceEachRowTakesTheBlurredRowAbove) {
  const canvas image = noisy(41, 6, 5);
  canvas want(image);
  for (int y = 0; y < 6; ++y) {
    canvas blurred(want);
    model::blur(want.plane(), blurred.plane());
    std::copy_n(&blurred.at(y, 0), 41, &want.at(y, 0));
  }
  vorn_test::with_every_form([&] {
    canvas in_place(image);
    EXPECT_EQ(0, GaussianBlur3x3(in_place.image(), in_place.image()));
    EXPECT_TRUE(in_place.same(want));
  });
}

TEST(Blur, SingleColumnLosesItsNeighbours) {
  canvas src = noisy(1, 3, 0), dst(src);
  std::fill_n(src.data(), 3, uint8_t{100});
  GaussianBlur3x3(src.image(), dst.image());
  EXPECT_EQ(50, dst.at(1, 0));
}

TEST(Blur, OneRowAndNullImages) {
  canvas src = noisy(20, 1, 4), dst = noisy(20, 1, 0);
  EXPECT_EQ(-1, GaussianBlur3x3(nullptr, dst.image()));
  EXPECT_EQ(-1, GaussianBlur3x3(src.image(), nullptr));
  EXPECT_EQ(0, GaussianBlur3x3(src.image(), dst.image()));
  EXPECT_EQ((src.at(0, 4) + 2 * src.at(0, 5) + src.at(0, 6) + 2) >> 2, dst.at(0, 5));
}

}  // namespace
