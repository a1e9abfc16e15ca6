// The full-resolution blurs against the formula with mirrored borders.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "pyramid/blur3x3.h"
#include "pyramid/pyramid_kernels.h"
#include "tests/pyramid/plane.h"

namespace {

int mirrored(int i, int size) {
  if (size == 1) return 0;
  return i < 0 ? -i : i >= size ? 2 * size - 2 - i : i;
}

int blurred(plane& src, int y, int x) {
  static const int kWeight[3] = {1, 2, 1};
  int sum = 8;
  for (int i = -1; i <= 1; ++i)
    for (int j = -1; j <= 1; ++j)
      sum += kWeight[i + 1] * kWeight[j + 1] *
             src.at(mirrored(y + i, src.height()), mirrored(x + j, src.width()));
  return sum >> 4;
}

class BlurForms : public every_form {};
VORN_EVERY_FORM(BlurForms);

TEST_P(BlurForms, FollowsTheFormulaWithMirroredBorders) {
  test_pool pool;
  cnr_handle_t chroma{};
  chroma.pool = pool.workers;
  for (int width : {2, 3, 8, 9, 10, 11, 17, 18, 40, 67})
    for (int height : {2, 3, 11}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height);
      plane src(width, height, width, width + 3), dst(width, height, 0, width + 7);
      EXPECT_EQ(0, GaussianBlur3x3(src.image(), dst.image()));
      plane u(width, height, 1), v(width, height, 2), out_u = u, out_v = v;
      EXPECT_EQ(0, pyramid_uv(&chroma, u.image(), v.image(), out_u.image(), out_v.image()));
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          ASSERT_EQ(blurred(src, y, x), dst.at(y, x)) << y << " " << x;
          ASSERT_EQ(blurred(u, y, x), out_u.at(y, x)) << y << " " << x;
          ASSERT_EQ(blurred(v, y, x), out_v.at(y, x)) << y << " " << x;
        }
      EXPECT_TRUE(dst.surroundings_intact() && out_u.surroundings_intact());
    }
}

TEST_P(BlurForms, CornerSampleCountsTwiceEachWay) {
  plane src(12, 5, 0), dst(12, 5, 1);
  std::fill_n(src.data(), 12 * 5, uint8_t{0});
  src.at(0, 0) = 16;
  GaussianBlur3x3(src.image(), dst.image());
  EXPECT_EQ(4, dst.at(0, 0));
  EXPECT_EQ(2, dst.at(0, 1));
  EXPECT_EQ(2, dst.at(1, 0));
  EXPECT_EQ(1, dst.at(1, 1));
}

TEST_P(BlurForms, InPlaceEachRowTakesTheBlurredRowAbove) {
  plane image(41, 6, 5), want = image;
  for (int y = 0; y < want.height(); ++y) {
    int row[41];
    for (int x = 0; x < 41; ++x) row[x] = blurred(want, y, x);
    for (int x = 0; x < 41; ++x) want.at(y, x) = static_cast<uint8_t>(row[x]);
  }
  EXPECT_EQ(0, GaussianBlur3x3(image.image(), image.image()));
  EXPECT_EQ(0, std::memcmp(image.data(), want.data(), 41 * 6));
}

TEST(Blur, SingleColumnLosesItsNeighbours) {
  plane src(1, 3, 0), dst(1, 3, 0);
  std::fill_n(src.data(), 3, uint8_t{100});
  GaussianBlur3x3(src.image(), dst.image());
  EXPECT_EQ(50, dst.at(1, 0));
}

TEST(Blur, OneRowAndNullImages) {
  plane src(20, 1, 4), dst(20, 1, 0);
  EXPECT_EQ(-1, GaussianBlur3x3(nullptr, dst.image()));
  EXPECT_EQ(-1, GaussianBlur3x3(src.image(), nullptr));
  EXPECT_EQ(0, GaussianBlur3x3(src.image(), dst.image()));
  EXPECT_EQ(blurred(src, 0, 5), dst.at(0, 5));
}

}  // namespace
