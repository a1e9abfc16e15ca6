// The full-resolution blurs: planes of one row or column, in place. And the formula,
// against the model.
#include "pyramid/exported/blur3x3.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "cnr/exported/pyramid_stages.h"
#include "tests/support/canvas.h"
#include "tests/support/forms.h"

namespace {

using namespace vorn_test;

TEST(Blur, InPlaceEachRowTakesTheBlurredRowAbove) {
  const canvas image = noisy(41, 6, 5);
  canvas want(image);
  for (int y = 0; y < 6; ++y) {
    canvas blurred(want);
    model::blur(want.plane(), blurred.plane());
    std::copy_n(&blurred.at(y, 0), 41, &want.at(y, 0));
  }
  with_every_form([&] {
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

TEST(Blur, FollowsTheModel) {
  trials(400, 80, [](random_source& random) {
    const int w = random.between(2, 70), h = random.between(2, 30);
    canvas src = painted(w, h, w + random.between(0, 20), random);
    canvas dst(w, h, w + random.between(0, 20), random), want(dst);
    model::blur(src.plane(), want.plane());
    EXPECT_EQ(GaussianBlur3x3(src.image(), dst.image()), 0);
    EXPECT_TRUE(dst.same(want)) << numbers({w, h});

    canvas u = painted(w, h, w, random), v = painted(w, h, w, random);
    canvas out(w, h, w, random), want_u(out), want_v(out);
    model::blur(u.plane(), want_u.plane());
    model::blur(v.plane(), want_v.plane());
    canvas a(out), b(out), c(out), d(out);
    pyramid_uv(stage_handle()->cnr, u.image(), v.image(), a.image(), b.image());
    gaussin3x3_uv_thread(stage_handle()->cnr, w, h, w, h, u.data(), v.data(), c.data(), d.data());
    EXPECT_TRUE(a.same(want_u) && b.same(want_v)) << numbers({w, h});
    EXPECT_TRUE(c.same(want_u) && d.same(want_v)) << numbers({w, h});
  });
}

}  // namespace
