// Up-sampling and its merges: the samples that are left alone, repeated or merged twice. The
// formulas are held in tests/frame/stage_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "cnr/exported/pyramid_stages.h"
#include "pyramid/exported/up.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "tests/frame/frame_util.h"
#include "tests/support/forms.h"

using frame_util::canvas;
using frame_util::noisy;
using vorn_test::with_every_form;

namespace {

// small, enlarged to width x height; it is large enough to close nothing.
canvas enlarged(canvas& small, int width, int height) {
  canvas fine = noisy(width, height, 0);
  model::up2(small.plane(), fine.plane());
  return fine;
}

TEST(Up2, LastColumnRepeatsItsNeighbour) {
  with_every_form([] {
    for (int width : {2, 3, 17, 33, 64, 129}) {
      canvas small = noisy(width / 2 + 1, 4, width), out = noisy(width, 8, 0, width + 3);
      ASSERT_EQ(0, gaussin3x3_up2(small.image(), out.image()));
      for (int y = 0; y < 8; ++y) EXPECT_EQ(out.at(y, width - 2), out.at(y, width - 1)) << width;
      EXPECT_EQ(small.at(3, 0), out.at(7, 0));  // below the last coarse row: a copy
    }
  });
}

TEST(Up2, MergeLeavesLastColumnOfMultiplesOf16) {
  with_every_form([] {
    for (int width : {16, 17, 18, 33, 49, 65}) {
      canvas small = noisy(width / 2 + 1, 4, 1), fine = enlarged(small, width, 6);
      canvas detail = noisy(width, 6, 9), out = noisy(width, 6, 10), before(out);
      ASSERT_EQ(0, gaussin3x3_up2_merge(small.image(), detail.image(), out.image()));
      for (int y = 0; y < 6; ++y) {
        const int last = width - 1;
        const int merged = model::merge(fine.at(std::min(y, 4), last), detail.at(y, last));
        EXPECT_EQ(y < 4 && last % 16 == 0 ? before.at(y, last) : merged, out.at(y, last)) << width;
      }
    }
  });
}

TEST(Up2, MergeInPlaceTwiceForOddHeights) {
  with_every_form([] {
    for (int height : {5, 6}) {
      canvas small = noisy(21, height / 2 + 2, 2), fine = enlarged(small, 40, height);
      canvas detail = noisy(40, height, 9), before(detail), up = noisy(40, height, 11);
      ASSERT_EQ(0, gaussin3x3_up2_merge1(small.image(), up.image(), detail.image()));
      const int y = height - 2;
      for (int x = 0; x < 40; ++x) {
        const int u = fine.at(y, x), once = model::merge(u, before.at(y, x));
        ASSERT_EQ(height % 2 ? model::merge(u, once) : once, detail.at(y, x)) << x;
        ASSERT_EQ(model::merge(u, before.at(y + 1, x)), detail.at(y + 1, x)) << x;
      }
      // The scratch plane holds the enlarged row H-2.
      EXPECT_TRUE(std::equal(&up.at(y, 0), &up.at(y, 39), &fine.at(y, 0)));
    }
  });
}

TEST(Up2, RefusesToMergeASingleRow) {
  canvas small = noisy(9, 2, 1), detail = noisy(16, 1, 2), up = noisy(16, 1, 3), before(detail);
  EXPECT_EQ(-1, gaussin3x3_up2_merge1(small.image(), up.image(), detail.image()));
  EXPECT_TRUE(detail.same(before));
}

TEST(UpChroma, SlicesLeaveTheirLastTwoRows) {
  const frame_util::denoiser d(64, 64);
  with_every_form([&] {
    canvas small = noisy(17, 21, 1), fine = enlarged(small, 33, 40);
    canvas out = noisy(33, 40, 3), out_v(out), want(out);
    for (int y = 0; y < 40; ++y)
      if (y >= 24 || y % 8 < 6) std::copy_n(&fine.at(y, 0), 33, &want.at(y, 0));
    std::copy_n(&fine.at(38, 0), 33, &want.at(39, 0));
    pyramid_up2(d.handle->cnr, small.image(), out.image(), small.image(), out_v.image());
    EXPECT_TRUE(out.same(want) && out_v.same(want));
  });
}

}  // namespace
