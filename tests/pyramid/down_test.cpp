// Down-sampling and detail planes where frames do not get: narrow and overlapping planes, every
// pair of samples. The formulas are held in tests/frame/stage_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "cnr/exported/pyramid_stages.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/exported/down.h"
#include "tests/frame/frame_util.h"
#include "tests/support/forms.h"
#include "ynr/exported/pyramid_stages.h"

using frame_util::canvas;
using frame_util::noisy;
using vorn_test::with_every_form;

namespace {

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
  const frame_util::denoiser d(64, 64);
  with_every_form([&] {
    for (int width = 2; width < 16; ++width)
      for (int height : {1, 2, 7, 16}) {
        const int dw = width / 2, dh = (height + 1) / 2;
        canvas src = noisy(width, height, width), in_blocks = noisy(dw, dh + 8, 1);
        gaussin3x3_down2_pro(src.data(), width, height, in_blocks.data(), dw, dh, 0, dh);
        canvas want = noisy(dw, dh, 1), threads(want), caller(want);
        std::copy_n(in_blocks.data(), dw * dh, want.data());
        gaussin3x3_down2(d.handle->cnr, src.image(), threads.image());
        gaussin3x3_down2_ynr(d.handle->ynr, src.image(), caller.image());
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

}  // namespace
