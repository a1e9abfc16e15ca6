// The steps of a block one by one, and the tables behind them. And whole blocks,
// against the model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "runtime/reciprocal.h"
#include "tests/support/canvas.h"
#include "tests/support/forms.h"
#include "ynr/block_processors.h"
#include "ynr/block_sums.h"
#include "ynr/exported/block_processors.h"
#include "ynr/exported/block_sums.h"
#include "ynr/kernels/luma_kernels.h"

namespace {

using namespace vorn_test;

TEST(WeightMap, HandWorkedValues) {
  int map[800];
  MakeWeightMap(map, 10.0f, 800);  // 255 exp(-d^2 / 100), rounded half up
  EXPECT_EQ(map[0], 256);
  EXPECT_EQ(map[1], 252);
  EXPECT_EQ(map[5], 199);
  EXPECT_EQ(map[10], 94);
  EXPECT_EQ(map[20], 5);
  EXPECT_EQ(map[24], 1);
  EXPECT_EQ(map[25], 0);
  EXPECT_EQ(map[799], 0);
  // Sigma squared is cut to a whole number: 1.9^2 = 3.61 counts as 3.
  MakeWeightMap(map, 1.9f, 4);
  EXPECT_EQ(map[1], 183);
  EXPECT_EQ(map[2], 67);
  EXPECT_EQ(map[3], 13);
}

TEST(WeightMap, EndsOfTheRange) {
  int map[800];
  MakeWeightMap(map, 0.99f, 800);  // s = 0: no neighbour counts
  EXPECT_EQ(map[0], 256);
  for (int d = 1; d < 800; ++d) ASSERT_EQ(map[d], 0);
  MakeWeightMap(map, 2147483647.0f, 800);  // sigma squared saturates; every neighbour counts fully
  for (int d = 1; d < 800; ++d) ASSERT_EQ(map[d], 255);
  int one[2] = {7, 7};
  MakeWeightMap(one, 10.0f, 0);
  EXPECT_EQ(one[0], 256);
  EXPECT_EQ(one[1], 7);
}

// Weights next to a rounding boundary, where the last bit of a single-precision exponential would
// decide; expected values from the exact exponential.
TEST(WeightMap, BoundaryWeights) {
  const struct {
    int intensity, d, weight;
  } cases[] = {{472, 781, 17},   {601, 464, 141},  {677, 52, 254},   {790, 277, 225},
               {1036, 179, 248}, {1986, 265, 250}, {2161, 504, 242}, {2922, 707, 240}};
  int map[800];
  for (const auto& c : cases) {
    MakeWeightMap(map, static_cast<float>(c.intensity), 800);
    EXPECT_EQ(map[c.d], c.weight) << c.intensity;
  }
}

// Sum of the absolute differences of two 4x4 blocks, each cut to 49.
unsigned distance(const uint8_t* a, const uint8_t* b, int stride) {
  int sum = 0;
  for (int k = 0; k < 16; ++k) {
    const int i = k / 4 * stride + k % 4;
    sum += std::min(49, std::abs(a[i] - b[i]));
  }
  return static_cast<unsigned>(sum);
}

class BlockSteps : public ::testing::Test {
 protected:
  BlockSteps() : image(24, 16, s, random) {
    image.paint(content::texture, random);
    MakeWeightMap(map, 45.0f, 800);
  }
  static constexpr int s = 28;  // stride
  random_source random{5};
  canvas image;
  uint8_t* cur = image.data() + 4 * s + 4;
  int map[800], acc[17] = {};
};

TEST_F(BlockSteps, CentreAndAccumulation) {
  CumBlockWeight_new(cur, s, acc, 256);
  EXPECT_EQ(acc[0], 256);
  for (int k = 0; k < 16; ++k) EXPECT_EQ(acc[1 + k], 256 * cur[k / 4 * s + k % 4]);
  CumBlockWeight(cur, s, acc, 3);
  EXPECT_EQ(acc[0], 259);
  EXPECT_EQ(acc[16], 259 * cur[3 * s + 3]);
}

TEST_F(BlockSteps, NeighbourAddsItsOwnPixels) {
  uint8_t* other = cur - 2 * s + 2;
  CumBlockWeight_new(cur, s, acc, 256);
  const unsigned d = AddBlockSumByNei(cur, other, s, acc, map, 100);
  EXPECT_EQ(d, distance(cur, other, s));
  const int w = map[std::max(1u, (d * 64 + 50) / 100)];
  EXPECT_EQ(acc[0], 256 + w);
  for (int k = 0; k < 16; ++k) {
    const int i = k / 4 * s + k % 4;
    EXPECT_EQ(acc[1 + k], 256 * cur[i] + w * other[i]);
  }
}

TEST_F(BlockSteps, IndexLimits) {
  for (int i = 0; i < 800; ++i) map[i] = i;  // the weight tells the index
  // The same block: distance 0 takes entry 1, entry 0 is the centre's.
  EXPECT_EQ(AddBlockSumByNei(cur, cur, s, acc, map, 64), 0u);
  EXPECT_EQ(acc[0], 1);
  for (int k = 0; k < 16; ++k) cur[k / 4 * s + k % 4] = 0, cur[8 + k / 4 * s + k % 4] = 255;
  const struct {
    int m, index;
  } cases[] = {{64, 784}, {16, 799}, {63, 796}, {255, 197}, {0, 1}, {1, 799}};
  for (const auto& c : cases) {
    acc[0] = 0;
    EXPECT_EQ(AddBlockSumByNei(cur, cur + 8, s, acc, map, c.m), 784u);
    EXPECT_EQ(acc[0], c.index) << c.m;
  }
}

TEST_F(BlockSteps, GuidedTakesDistanceAndPixelsApart) {
  canvas guide = painted(24, 16, s, random);
  uint8_t* g = guide.data() + 4 * s + 4;
  const unsigned d = AddBlockSumByNei_Guided(cur, s, g, g - s + 1, 999, acc, map, 64);
  EXPECT_EQ(d, distance(g, g - s + 1, s));
  EXPECT_EQ(acc[2], map[std::max(1u, d)] * cur[1]);
}

TEST_F(BlockSteps, Normalisation) {
  acc[0] = 300;
  for (int k = 0; k < 16; ++k) acc[1 + k] = 300 * k * 15 + (k == 3 ? 150 : 149);
  unsigned char out[16], diff[16], src[16];
  GetBlockResult(out, 4, acc);
  for (int k = 0; k < 16; ++k) EXPECT_EQ(out[k], 15 * k + (k == 3));
  // The fall-back goes to the source where the result is more than 16 away from it.
  for (int k = 0; k < 16; ++k) src[k] = static_cast<unsigned char>(out[k] + (k % 2 ? 16 : 17));
  GetBlockResultDiff(src, 4, diff, 4, acc);
  for (int k = 0; k < 16; ++k) EXPECT_EQ(diff[k], k % 2 ? out[k] : src[k]);
  acc[0] = 0;
  GetBlockResult(out, 4, acc);
  for (int k = 0; k < 16; ++k) EXPECT_EQ(out[k], 0);
}

TEST_F(BlockSteps, PairCentreSetsAllWords) {
  int left[17], right[17];
  CumBlockWeight2_256neon(cur, s, left, right, 256);
  EXPECT_EQ(left[0], 256);
  EXPECT_EQ(right[0], 256);
  for (int k = 0; k < 16; ++k) {
    EXPECT_EQ(left[1 + k], 256 * cur[k / 4 * s + k % 4]);
    EXPECT_EQ(right[1 + k], 256 * cur[4 + k / 4 * s + k % 4]);
  }
  cur[0] = 255;
  CumBlockWeight2_256neon(cur, s, left, right, 300);  // wraps at 16 bits
  EXPECT_EQ(left[1], 255 * 300 - 65536);
}

// A processor is its steps in turn, ring by ring, and returns the last displaced block's distance.
TEST_F(BlockSteps, ProcessorsTakeTheStepsInTurn) {
  int steps[17], last = 0;
  uint8_t out[16], want[16];
  CumBlockWeight_new(cur, s, steps, 256);
  for (int d = 1; d <= 3; ++d) {
    for (int dy : {0, -d, d})
      for (int dx : {-d, 0, d})
        if (dx || dy)
          last = static_cast<int>(AddBlockSumByNei(cur, cur + dy * s + dx, s, steps, map, 90));
    GetBlockResult(want, 4, steps);
    uint8_t *up1 = cur - s, *up2 = up1 - s, *up3 = up2 - s;
    uint8_t *down1 = cur + s, *down2 = down1 + s, *down3 = down2 + s;
    const unsigned result =
        d == 1 ? ProcessBlock4x4_3x3(cur, up1, down1, s, out, 4, map, acc, 90)
        : d == 2
            ? ProcessBlock4x4_5x5(cur, up1, down1, up2, down2, s, out, 4, map, acc, 90)
            : ProcessBlock4x4_7x7(cur, up1, down1, up2, down2, up3, down3, s, out, 4, map, acc, 90);
    EXPECT_EQ(static_cast<int>(result), last);
    EXPECT_TRUE(std::equal(steps, steps + 17, acc));
    EXPECT_TRUE(std::equal(want, want + 16, out));
    if (d > 1) continue;
    uint8_t pair[32];
    int right[17];
    std::fill_n(acc, 17, -1);
    ProcessBlock4x4_3x3_neon(cur, up1, down1, s, pair, 8, map, acc, right, 90, 91);
    EXPECT_TRUE(std::equal(steps, steps + 17, acc)) << "left of the pair";
  }
}

// An exact half on which the reciprocal of the vector rule comes out below: the scalar rule rounds
// up, the pair gives one less. Which rule a block gets is part of the output.
TEST(ProcessBlocks, ExactHalvesMayDiffer) {
  int differing = 0;
  for (unsigned total = 256; total <= 6376; total += 2) {
    int acc[17];
    acc[0] = static_cast<int>(total);
    std::fill_n(acc + 1, 16, static_cast<int>(total * 100 + total / 2));
    unsigned char one[16], two[32];
    GetBlockResult(one, 4, acc);
    GetBlockResult_2neon(two, 8, acc, acc);
    EXPECT_EQ(one[0], 101);
    const float product =
        static_cast<float>(acc[1]) * vorn::refined_reciprocal(static_cast<float>(total));
    EXPECT_EQ(two[7], static_cast<int>(0.5f + product));
    differing += one[0] != two[7];
  }
  EXPECT_GT(differing, 0);
  EXPECT_LT(differing, 885);
}

// The rules that the runs of blocks go by instead: the same index for every distance and mask
// value, and the scalar rule's pixel for every total and every sum next to a rounding boundary.
TEST(RunTables, IndexRulesAreExact) {
  for (unsigned m = 2; m < 256; ++m) {
    const vorn::index_rule& rule = vorn::index_rule_table()[m];
    ASSERT_GE(rule.shift, 1);
    ASSERT_LE(rule.shift, 7);
    ASSERT_EQ(rule.shift_factor, 1 << (16 - rule.shift));
    for (unsigned d = 0; d <= 784; ++d)
      ASSERT_EQ(((d * 64 + rule.bias) * rule.factor >> 16) >> rule.shift, (d * 64 + m / 2) / m)
          << "distance " << d << " mask " << m;
  }
}

TEST(RunTables, ExactReciprocalsGiveTheScalarRule) {
  for (int total = 256; total <= 6376; ++total) {
    const float r = vorn::exact_reciprocals()[total];
    for (int pixel = 0; pixel <= 255; ++pixel) {
      for (int sum = pixel * total + total / 2 - 1; sum <= pixel * total + total / 2 + 1; ++sum) {
        if (sum > 255 * total) break;
        const float product = static_cast<float>(sum) * r;
        ASSERT_EQ(static_cast<int>(0.5f + product), (sum + total / 2) / total)
            << sum << " / " << total;
      }
    }
  }
}

TEST(ProcessBlocks, SevenOneIsFiveByFive) {
  random_source random(3);
  canvas image = painted(8, 4, 24, random);
  uint8_t* cur = image.data();
  const int s = 24;
  int map[800], acc[17];
  MakeWeightMap(map, 45.0f, 800);
  unsigned char five[16], seven_one[16];
  ProcessBlock4x4_5x5(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, s, five, 4, map, acc, 90);
  ProcessBlock4x4_7x7_1(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, nullptr, nullptr, s,
                        seven_one, 4, map, acc, 90);
  EXPECT_TRUE(std::equal(five, five + 16, seven_one));
}

TEST(WeightMap, FollowsTheModel) {
  int got[800], want[800];
  for (float sigma : {0.0f, 0.5f, 1.0f, 1.5f, 45.0f, 255.0f, 46340.9f, 70000.0f, 3e9f, -20.0f}) {
    MakeWeightMap(got, sigma, 800);
    model::weight_map(want, sigma, 800);
    EXPECT_TRUE(std::equal(want, want + 800, got)) << sigma;
  }
  for (int sigma = 1; sigma <= 1200; ++sigma) {
    MakeWeightMap(got, static_cast<float>(sigma), 800);
    model::weight_map(want, static_cast<float>(sigma), 800);
    ASSERT_TRUE(std::equal(want, want + 800, got)) << sigma;
  }
}

// The exported processors of one block and of a pair, which the walks may or may not go through.
TEST(ProcessBlocks, FollowTheModel) {
  trials(950, 300, [](random_source& random) {
    const int stride = random.between(24, 60), rings = random.between(1, 3);
    canvas src = painted(24, 16, stride, random), guide = painted(24, 16, stride, random);
    canvas out(24, 16, stride, random), want(out), scalar(out), want_scalar(out), guided(out),
        want_guided(out);
    const int left = random.between(1, 255), right = random.between(1, 255), y = 6, x = 8;
    int map[800], acc[17], acc2[17];
    model::weight_map(map, static_cast<float>(random.between(1, 120)), 800);

    const auto expect = [&](canvas& to, const canvas& on, int at, int m, int n, model::rule how) {
      canvas distances(on);
      uint8_t block[16];
      model::block(src.plane(), distances.plane(), y, at, n, map, m, how, block);
      for (int k = 0; k < 16; ++k) to.plane().at(y + k / 4, at + k % 4) = block[k];
    };
    expect(want, src, x, left, rings, model::rule::vector);
    expect(want, src, x + 4, right, rings, model::rule::vector);
    expect(want_scalar, src, x, left, rings, model::rule::scalar);
    expect(want_guided, guide, x, left, 2, model::rule::scalar);

    const auto row = [&](canvas& c, int d) { return &c.plane().at(y + d, x); };
    uint8_t* to = row(out, 0);
    uint8_t* one = row(scalar, 0);
    uint8_t* r[7];
    for (int d = -3; d <= 3; ++d) r[d + 3] = row(src, d);
    if (rings == 1) {
      ProcessBlock4x4_3x3_neon(r[3], r[2], r[4], stride, to, stride, map, acc, acc2, left, right);
      ProcessBlock4x4_3x3(r[3], r[2], r[4], stride, one, stride, map, acc, left);
    } else if (rings == 2) {
      ProcessBlock4x4_5x5_neon(r[3], r[2], r[4], r[1], r[5], stride, to, stride, map, acc, acc2,
                               left, right);
      auto* second = random.one_in(2) ? ProcessBlock4x4_7x7_1 : nullptr;
      if (second)
        second(r[3], r[2], r[4], r[1], r[5], r[0], r[6], stride, one, stride, map, acc, left);
      else
        ProcessBlock4x4_5x5(r[3], r[2], r[4], r[1], r[5], stride, one, stride, map, acc, left);
    } else {
      ProcessBlock4x4_7x7_neon(r[3], r[2], r[4], r[1], r[5], r[0], r[6], stride, to, stride, map,
                               acc, acc2, left, right);
      ProcessBlock4x4_7x7(r[3], r[2], r[4], r[1], r[5], r[0], r[6], stride, one, stride, map, acc,
                          left);
    }
    ProcessBlock4x4_5x5_Guided(r[3], r[2], r[4], r[1], r[5], stride, row(guide, 0), row(guide, -1),
                               row(guide, 1), row(guide, -2), row(guide, 2), 0, row(guided, 0),
                               stride, map, acc, left);
    EXPECT_TRUE(out.same(want)) << "pair " << numbers({rings, left, right});
    EXPECT_TRUE(scalar.same(want_scalar)) << "one " << numbers({rings, left});
    EXPECT_TRUE(guided.same(want_guided)) << "guided " << numbers({left});
  });
}

}  // namespace
