// Up-sampling and its merges: the samples that are left alone, repeated or merged twice. And the
// formulas, against the model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "cnr/exported/pyramid_stages.h"
#include "pyramid/exported/up.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "tests/support/canvas.h"
#include "tests/support/forms.h"

namespace {

using namespace vorn_test;

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
  with_every_form([&] {
    canvas small = noisy(17, 21, 1), fine = enlarged(small, 33, 40);
    canvas out = noisy(33, 40, 3), out_v(out), want(out);
    for (int y = 0; y < 40; ++y)
      if (y >= 24 || y % 8 < 6) std::copy_n(&fine.at(y, 0), 33, &want.at(y, 0));
    std::copy_n(&fine.at(38, 0), 33, &want.at(39, 0));
    pyramid_up2(stage_handle()->cnr, small.image(), out.image(), small.image(), out_v.image());
    EXPECT_TRUE(out.same(want) && out_v.same(want));
  });
}

TEST(Up2, FollowsTheModel) {
  trials(500, 250, [](random_source& random) {
    const int w = random.one_in(4) ? 16 * random.between(1, 4) + 1 : random.between(2, 80);
    const int h = random.between(2, 30);
    const int sw = (w + random.between(0, 1)) / 2, sh = std::max(2, h / 2 + random.between(0, 1));
    canvas small = painted(sw, sh, sw + random.between(0, 9), random);
    canvas out(w, h, w + random.between(0, 20), random), want(out);
    if (h <= 2 * sh + 1) {
      model::up2(small.plane(), want.plane());
      gaussin3x3_up2(small.image(), out.image());
      EXPECT_TRUE(out.same(want)) << "up2 " << numbers({w, h, sw, sh});
    }
    canvas detail = painted(w, h, out.image()->stride[0], random), merged(out), want_merged(out);
    model::up2_merge(small.plane(), detail.plane(), want_merged.plane());
    gaussin3x3_up2_merge(small.image(), detail.image(), merged.image());
    EXPECT_TRUE(merged.same(want_merged)) << "merge " << numbers({w, h, sw, sh});

    // In place, U and V on two workers.
    canvas small_v = painted(sw, sh, sw, random), detail_v = painted(w, h, w, random);
    canvas up(out), up_v(w, h, w, random);
    canvas want_up(up), want_up_v(up_v), want_detail(detail), want_detail_v(detail_v);
    model::up2_merge1(small.plane(), want_up.plane(), want_detail.plane());
    model::up2_merge1(small_v.plane(), want_up_v.plane(), want_detail_v.plane());
    canvas alone_up(up), alone(detail);
    gaussin3x3_up2_merge1_thread(stage_handle()->cnr, small.image(), up.image(), detail.image(),
                                 small_v.image(), up_v.image(), detail_v.image());
    gaussin3x3_up2_merge1(small.image(), alone_up.image(), alone.image());
    EXPECT_TRUE(detail.same(want_detail) && detail_v.same(want_detail_v))
        << "merge1 " << numbers({w, h, sw, sh});
    EXPECT_TRUE(alone.same(want_detail)) << "merge1 " << numbers({w, h, sw, sh});
    EXPECT_TRUE(alone_up.same(want_up)) << "merge1 scratch " << numbers({w, h, sw, sh});
  });
}

TEST(UpChroma, FollowsTheModel) {
  trials(600, 250, [](random_source& random) {
    const int w = random.one_in(9) ? random.between(240, 600) : random.between(2, 80);
    const int h = random.between(2, 50), sw = w / 2, sh = (h + random.between(0, 1)) / 2;
    canvas u = painted(sw, sh, sw, random), v = painted(sw, sh, sw, random);
    canvas out(w, h, w, random), want_u(out), want_v(out), a(out), b(out), c(out), d(out);
    model::up_sliced(u.plane(), want_u.plane());
    model::up_sliced(v.plane(), want_v.plane());
    pyramid_up2(stage_handle()->cnr, u.image(), a.image(), v.image(), b.image());
    EXPECT_TRUE(a.same(want_u) && b.same(want_v)) << "slices " << numbers({w, h});

    const int begin = random.between(0, h / 2 - 1) * 2, end = random.between(begin, h - 1);
    canvas want_rows(out), rows(out), rows_v(out);
    model::up_rows(u.plane(), want_rows.plane(), begin, end);
    gaussin3x3_up_pro(u.image(), rows.image(), v.image(), rows_v.image(), begin, end);
    EXPECT_TRUE(rows.same(want_rows)) << "one slice " << numbers({w, h, begin, end});

    canvas want_odd(out), want_odd_v(out);
    model::up_odd(u.plane(), want_odd.plane());
    model::up_odd(v.plane(), want_odd_v.plane());
    gaussin3x3_up_odd(u.image(), c.image(), v.image(), d.image());
    EXPECT_TRUE(c.same(want_odd) && d.same(want_odd_v)) << "odd " << numbers({w, h});

    canvas uv(2 * w, h, 2 * w, random), want_uv(uv), single(uv);
    model::up_interleaved(u.plane(), v.plane(), w, h, want_uv.data());
    pyramid_up_uv(stage_handle()->cnr, u.image(), a.image(), v.image(), b.image(), uv.data());
    EXPECT_TRUE(uv.same(want_uv)) << "interleaved " << numbers({w, h});
    EXPECT_EQ(gaussin3x3_up(u.image(), a.image(), v.image(), b.image(), single.data()), 0);
    EXPECT_TRUE(single.same(want_uv)) << "interleaved, one thread " << numbers({w, h});

    // The row kernel itself closes nothing.
    canvas taller(2 * w, h + 1, 2 * w, random), slice(uv), want_slice(uv);
    model::up_interleaved(u.plane(), v.plane(), w, h + 1, taller.data());
    std::copy_n(taller.data(), 2 * w * (h & ~1), want_slice.data());
    gaussin3x3_up_uv_pro(u.image(), a.image(), v.image(), b.image(), slice.data(), 0, h & ~1);
    EXPECT_TRUE(slice.same(want_slice)) << "pairs of rows " << numbers({w, h});
  });
}

}  // namespace
