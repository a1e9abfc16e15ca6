// Up-sampling and its merges against the formulas, one sample at a time.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "pyramid/detail.h"
#include "pyramid/pyramid_kernels.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "tests/pyramid/plane.h"

namespace {

// An odd fine plane needs one coarse column and row more than it is large: give them.
plane coarse_for(int width, int height, int seed) {
  return plane(width / 2 + 1, height / 2 + 2, seed);
}

int average(int a, int b) {
  return (a + b + 1) / 2;
}

int horizontal(plane& small, int r, int x) {
  return x % 2 ? average(small.at(r, x / 2), small.at(r, x / 2 + 1)) : small.at(r, x / 2);
}

// The enlarged sample, before any closing of rows; the last column repeats the one before.
int enlarged(plane& small, int y, int x, int width) {
  x = std::min(x, width - 2);
  const int top = horizontal(small, y / 2, x);
  return y % 2 ? average(top, horizontal(small, y / 2 + 1, x)) : top;
}

int merge(int u, int d) {
  return std::min(std::abs(u + d - 128), 255);
}

_tag_uni_image* with_height(plane& p, int height) {
  _tag_uni_image* image = p.image();
  image->height = height;
  return image;
}

class Up2 : public every_form {};
class UpChroma : public every_form {};
VORN_EVERY_FORM(Up2);
VORN_EVERY_FORM(UpChroma);

const int kWidths[] = {2,  3,  4,  5,  16, 17, 18, 31, 32,  33,
                       34, 47, 48, 49, 63, 64, 65, 66, 100, 129};

TEST_P(Up2, LastColumnRepeatsItsNeighbour) {
  for (int width : kWidths)
    for (int height : {2, 3, 4, 9, 12}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height);
      plane small = coarse_for(width, height, width), out(width, height, 0);
      // A coarse plane of the usual, smaller height closes the bottom by copies.
      for (int coarse_height : {height / 2, height / 2 + 1}) {
        ASSERT_EQ(0, gaussin3x3_up2(with_height(small, coarse_height), out.image()));
        ASSERT_TRUE(out.surroundings_intact());
        for (int y = 0; y < height; ++y)
          for (int x = 0; x < width; ++x) {
            const int row = 2 * coarse_height <= height ? std::min(y, 2 * coarse_height - 2) : y;
            ASSERT_EQ(enlarged(small, row, x, width), out.at(y, x)) << y << " " << x;
          }
      }
    }
}

// The fused pass of the luma driver against its two steps, in slices, with room beside the rows.
TEST_P(Up2, FusedMergeEqualsEnlargingThenAdding) {
  for (int width : kWidths)
    for (int height : {2, 3, 8, 13}) {
      plane small = coarse_for(width, height, width), image(width, height, 3, width + 16);
      plane fine(width, height, 0), expected(width, height, 0), out(width, height, 0, width + 5);
      for (int coarse_height : {height / 2, height / 2 + 1}) {
        _tag_uni_image* detail = with_height(small, coarse_height);
        gaussin3x3_up2(detail, fine.image());
        ImgAddDiff_sub128_u8(image.image(), fine.image(), expected.image());
        const int middle = height / 2 & ~1;
        vorn::up2_add_rows(*detail, *image.image(), *out.image(), middle, height);
        vorn::up2_add_rows(*detail, *image.image(), *out.image(), 0, middle);
        for (int y = 0; y < height; ++y)
          ASSERT_EQ(0, std::memcmp(&expected.at(y, 0), &out.at(y, 0), static_cast<size_t>(width)))
              << width << "x" << height << " row " << y;
        ASSERT_TRUE(out.surroundings_intact());
      }
    }
}

TEST_P(Up2, MergeLeavesLastColumnOfMultiplesOf16) {
  for (int width : kWidths)
    for (int height : {2, 4, 5, 10}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height);
      plane small = coarse_for(width, height, width), detail(width, height, 9);
      plane out(width, height, 10), before = out;
      ASSERT_EQ(0, gaussin3x3_up2_merge(small.image(), detail.image(), out.image()));
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          int expected = merge(enlarged(small, std::min(y, height - 2), x, width), detail.at(y, x));
          if (y < height - 2 && x == width - 1 && x % 16 == 0) expected = before.at(y, x);
          ASSERT_EQ(expected, out.at(y, x)) << y << " " << x;
        }
      ASSERT_TRUE(out.surroundings_intact());
    }
}

TEST_P(Up2, MergeInPlaceTwiceForOddHeights) {
  test_pool pool;
  cnr_handle_t chroma{};
  chroma.pool = pool.workers;
  for (int width : kWidths)
    for (int height : {2, 3, 4, 9, 10}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height);
      plane small = coarse_for(width, height, width), detail(width, height, 9), before = detail;
      plane up(width, height, 11), other = detail, other_up = up;
      ASSERT_EQ(0, gaussin3x3_up2_merge1_thread(&chroma, small.image(), up.image(), detail.image(),
                                                small.image(), other_up.image(), other.image()));
      ASSERT_TRUE(detail == other && up == other_up);
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          const int u = enlarged(small, std::min(y, height - 2), x, width);
          int expected = merge(u, before.at(y, x));
          const bool left_alone = x == width - 1 && x % 16 == 0;
          if (y < height - 2 && left_alone) expected = before.at(y, x);
          if (y == height - 2 && height % 2)
            expected = merge(u, left_alone ? before.at(y, x) : expected);
          ASSERT_EQ(expected, detail.at(y, x)) << y << " " << x;
        }
      // The scratch plane holds the enlarged row H-2.
      for (int x = 0; x < width - 1; ++x)
        ASSERT_EQ(enlarged(small, height - 2, x, width), up.at(height - 2, x));
      ASSERT_TRUE(up.surroundings_intact() && detail.surroundings_intact());
    }
}

