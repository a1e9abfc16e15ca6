// Down-sampling and detail planes where frames do not get: narrow and overlapping planes, every
// pair of samples. And the formulas, against the model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "cnr/exported/pyramid_stages.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/exported/down.h"
#include "tests/support/canvas.h"
#include "tests/support/forms.h"
#include "ynr/exported/pyramid_stages.h"

namespace {

using namespace vorn_test;

// The raw forms produce a block of eight, then the row's own samples with an open left side.
TEST(Down2, NarrowRowsWriteTheirFirstBlock) {
  with_every_form([] {
    canvas src = noisy(24, 6, 7), block = noisy(8, 3, 8), narrow(block);
    gaussin3x3_down2(src.data(), 24, 6, 24, block.data(), 8, 3, 8);
    gaussin3x3_down2(src.data(), 24, 6, 24, narrow.data(), 5, 3, 8);
    for (int y = 0; y < 3; ++y)
      for (int x = 1; x < 8; ++x) EXPECT_EQ(block.at(y, x), narrow.at(y, x));
    // Row 1 is centred on source row 2; its left neighbours end rows 0, 1 and 2.
    const auto sum = [&](int x) { return src.at(1, x) + 2 * src.at(2, x) + src.at(3, x); };
    EXPECT_EQ((sum(-1) + 2 * sum(0) + sum(1) + 8) >> 4, narrow.at(1, 0));
  });
}

TEST(Down2, StagesStayInsideNarrowPlanes) {
  with_every_form([&] {
    for (int width = 2; width < 16; ++width)
      for (int height : {1, 2, 7, 16}) {
        const int dw = width / 2, dh = (height + 1) / 2;
        canvas src = noisy(width, height, width), in_blocks = noisy(dw, dh + 8, 1);
        gaussin3x3_down2_pro(src.data(), width, height, in_blocks.data(), dw, dh, 0, dh);
        canvas want = noisy(dw, dh, 1), threads(want), caller(want);
        std::copy_n(in_blocks.data(), dw * dh, want.data());
        gaussin3x3_down2(stage_handle()->cnr, src.image(), threads.image());
        gaussin3x3_down2_ynr(stage_handle()->ynr, src.image(), caller.image());
        ASSERT_TRUE(threads.same(want) && caller.same(want)) << width << "x" << height;
      }
  });
}

// Pairs are taken in order, so u may start where uv does.
TEST(Down2, SplitInPlace) {
  with_every_form([] {
    canvas y = noisy(64, 2, 1), uv = noisy(64, 1, 2), v = noisy(32, 1, 0), half(v), source(uv);
    splituv_gaussin3x3_down(uv.data(), uv.data(), v.data(), y.data(), 64, 2, 64, half.data(), 32, 1,
                            32);
    for (int i = 0; i < 32; ++i) {
      EXPECT_EQ(source.at(0, 2 * i), uv.at(0, i));
      EXPECT_EQ(source.at(0, 2 * i + 1), v.at(0, i));
    }
  });
}

// All pairs of samples, in rows long enough for every vector step and with a tail.
TEST(Detail, ReflectsNegativeSums) {
  canvas a = noisy(259, 256, 0), b = noisy(259, 256, 0, 300), sum(a),
         difference = noisy(259, 256, 0, 261);
  canvas want_sum(sum), want_difference(difference);
  for (int y = 0; y < 256; ++y)
    for (int x = 0; x < 259; ++x) {
      const int d = x & 255;
      a.at(y, x) = static_cast<uint8_t>(y);
      b.at(y, x) = static_cast<uint8_t>(d);
      want_difference.at(y, x) = static_cast<uint8_t>(std::min(std::abs(y - d + 128), 255));
      want_sum.at(y, x) = static_cast<uint8_t>(std::min(std::abs(y + d - 128), 255));
    }
  with_every_form([&] {
    canvas got(difference), in_place(a);
    ImgSubImg_add128_u8(a.image(), b.image(), got.image());
    ImgAddDiff_sub128_u8(a.image(), b.image(), sum.image());
    ImgAddDiff_sub128_u8(in_place.image(), b.image(), in_place.image());
    EXPECT_TRUE(got.same(want_difference));
    EXPECT_TRUE(sum.same(want_sum) && in_place.same(want_sum));
  });
}

TEST(Down2, FollowsTheModel) {
  trials(100, 150, [](random_source& random) {
    const int dw = random.between(8, 70), dh = random.between(1, 30);
    const int w = 2 * dw + random.between(0, 1), h = 2 * dh - random.between(0, 1);
    const int stride = w + random.between(0, 20), dst_stride = dw + random.between(0, 20);
    canvas src = painted(w, h, stride, random), dst(dw, dh, dst_stride, random), want(dst);
    model::down2(src.plane(), want.plane());
    canvas by_image(dst), by_thread(dst), rows(dst), want_rows(dst);
    const int begin = random.between(0, dh), end = random.between(begin, dh);
    for (int y = begin; y < end; ++y)
      std::copy_n(&want.plane().at(y, 0), dw, &want_rows.plane().at(y, 0));
    gaussin3x3_down2_ynr_pro(src.data(), w, h, stride, rows.data(), dw, dh, dst_stride, begin, end);
    EXPECT_TRUE(rows.same(want_rows)) << "rows " << numbers({w, h, begin, end});
    gaussin3x3_down2(src.data(), w, h, stride, dst.data(), dw, dh, dst_stride);
    gaussin3x3_down2_ynr(stage_handle()->ynr, src.image(), by_image.image());
    gaussin3x3_down2_ynr_thread(stage_handle()->ynr, src.data(), w, h, stride, by_thread.data(), dw,
                                dh, dst_stride);
    EXPECT_TRUE(dst.same(want)) << numbers({w, h, dw, dh});
    EXPECT_TRUE(by_image.same(want)) << numbers({w, h, dw, dh});
    EXPECT_TRUE(by_thread.same(want)) << numbers({w, h, dw, dh});
  });
}

TEST(Down2, ThreePlanesFollowTheModel) {
  trials(200, 100, [](random_source& random) {
    const int dw = random.between(8, 70), dh = random.between(1, 30);
    const int w = 2 * dw + random.between(0, 1), h = 2 * dh - random.between(0, 1);
    canvas y = painted(w, h, w, random), u = painted(w, h, w, random), v = painted(w, h, w, random);
    canvas dst(dw, dh, dw, random), want_y(dst), want_u(dst), want_v(dst);
    model::down2(y.plane(), want_y.plane());
    model::down2(u.plane(), want_u.plane());
    model::down2(v.plane(), want_v.plane());
    for (int way = 0; way < 3; ++way) {
      canvas a(dst), b(dst), c(dst);
      if (way == 0)
        pyramid_down_yuv(stage_handle()->cnr, y.image(), a.image(), u.image(), b.image(), v.image(),
                         c.image());
      else if (way == 1)
        gaussin3x3_down2_yuv_thread(stage_handle()->cnr, y.data(), w, h, a.data(), dw, dh, u.data(),
                                    v.data(), b.data(), c.data());
      else
        gaussin3x3_down_yuv(y.data(), w, h, a.data(), dw, dh, u.data(), v.data(), b.data(),
                            c.data());
      EXPECT_TRUE(a.same(want_y) && b.same(want_u) && c.same(want_v)) << numbers({way, w, h});
    }
    canvas single(dst);
    pyramid_down2(stage_handle()->cnr, y.image(), single.image());
    EXPECT_TRUE(single.same(want_y)) << numbers({w, h});
  });
}

TEST(Down2, SplitFollowsTheModel) {
  trials(300, 60, [](random_source& random) {
    const int dw = random.between(1, 60), dh = random.between(1, 30);
    const int w = 2 * dw - random.between(0, 1), h = 2 * dh - random.between(0, 1);
    const int stride = w + random.between(0, 9);
    canvas luma = painted(w, h, stride, random), uv = painted(w, dh, w, random);
    canvas u(dw, dh, dw, random), v(u), y(dw, dh, dw + random.between(0, 9), random);
    canvas want_u(u), want_v(v), want_y(y), u4(u), v4(v), y4(y);
    model::plane luma_plane = luma.plane();
    model::split_and_down(uv.data(), want_u.plane(), want_v.plane(), luma_plane, want_y.plane());
    splituv_gaussin3x3_down(uv.data(), u.data(), v.data(), luma.data(), w, h, stride, y.data(), dw,
                            dh, y.image()->stride[0]);
    splituv_gaussin3x3_down_thread(stage_handle()->cnr, uv.data(), u4.data(), v4.data(),
                                   luma.data(), w, h, stride, y4.data(), dw, dh,
                                   y4.image()->stride[0]);
    EXPECT_TRUE(u.same(want_u) && v.same(want_v) && y.same(want_y)) << numbers({w, h});
    EXPECT_TRUE(u4.same(want_u) && v4.same(want_v) && y4.same(want_y)) << numbers({w, h});
  });
}

TEST(Detail, FollowsTheModel) {
  trials(700, 60, [](random_source& random) {
    const int w = random.between(1, 100), h = random.between(1, 9);
    canvas a = painted(w, h, w + random.between(0, 9), random);
    canvas b = painted(w, h, w + random.between(0, 9), random);
    canvas out(w, h, w + random.between(0, 9), random), want(out), in_place(a), want_in_place(a);
    model::subtract_add128(a.plane(), b.plane(), want.plane());
    ImgSubImg_add128_u8(a.image(), b.image(), out.image());
    EXPECT_TRUE(out.same(want)) << numbers({w, h});
    model::add_sub128(a.plane(), b.plane(), want_in_place.plane());
    ImgAddDiff_sub128_u8(in_place.image(), b.image(), in_place.image());
    EXPECT_TRUE(in_place.same(want_in_place)) << numbers({w, h});
  });
}

}  // namespace
