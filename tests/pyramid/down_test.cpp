// Down-sampling and detail planes against the formulas, one sample at a time.
#include <gtest/gtest.h>

#include <algorithm>

#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/pyramid_kernels.h"
#include "tests/pyramid/plane.h"

namespace {

// Weights 1 2 1 x 1 2 1 around (2y, 2x). left and right: smallest and largest column allowed.
int binomial(plane& src, int y, int x, int left, int right) {
  static const int kWeight[3] = {1, 2, 1};
  int sum = 8;
  for (int i = -1; i <= 1; ++i)
    for (int j = -1; j <= 1; ++j) {
      const int row = std::clamp(2 * y + i, 0, src.height() - 1);
      const int column = std::clamp(2 * x + j, left, right);
      sum += kWeight[i + 1] * kWeight[j + 1] * src.at(row, column);
    }
  return sum >> 4;
}

plane halved(plane& src, int width, int height) {
  plane expected(width, height, 0);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      expected.at(y, x) = static_cast<uint8_t>(binomial(src, y, x, 0, src.width() - 1));
  return expected;
}

class Down2 : public every_form {};
class Detail : public every_form {};
VORN_EVERY_FORM(Down2);
VORN_EVERY_FORM(Detail);

TEST_P(Down2, FollowsTheFormulaAtAllSizes) {
  test_pool pool;
  cnr_handle_t chroma{};
  ynr_handle_t luma{};
  chroma.pool = luma.pool = pool.workers;
  for (int width = 16; width <= 83; ++width)
    for (int height : {1, 2, 3, 9, 10, 11}) {
      plane src(width, height, width * 100 + height);
      const int dw = width / 2, dh = (height + 1) / 2;
      const plane expected = halved(src, dw, dh);
      SCOPED_TRACE(testing::Message() << width << "x" << height);
      plane whole(dw, dh, 0), stage(dw, dh, 0), strided(dw, dh, 0);
      gaussin3x3_down2_pro(src.data(), width, height, whole.data(), dw, dh, 0, dh);
      ASSERT_TRUE(whole == expected);
      ASSERT_EQ(0, pyramid_down2(&chroma, src.image(), stage.image()));
      ASSERT_TRUE(stage == expected);
      ASSERT_EQ(0, gaussin3x3_down2_ynr(&luma, src.image(), strided.image()));
      ASSERT_TRUE(strided == expected);
      plane part(dw, dh, 0);
      gaussin3x3_down2_ynr_thread(&luma, src.data(), width, height, width, part.data(), dw, dh, dw);
      ASSERT_TRUE(part == expected);
    }
}

TEST_P(Down2, FlatStaysFlatAndExtremesDoNotWrap) {
  for (int value : {0, 1, 127, 128, 255}) {
    plane src(70, 34, 0), dst(35, 17, 0);
    std::fill_n(src.data(), 70 * 34, static_cast<uint8_t>(value));
    gaussin3x3_down2(src.data(), 70, 34, 70, dst.data(), 35, 17, 35);
    EXPECT_EQ(35 * 17, std::count(dst.data(), dst.data() + 35 * 17, value));
  }
}

// The raw forms produce a block of eight, then the row's own samples with an open left side.
TEST_P(Down2, NarrowRowsWriteTheirFirstBlock) {
  plane src(24, 6, 7), block(8, 3, 8), narrow(8, 3, 8);
  gaussin3x3_down2(src.data(), 24, 6, 24, block.data(), 8, 3, 8);
  gaussin3x3_down2(src.data(), 24, 6, 24, narrow.data(), 5, 3, 8);
  for (int y = 0; y < 3; ++y)
    for (int x = 1; x < 8; ++x) EXPECT_EQ(block.at(y, x), narrow.at(y, x));
  // Row 1 is centred on source row 2; its left neighbours end rows 0, 1 and 2.
  const int left = src.at(0, 23) + 2 * src.at(1, 23) + src.at(2, 23);
  const int middle = src.at(1, 0) + 2 * src.at(2, 0) + src.at(3, 0);
  const int right = src.at(1, 1) + 2 * src.at(2, 1) + src.at(3, 1);
  EXPECT_EQ((left + 2 * middle + right + 8) >> 4, narrow.at(1, 0));
}

TEST_P(Down2, StagesStayInsideNarrowPlanes) {
  test_pool pool;
  cnr_handle_t chroma{};
  ynr_handle_t luma{};
  chroma.pool = luma.pool = pool.workers;
  for (int width = 2; width < 16; ++width)
    for (int height : {1, 2, 7, 16}) {
      plane src(width, height, width), in_blocks(width / 2, (height + 1) / 2 + 8, 1);
      const int dw = width / 2, dh = (height + 1) / 2;
      gaussin3x3_down2_pro(src.data(), width, height, in_blocks.data(), dw, dh, 0, dh);
      plane threads(dw, dh, 1), caller(dw, dh, 1);
      gaussin3x3_down2(&chroma, src.image(), threads.image());
      gaussin3x3_down2_ynr(&luma, src.image(), caller.image());
      ASSERT_TRUE(threads.surroundings_intact() && caller.surroundings_intact());
      ASSERT_TRUE(threads == caller);
      ASSERT_TRUE(std::equal(caller.data(), caller.data() + dw * dh, in_blocks.data()));
    }
}

TEST_P(Down2, ThreePlanesTogetherEqualThreeSingly) {
  test_pool pool;
  cnr_handle_t chroma{};
  chroma.pool = pool.workers;
  plane y(77, 23, 1), u(77, 23, 2), v(77, 23, 3);
  plane half_y(38, 11, 0), half_u(38, 11, 0), half_v(38, 11, 0);
  EXPECT_EQ(0, pyramid_down_yuv(&chroma, y.image(), half_y.image(), u.image(), half_u.image(),
                                v.image(), half_v.image()));
  plane raw_y(38, 11, 0), raw_u(38, 11, 0), raw_v(38, 11, 0);
  gaussin3x3_down_yuv(y.data(), 77, 23, raw_y.data(), 38, 11, u.data(), v.data(), raw_u.data(),
                      raw_v.data());
  EXPECT_TRUE(half_y == halved(y, 38, 11) && raw_y == half_y);
  EXPECT_TRUE(half_u == halved(u, 38, 11) && raw_u == half_u);
  EXPECT_TRUE(half_v == halved(v, 38, 11) && raw_v == half_v);
}

TEST_P(Down2, SplitFrameRepeatsItsEdges) {
  test_pool pool;
  cnr_handle_t chroma{};
  chroma.pool = pool.workers;
  for (int width : {7, 8, 32, 67}) {
    const int height = 13, dw = (width + 1) / 2, dh = (height + 1) / 2;
    plane y(width, height, width), uv(2 * dw, dh, 5, 2 * dw);
    plane u(dw, dh, 0), v(dw, dh, 0), half(dw, dh, 0);
    const auto expect_result = [&](const char* form) {
      plane expected = halved(y, dw, dh);
      EXPECT_TRUE(half == expected) << form << " " << width;
      for (int i = 0; i < dw; ++i) {
        ASSERT_EQ(uv.at(0, 2 * i), u.at(0, i));
        // Rows of pairs are as far apart as luma rows.
        ASSERT_EQ(uv.data()[width + 2 * i + 1], v.at(1, i)) << form;
      }
    };
    splituv_gaussin3x3_down(uv.data(), u.data(), v.data(), y.data(), width, height, width,
                            half.data(), dw, dh, dw);
    expect_result("whole");
    u = v = half = plane(dw, dh, 0);
    EXPECT_EQ(0, splituv_gaussin3x3_down_thread(&chroma, uv.data(), u.data(), v.data(), y.data(),
                                                width, height, width, half.data(), dw, dh, dw));
    expect_result("stage");
  }
  // In place: pairs are taken in order, so u may start where uv does.
  plane y(64, 2, 1), uv(64, 1, 2), v(32, 1, 0), half(32, 1, 0), source = uv;
  splituv_gaussin3x3_down(uv.data(), uv.data(), v.data(), y.data(), 64, 2, 64, half.data(), 32, 1,
                          32);
  for (int i = 0; i < 32; ++i) {
    EXPECT_EQ(source.at(0, 2 * i), uv.at(0, i));
    EXPECT_EQ(source.at(0, 2 * i + 1), v.at(0, i));
  }
}

// All pairs of samples, in rows long enough for every vector step and with a tail.
TEST_P(Detail, ReflectsNegativeSums) {
  plane a(259, 256, 0), b(259, 256, 0, 300), difference(259, 256, 0, 261), sum(259, 256, 0);
  for (int y = 0; y < 256; ++y)
    for (int x = 0; x < 259; ++x) {
      a.at(y, x) = static_cast<uint8_t>(y);
      b.at(y, x) = static_cast<uint8_t>(x);
    }
  ImgSubImg_add128_u8(a.image(), b.image(), difference.image());
  ImgAddDiff_sub128_u8(a.image(), b.image(), sum.image());
  for (int y = 0; y < 256; ++y)
    for (int x = 0; x < 259; ++x) {
      const int d = x & 255;
      ASSERT_EQ(std::min(std::abs(y - d + 128), 255), difference.at(y, x)) << y << " " << d;
      ASSERT_EQ(std::min(std::abs(y + d - 128), 255), sum.at(y, x)) << y << " " << d;
    }
  EXPECT_TRUE(difference.surroundings_intact());
  plane in_place = a;
  ImgAddDiff_sub128_u8(in_place.image(), b.image(), in_place.image());
  EXPECT_TRUE(in_place == sum);
}

}  // namespace