TEST_P(Up2, RefusesToMergeASingleRow) {
  plane small(9, 2, 1), detail(16, 1, 2), up(16, 1, 3), before = detail;
  EXPECT_EQ(-1, gaussin3x3_up2_merge1(small.image(), up.image(), detail.image()));
  EXPECT_TRUE(detail == before);
}

TEST_P(UpChroma, SlicesLeaveTheirLastTwoRows) {
  test_pool pool;
  cnr_handle_t chroma{};
  chroma.pool = pool.workers;
  for (int width : {2, 3, 33, 70})
    for (int height : {2, 3, 7, 17, 39, 40}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height);
      plane small_u = coarse_for(width, height, 1), small_v = coarse_for(width, height, 2);
      plane out_u(width, height, 3), out_v(width, height, 4), before = out_u, before_v = out_v;
      ASSERT_EQ(
          0, pyramid_up2(&chroma, small_u.image(), out_u.image(), small_v.image(), out_v.image()));
      // Each slice alone, as the exported body does it, one after the other.
      plane sliced_u = before, sliced_v = before_v;
      const int step = (height - 1) / 4 & ~1;
      for (int k = 0; k < 4; ++k)
        gaussin3x3_up_pro(small_u.image(), sliced_u.image(), small_v.image(), sliced_v.image(),
                          k * step, k < 3 ? (k + 1) * step : height - 1);
      ASSERT_TRUE(sliced_u == out_u && sliced_v == out_v);
      for (int y = 0; y < height; ++y) {
        bool produced = y >= height - 2;
        for (int k = 0; k < 4; ++k)
          for (int r = k * step; r < (k < 3 ? (k + 1) * step : height - 1) - 2; r += 2)
            produced |= y == r || y == r + 1;
        for (int x = 0; x < width; ++x)
          ASSERT_EQ(
              produced ? enlarged(small_u, std::min(y, height - 2), x, width) : before.at(y, x),
              out_u.at(y, x))
              << y << " " << x;
      }
      if (height == 40) {
        for (int y : {6, 7, 14, 15, 22, 23}) EXPECT_EQ(before.at(y, 0), out_u.at(y, 0));
      }
      ASSERT_TRUE(out_u.surroundings_intact() && out_v.surroundings_intact());
    }
}

TEST_P(UpChroma, OddHeightsStayInsideTheCoarsePlane) {
  for (int width : {2, 3, 40, 75})
    for (int height : {1, 2, 5, 6, 11}) {
      // Twice the coarse height may exceed the fine one by a row, or fall short of it.
      for (int coarse : {(height + 1) / 2, height / 2}) {
        if (coarse < 1) continue;
        SCOPED_TRACE(testing::Message() << width << "x" << height << " from " << coarse);
        plane small = plane(width / 2 + 1, coarse, 6), out_u(width, height, 3), out_v = out_u;
        ASSERT_EQ(0, gaussin3x3_up_odd(small.image(), out_u.image(), small.image(), out_v.image()));
        for (int y = 0; y < height; ++y)
          for (int x = 0; x < width; ++x)
            ASSERT_EQ(enlarged(small, std::min(y, 2 * coarse - 2), x, width), out_u.at(y, x))
                << y << " " << x;
        ASSERT_TRUE(out_u == out_v && out_u.surroundings_intact());
      }
    }
}

TEST_P(UpChroma, PairsCloseWithACopyOfTheLastRow) {
  test_pool pool;
  cnr_handle_t chroma{};
  chroma.pool = pool.workers;
  for (int width : {2, 3, 40, 259, 600})
    for (int height : {2, 3, 8, 21}) {
      SCOPED_TRACE(testing::Message() << width << "x" << height);
      plane small_u = coarse_for(width, height, 1), small_v = coarse_for(width, height, 2);
      plane u(width, height, 0), v(width, height, 0);  // geometry only
      plane stage(2 * width, height, 5), caller(2 * width, height, 6),
          slice(2 * width, height + 1, 7);
      ASSERT_EQ(0, pyramid_up_uv(&chroma, small_u.image(), u.image(), small_v.image(), v.image(),
                                 stage.data()));
      ASSERT_EQ(
          0, gaussin3x3_up(small_u.image(), u.image(), small_v.image(), v.image(), caller.data()));
      ASSERT_TRUE(stage == caller && stage.surroundings_intact());
      // The row kernel itself closes nothing.
      gaussin3x3_up_uv_pro(small_u.image(), u.image(), small_v.image(), v.image(), slice.data(), 0,
                           height);
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          const int row = std::min(y, height - 2);
          ASSERT_EQ(enlarged(small_u, row, x, width), stage.at(y, 2 * x)) << y << " " << x;
          ASSERT_EQ(enlarged(small_v, row, x, width), stage.at(y, 2 * x + 1)) << y << " " << x;
          ASSERT_EQ(enlarged(small_v, y, x, width), slice.at(y, 2 * x + 1)) << y << " " << x;
        }
    }
}

}  // namespace
