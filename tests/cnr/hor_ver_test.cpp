#include "cnr/hor_ver.h"

#include <climits>
#include <cmath>
#include <limits>

#include "cnr/exported/hor_ver.h"
#include "cnr/kernels/chroma_kernels.h"
#include "runtime/reciprocal.h"
#include "tests/support/level.h"

namespace {

using namespace vorn_test;

using bytes = std::vector<uint8_t>;

int dither_at(int index) {
  return vorn::chroma_dither().dither[index & 8191];
}

TEST(CnrTables, RangeWeightsFollowTheFactor) {
  uint8_t weights[vorn::kRangeWeights];
  EXPECT_EQ(vorn::make_range_weights(1.0f, weights), 2);
  EXPECT_EQ(weights[0], 255);
  EXPECT_EQ(weights[1], 108);  // 255 * 0.75^3 + 0.5 = 108.08
  EXPECT_EQ(weights[2], 0);
  EXPECT_EQ(vorn::make_range_weights(1.0f / 400, weights), 38);
  EXPECT_EQ(weights[20], 108);
  EXPECT_EQ(vorn::make_range_weights(0.0f, weights), 512);
  EXPECT_EQ(weights[511], 255);
  EXPECT_EQ(vorn::make_range_weights(std::numeric_limits<float>::infinity(), weights), 0);
  EXPECT_EQ(weights[0], 0);
}

TEST(CnrTables, ReciprocalsEndInAFlatTail) {
  const int64_t* table = vorn::chroma_mask_reciprocals();
  EXPECT_EQ(table[0], 0);
  EXPECT_EQ(table[3], 349525);
  EXPECT_EQ(table[16], 65536);
  EXPECT_EQ(table[4092], 256);
  EXPECT_EQ(table[4095], 256);
}

TEST(CnrTables, DitherIsBiasedTowardsNone) {
  int count[3] = {};
  for (int i = 0; i < vorn::kDitherEntries; ++i) ++count[dither_at(i) + 1];
  EXPECT_NEAR(count[0], 2048, 150);
  EXPECT_NEAR(count[1], 4096, 150);
  EXPECT_NEAR(count[2], 2048, 150);
  for (int i = 0; i < vorn::kDitherSlack; ++i)
    EXPECT_EQ(vorn::chroma_dither().dither[vorn::kDitherEntries + i], dither_at(i));
}

TEST(HorVer, NothingToAverageLeavesTheInput) {
  level image(37, 19);
  image.fill(1, 128);
  const bytes u = image.src_u.samples(), v = image.src_v.samples();
  const _tag_cnr_param cases[] = {
      chroma_param(20, 0, 2, 0),
      chroma_param(20, 0, 2, -1),
      chroma_param(20, -6, 2, 0),
      chroma_param(20, 6, 0, 0),
      chroma_param(20, 6, -2, -1),
      chroma_param(0, 18, 2, -1),  // a range factor of 0 has no weights
  };
  for (const _tag_cnr_param& param : cases) {
    for (auto* stage : {reduce_color_noise_hor_thread, reduce_color_noise_ver_thread}) {
      image.dst_u.set(bytes(u.size(), 0xEE));
      EXPECT_EQ(image.run(stage, param), 0);
      EXPECT_EQ(image.dst_u.samples(), u);
      EXPECT_EQ(image.dst_v.samples(), v);
    }
  }
}

// Kept on purpose: row -1 of the offsets is the last dither entry. The expected index is spelled
// out here.
TEST(HorVer, FirstRowDither) {
  level image(9, 1);
  for (int x = 0; x < 9; ++x) image.src_u.at(0, x) = static_cast<uint8_t>(100 + x % 2);
  image.run(reduce_color_noise_hor_thread, chroma_param(1, 1, 1, -1));
  for (int x = 1; x < 8; x += 2) {
    const int n = dither_at(dither_at(8191) + 1 + x);
    EXPECT_EQ(image.dst_u.at(0, x), (47456 + 118 * (n + 1)) / 472) << x;
  }
}

// Kept on purpose: distances are cut to 16 bits and may wrap to nothing, products wrap in 32.
TEST(HorVer, ExtremeEdges) {
  // Distance 1 times the edge, over 8, cut to 16 bits: 0, -32768, 0, 0; each weighs 255.
  for (int edge : {INT_MIN, 262144, 524288, INT_MIN + 7}) {
    level image(2, 1);
    image.src_u.set({100, 101});
    _tag_cnr_param param = chroma_param(1, 1, 1, 0);
    param.color_edge_u = edge;
    image.run(reduce_color_noise_hor_thread, param);
    const int n = dither_at(vorn::chroma_dither().offset[0] + 1);
    EXPECT_EQ(image.dst_u.at(0, 0), (51355 + 127 * (n + 2)) / 511) << edge;
  }
}

// Quotients by `sum` that a product with `scale` gets wrong, at every quotient boundary.
int wrong_quotients(int sum, float scale) {
  const auto quotient = [scale](int product) {
    return static_cast<int>(static_cast<float>(product) * scale);
  };
  int wrong = quotient(256 * sum - 1) != 255;
  for (int q = 1; q < 256; ++q)
    wrong += (quotient(q * sum - 1) != q - 1) + (quotient(q * sum) != q);
  return wrong;
}

// What the kernels divide by, for every sum that they can meet.
TEST(HorVer, ReciprocalDivisionIsExact) {
  for (int sum = 256; sum <= 256 + 255 * vorn::kMaxFastTaps; ++sum)
    ASSERT_EQ(wrong_quotients(sum, vorn::kQuotientScale / static_cast<float>(sum)), 0) << sum;
}

// What the NEON forms scale by: scale / sum from the estimate in one step.
float raised_reciprocal(float scale, int sum) {
  const float x = static_cast<float>(sum), e = vorn::reciprocal_estimate(x);
  float h = std::fma(-x, e, scale);
  h = std::fma(h, h, h);
  return std::fma(e, h, e);
}

// Up to 79 taps in single precision.
TEST(HorVer, RaisedReciprocalIsExactToo) {
  for (int sum = 256; sum <= 256 + 255 * 79; ++sum)
    ASSERT_EQ(wrong_quotients(sum, raised_reciprocal(vorn::kQuotientScale, sum)), 0) << sum;
}

// Up to seven taps as the upper half of a whole product.
TEST(HorVer, WholeReciprocalIsExactToo) {
  for (int sum = 256; sum <= 2205; ++sum) {
    const auto scale = static_cast<int64_t>(raised_reciprocal(1.0f + 0x1p-20f, sum) * 0x1p31f);
    int wrong = 0;
    for (int q = 1; q <= 256; ++q) {
      wrong += (q * sum - 1) * scale >> 31 != q - 1;
      if (q < 256) wrong += q * sum * scale >> 31 != q;
    }
    ASSERT_EQ(wrong, 0) << sum;
  }
}

// Or the comparisons of forms would hold the plain rule against itself.
TEST(HorVer, EveryFormHasItsOwnKernel) {
  const auto plain = vorn::chroma_kernels_of(vorn::kernel_form::scalar).filter;
  with_every_form([&] {
    const bool is_plain = vorn::active_kernel_form() == vorn::kernel_form::scalar;
    EXPECT_EQ(vorn::active_chroma_kernels().filter == plain, is_plain);
  });
}

// Not called by the drivers: fine fixed point, no dither, the interleaved plane alone.
TEST(HorVer, VermergeWritesTheInterleavedPlaneOnly) {
  level image(2, 4);
  image.src_u.set({100, 128, 102, 128, 100, 128, 102, 128});
  std::vector<uint8_t> uv(16, 0xEE);
  EXPECT_EQ(image.run(reduce_color_noise_vermerge_thread, chroma_param(1000, 1, 1, 0), uv.data()),
            0);
  // Row 0: (32768 * 100 + 255 * 102 + 1024) >> 11 = 1613; 65536 * 1613 rounded: 101.
  EXPECT_EQ(uv[0], 101);
  EXPECT_EQ(uv[1], 128 + 1);  // 4227200 >> 11 = 2064 over 16: the lost weight bits show, 129
  EXPECT_EQ(image.dst_u.samples(), bytes(8, 128));
}

TEST(HorVer, FollowsTheModel) {
  trials(1200, 600, [](random_source& random) {
    // Now and then past the ends of the offset table (rows) and of the dither table (columns).
    const int shape = random.between(0, 50);
    // And wide windows inside of wider levels.
    const bool wide = shape > 42;
    const int w = shape == 0 ? random.between(6200, 8400)
                  : wide     ? random.between(150, 330)
                             : random.between(1, shape == 1 ? 9 : 150);
    const int h = shape == 1 ? 2060 : random.between(1, shape == 0 ? 3 : shape % 4 ? 40 : 130);
    level in(w, h, random);
    _tag_cnr_param p = random_param(random, any_strength(random));
    if (wide) {
      p = random_param(random, strength::everyday);
      p.smooth_step = random.between(2, 4);
      p.smooth_radius = random.between(60, 110);
    }
    canvas want_u(in.dst_u), want_v(in.dst_v);
    for (auto along : {model::direction::horizontal, model::direction::vertical}) {
      model::filter(along, in.guide.plane(), in.src_u.plane(), in.src_v.plane(), want_u.plane(),
                    want_v.plane(), of(p));
      auto* stage = along == model::direction::horizontal ? reduce_color_noise_hor_thread
                                                          : reduce_color_noise_ver_thread;
      in.run(stage, p);
      EXPECT_TRUE(in.dst_u.same(want_u) && in.dst_v.same(want_v))
          << (along == model::direction::horizontal ? "hor " : "ver ")
          << numbers({w, h, p.smooth_radius, p.smooth_step, p.color_edge_u, p.color_edge_v,
                      p.level_mode})
          << " coefficient " << p.range_coef[0];
    }
  });
}

TEST(HorVer, VermergeFollowsTheModel) {
  trials(1300, 60, [](random_source& random) {
    const int w = random.between(1, 70), h = random.between(1, 40);
    level in(w, h, random);
    _tag_cnr_param p = random_param(random, any_strength(random));
    canvas uv(2 * w, h, 2 * w, random), want(uv);
    model::filter_interleaved(in.guide.plane(), in.src_u.plane(), in.src_v.plane(), want.data(),
                              of(p));
    in.run(reduce_color_noise_vermerge_thread, p, uv.data());
    EXPECT_TRUE(uv.same(want)) << numbers({w, h, p.smooth_radius, p.smooth_step});
  });
}

}  // namespace
