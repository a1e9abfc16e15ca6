#include "cnr/hor_ver.h"

#include <array>
#include <climits>
#include <limits>

#include "cnr/chroma_kernels.h"
#include "tests/cnr/level.h"

namespace {

using vorn_test::level;
using vorn_test::tuning;
using vorn_test::with_every_form;

int dither_at(int index) {
  return vorn::chroma_dither().dither[index & 8191];
}

// Columns (rows, for the vertical pass) whose value reaches the pixel at `position` of a line of
// eight pixels.
std::vector<int> columns_that_reach(int position, bool vertical, _tag_cnr_param param) {
  std::vector<int> found;
  for (int c = 0; c < 8; ++c) {
    level line(vertical ? 1 : 8, vertical ? 8 : 1);
    line.src_u[c] = 228;
    vertical ? line.vertical(param) : line.horizontal(param);
    if (c != position && line.dst_u[position] != 128) found.push_back(c);
  }
  return found;
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
  const int64_t* table = vorn::mask_reciprocals();
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
  const _tag_cnr_param cases[] = {
      tuning(20, 0, 2, 0),   tuning(20, 0, 2, -1), tuning(20, -6, 2, 0), tuning(20, 6, 0, 0),
      tuning(20, 6, -2, -1), tuning(0, 18, 2, -1),  // a range factor of 0 has no weights
  };
  for (const _tag_cnr_param& param : cases) {
    image.horizontal(param);
    EXPECT_EQ(image.dst_u, image.src_u);
    EXPECT_EQ(image.dst_v, image.src_v);
    image.vertical(param);
    EXPECT_EQ(image.dst_u, image.src_u);
    EXPECT_EQ(image.dst_v, image.src_v);
  }
}

TEST(HorVer, UniformPatchStays) {
  with_every_form([] {
    for (int value : {0, 1, 127, 254, 255}) {
      level image(160, 40);
      std::fill(image.src_u.begin(), image.src_u.end(), static_cast<uint8_t>(value));
      std::fill(image.src_v.begin(), image.src_v.end(), static_cast<uint8_t>(255 - value));
      for (int mode : {-1, 0}) {
        image.horizontal(tuning(20, 18, 2, mode));
        EXPECT_EQ(image.dst_u, image.src_u);
        image.vertical(tuning(20, 18, 2, mode));
        EXPECT_EQ(image.dst_v, image.src_v);
      }
    }
  });
}

// The grid starts at the left (upper) border and ends at the right (lower) one; the centre is
// skipped when the grid hits it.
TEST(HorVer, TapGridStartsAtTheNearBorder) {
  using columns = std::vector<int>;
  for (bool vertical : {false, true}) {
    const _tag_cnr_param wide = tuning(200, 3, 2, 0);
    EXPECT_EQ(columns_that_reach(0, vertical, wide), (columns{2}));
    EXPECT_EQ(columns_that_reach(1, vertical, wide), (columns{0, 2, 4}));
    EXPECT_EQ(columns_that_reach(2, vertical, wide), (columns{0, 4}));
    EXPECT_EQ(columns_that_reach(3, vertical, wide), (columns{0, 2, 4, 6}));
    EXPECT_EQ(columns_that_reach(6, vertical, wide), (columns{3, 5, 7}));
    EXPECT_EQ(columns_that_reach(7, vertical, wide), (columns{4, 6}));
    EXPECT_EQ(columns_that_reach(5, vertical, tuning(200, 100, 4, 0)), (columns{0, 4}));
  }
}

// Two columns 100 and 101: the neighbour weighs 108 anywhere in the level, so that a right pixel
// has (36656 + 91 * (n + m + 2)) / 364 and shows n. Tall enough for the offsets to wrap.
TEST(HorVer, RowsStartInTheDitherAtTheirOffset) {
  with_every_form([] {
    level image(2, 2100);
    for (size_t i = 0; i < image.src_u.size(); ++i)
      image.src_u[i] = static_cast<uint8_t>(100 + i % 2);
    for (int mode : {-1, 0}) {
      image.horizontal(tuning(1, 1, 1, mode));
      for (int y = 0; y < image.height; ++y) {
        const int offset =
            y + mode < 0 ? dither_at(8191) : vorn::chroma_dither().offset[(y + mode) & 2047];
        const int n = dither_at(offset + 1 + 1);
        ASSERT_EQ(image.dst_u[2 * y + 1], (36656 + 91 * (n + mode + 2)) / 364) << y;
      }
    }
  });
}

// Kept on purpose: row -1 of the offsets is the last dither entry. The expected index is spelled
// out here.
TEST(HorVer, FirstRowDither) {
  level image(9, 1);
  for (int x = 0; x < 9; ++x) image.src_u[x] = static_cast<uint8_t>(100 + x % 2);
  image.horizontal(tuning(1, 1, 1, -1));
  for (int x = 1; x < 8; x += 2) {
    const int n = dither_at(dither_at(8191) + 1 + x);
    EXPECT_EQ(image.dst_u[x], (47456 + 118 * (n + 1)) / 472) << x;
  }
}

// A line along the vertical pass adds the mode to the offset's value. Wide enough for the dither to
// wrap.
TEST(HorVer, VerticalPassAddsTheModeToTheOffsetsValue) {
  with_every_form([] {
    level image(9000, 3);
    for (size_t i = 0; i < image.src_u.size(); ++i)
      image.src_u[i] = static_cast<uint8_t>(100 + i / 9000 % 2);
    for (int mode : {-1, 0}) {
      image.vertical(tuning(1, 1, 1, mode));
      for (int x = 0; x < image.width; ++x) {
        const int n = dither_at(vorn::chroma_dither().offset[1] + mode + 1 + x);
        ASSERT_EQ(image.dst_u[9000 + x], (47456 + 118 * (n + mode + 2)) / 472) << x;
      }
    }
  });
}

// Kept on purpose: distances are cut to 16 bits and may wrap to nothing, products wrap in 32.
TEST(HorVer, ExtremeEdges) {
  // Distance 1 times the edge, over 8, cut to 16 bits: 0, -32768, 0, 0; each weighs 255.
  for (int edge : {INT_MIN, 262144, 524288, INT_MIN + 7}) {
    level image(2, 1);
    image.src_u = {100, 101};
    image.images[1].plane[0] = image.src_u.data();
    _tag_cnr_param param = tuning(1, 1, 1, 0);
    param.color_edge_u = edge;
    image.horizontal(param);
    const int n = dither_at(vorn::chroma_dither().offset[0] + 1);
    EXPECT_EQ(image.dst_u[0], (51355 + 127 * (n + 2)) / 511) << edge;
  }
}

TEST(HorVer, CornersReachFurtherThanTheCentre) {
  // Index of a distance of 3: 3 at the centre, (3 * 76 + 64) / 128 = 2 in a corner; with factor 1.5
  // weights end at 3.
  level image(101, 1);
  for (int x = 0; x < 101; ++x) image.src_u[x] = static_cast<uint8_t>(100 + 3 * (x % 2));
  image.horizontal(tuning(1.5f, 1, 1, 0));
  EXPECT_EQ(image.dst_u[50], 100);
  EXPECT_EQ(image.dst_u[51], 103);
  int moved = 0;
  for (int x = 1; x < 7; x += 2) moved += image.dst_u[x] != 103;
  EXPECT_GT(moved, 0);
}

// What the kernels divide by, at every quotient boundary of every sum that they can meet.
TEST(HorVer, ReciprocalDivisionIsExact) {
  for (int sum = 256; sum <= 256 + 255 * vorn::kMaxFastTaps; ++sum) {
    const float scale = vorn::kQuotientScale / static_cast<float>(sum);
    int wrong = 0;
    for (int q = 1; q < 256; ++q) {
      wrong += static_cast<int>(static_cast<float>(q * sum - 1) * scale) != q - 1;
      wrong += static_cast<int>(static_cast<float>(q * sum) * scale) != q;
    }
    wrong += static_cast<int>(static_cast<float>(256 * sum - 1) * scale) != 255;
    ASSERT_EQ(wrong, 0) << sum;
  }
}

// Or the comparison below would hold the plain rule against itself.
TEST(HorVer, EveryFormHasItsOwnKernel) {
  const auto plain = vorn::chroma_kernels_of(vorn::kernel_form::scalar).filter;
  with_every_form([&] {
    const bool is_plain = vorn::active_kernel_form() == vorn::kernel_form::scalar;
    EXPECT_EQ(vorn::active_chroma_kernels().filter == plain, is_plain);
  });
}

// Every form against the plain rule, over sizes, windows and tunings: with weight tables of all
// lengths, edges inside and outside of what 16 bits hold, more taps than the fast forms take.
TEST(HorVer, FormsAgreeWithThePlainRule) {
  struct sizes {
    int width, height;
  };
  const sizes shapes[] = {{1, 1},  {7, 5},   {15, 70},  {16, 16}, {33, 20}, {40, 9},
                          {63, 3}, {64, 33}, {100, 66}, {131, 7}, {257, 12}};
  const float factors[] = {1, 7, 15, 16, 20, 31, 32, 33, 63, 64, 100, 127, 128, 200, 300};
  const int edges[] = {0, 1, 7, 8, 9, 24, 25, 52, 53, 255, 256, 1000, -3, INT_MAX, INT_MIN};
  std::mt19937 engine(7);
  const auto pick = [&](const auto& list) { return list[engine() % std::size(list)]; };
  const int trials = 260;
  for (int trial = 0; trial < trials; ++trial) {
    const sizes shape = pick(shapes);
    level image(shape.width, shape.height);
    image.fill(trial, std::array<int, 4>{3, 12, 60, 128}[trial % 4]);
    _tag_cnr_param param = tuning(pick(factors), 1 + engine() % 70, 1 + engine() % 5,
                                  trial % 16 ? -static_cast<int>(trial / 4 % 2) : 5);
    if (trial % 3 == 0) param.smooth_radius = 3, param.smooth_step = 2;
    param.color_edge_u = trial % 4 ? std::array<int, 3>{8, 9, 13}[engine() % 3] : pick(edges);
    param.color_edge_v = trial % 5 ? std::array<int, 3>{9, 8, 20}[engine() % 3] : pick(edges);
    const auto both = [&](std::vector<uint8_t>* out) {
      image.horizontal(param);
      *out = image.dst_u;
      out->insert(out->end(), image.dst_v.begin(), image.dst_v.end());
      image.vertical(param);
      out->insert(out->end(), image.dst_u.begin(), image.dst_u.end());
      out->insert(out->end(), image.dst_v.begin(), image.dst_v.end());
    };
    const vorn::kernel_form before = vorn::active_kernel_form();
    std::vector<uint8_t> plain, fast;
    ASSERT_TRUE(vorn::use_kernel_form(vorn::kernel_form::scalar));
    both(&plain);
    vorn::use_kernel_form(before);
    with_every_form([&] {
      both(&fast);
      ASSERT_TRUE(fast == plain) << "trial " << trial << " " << shape.width << "x" << shape.height
                                 << " radius " << param.smooth_radius << " step "
                                 << param.smooth_step << " edges " << param.color_edge_u << " "
                                 << param.color_edge_v << " mode " << param.level_mode << " coef "
                                 << param.range_coef[0];
    });
    if (HasFatalFailure()) return;
  }
}

// Not called by the drivers: fine fixed point, no dither, the interleaved plane alone.
TEST(HorVer, VermergeWritesTheInterleavedPlaneOnly) {
  vorn_test::pool_handle workers;
  level image(2, 4);
  image.src_u = {100, 128, 102, 128, 100, 128, 102, 128};
  image.images[1].plane[0] = image.src_u.data();
  std::vector<uint8_t> uv(16, 0xEE);
  _tag_cnr_param param = tuning(1000, 1, 1, 0);
  auto* im = image.images;
  EXPECT_EQ(reduce_color_noise_vermerge_thread(&workers.handle, im, im + 1, im + 2, im + 3, im + 4,
                                               &param, uv.data()),
            0);
  // Row 0: (32768 * 100 + 255 * 102 + 1024) >> 11 = 1613; 65536 * 1613 rounded: 101.
  EXPECT_EQ(uv[0], 101);
  EXPECT_EQ(uv[1], 128 + 1);  // 4227200 >> 11 = 2064 over 16: the lost weight bits show, 129
  EXPECT_EQ(image.dst_u, std::vector<uint8_t>(8, 128));
}

}  // namespace
