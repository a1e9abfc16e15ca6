#include "ynr/block_processors.h"
#include "ynr/block_sums.h"

#include "tests/ynr/model.h"
#include "ynr/luma_kernels.h"

namespace {

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

class BlockSteps : public ::testing::Test {
 protected:
  BlockSteps() : p(16, 8), map(model::weight_map(45)) { model::paint(&p, model::kTexture, 5); }
  model::plane p;
  std::vector<int> map;
  int acc[17] = {};
};

TEST_F(BlockSteps, CentreAndAccumulation) {
  CumBlockWeight_new(p.at(4, 4), p.stride, acc, 256);
  EXPECT_EQ(acc[0], 256);
  for (int k = 0; k < 16; ++k) EXPECT_EQ(acc[1 + k], 256 * *p.at(4 + k % 4, 4 + k / 4));
  CumBlockWeight(p.at(4, 4), p.stride, acc, 3);
  EXPECT_EQ(acc[0], 259);
  EXPECT_EQ(acc[16], 259 * *p.at(7, 7));
}

TEST_F(BlockSteps, NeighbourAddsItsOwnPixels) {
  CumBlockWeight_new(p.at(4, 4), p.stride, acc, 256);
  const unsigned d = AddBlockSumByNei(p.at(4, 4), p.at(6, 2), p.stride, acc, map.data(), 100);
  EXPECT_EQ(static_cast<int>(d), model::distance(&p, 4, 4, 2, -2));
  const int w = map[std::max(1, static_cast<int>((d * 64 + 50) / 100))];
  EXPECT_EQ(acc[0], 256 + w);
  for (int k = 0; k < 16; ++k)
    EXPECT_EQ(acc[1 + k], 256 * *p.at(4 + k % 4, 4 + k / 4) + w * *p.at(6 + k % 4, 2 + k / 4));
}

TEST_F(BlockSteps, IndexLimits) {
  for (int i = 0; i < 800; ++i) map[i] = i;  // the weight tells the index
  // The same block: distance 0 takes entry 1, entry 0 is the centre's.
  EXPECT_EQ(AddBlockSumByNei(p.at(4, 4), p.at(4, 4), p.stride, acc, map.data(), 64), 0u);
  EXPECT_EQ(acc[0], 1);
  for (int k = 0; k < 16; ++k) {
    *p.at(k % 4, k / 4) = 0;
    *p.at(8 + k % 4, k / 4) = 255;
  }
  const struct {
    int m, index;
  } cases[] = {{64, 784}, {16, 799}, {63, 796}, {255, 197}, {0, 1}, {1, 799}};
  for (const auto& c : cases) {
    acc[0] = 0;
    EXPECT_EQ(AddBlockSumByNei(p.at(0, 0), p.at(8, 0), p.stride, acc, map.data(), c.m), 784u);
    EXPECT_EQ(acc[0], c.index) << c.m;
  }
}

TEST_F(BlockSteps, GuidedTakesDistanceAndPixelsApart) {
  model::plane guide(16, 8);
  model::paint(&guide, model::kNoise, 9);
  const unsigned d = AddBlockSumByNei_Guided(p.at(5, 3), p.stride, guide.at(4, 4), guide.at(5, 3),
                                             999, acc, map.data(), 64);
  EXPECT_EQ(static_cast<int>(d), model::distance(&guide, 4, 4, 1, -1));
  EXPECT_EQ(acc[2], map[std::max(1u, d)] * *p.at(6, 3));
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
  std::fill_n(left, 17, 12345);
  std::fill_n(right, 17, 12345);
  CumBlockWeight2_256neon(p.at(0, 0), p.stride, left, right, 256);
  EXPECT_EQ(left[0], 256);
  EXPECT_EQ(right[0], 256);
  for (int k = 0; k < 16; ++k) {
    EXPECT_EQ(left[1 + k], 256 * *p.at(k % 4, k / 4));
    EXPECT_EQ(right[1 + k], 256 * *p.at(4 + k % 4, k / 4));
  }
  *p.at(0, 0) = 255;
  CumBlockWeight2_256neon(p.at(0, 0), p.stride, left, right, 300);  // wraps at 16 bits
  EXPECT_EQ(left[1], 255 * 300 - 65536);
}

// Every block processor on many blocks, against the formulas.
TEST(ProcessBlocks, MatchTheFormulas) {
  std::mt19937 random(77);
  for (int trial = 0; trial < 400; ++trial) {
    model::plane p(8, 4, 8, trial % 5);
    model::paint(&p, static_cast<model::fill>(trial % model::kFills), random());
    std::vector<int> map =
        model::weight_map(trial % 7 == 0 ? 0 : 1 + static_cast<int>(random() % 400));
    const int m_left = 1 + static_cast<int>(random() % 255);
    const int m_right = 1 + static_cast<int>(random() % 255);
    unsigned char* cur = p.at(0, 0);
    const int s = p.stride;
    int a[17], b[17];
    unsigned char out[32], pair[3][32];
    for (int rings = 1; rings <= 3; ++rings) {
      SCOPED_TRACE(testing::Message() << "trial " << trial << " rings " << rings);
      unsigned last = 0;
      if (rings == 1) {
        last = ProcessBlock4x4_3x3(cur, cur - s, cur + s, s, out, 4, map.data(), a, m_left);
        ProcessBlock4x4_3x3_neon(cur, cur - s, cur + s, s, pair[0], 8, map.data(), a, b, m_left,
                                 m_right);
      } else if (rings == 2) {
        last = ProcessBlock4x4_5x5(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, s, out, 4,
                                   map.data(), a, m_left);
        ProcessBlock4x4_5x5_neon(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, s, pair[1], 8,
                                 map.data(), a, b, m_left, m_right);
      } else {
        last = ProcessBlock4x4_7x7(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, cur - 3 * s,
                                   cur + 3 * s, s, out, 4, map.data(), a, m_left);
        ProcessBlock4x4_7x7_neon(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, cur - 3 * s,
                                 cur + 3 * s, s, pair[2], 8, map.data(), a, b, m_left, m_right);
      }
      EXPECT_EQ(static_cast<int>(last), model::distance(&p, 0, 0, rings, rings));
      const model::sums left = model::block_sums(&p, 0, 0, rings, map.data(), m_left);
      const model::sums right = model::block_sums(&p, 4, 0, rings, map.data(), m_right);
      for (int k = 0; k < 16; ++k) {
        ASSERT_EQ(out[k], model::scalar_pixel(left, k)) << k;
        const unsigned char* row = pair[rings - 1] + 8 * (k / 4);
        ASSERT_EQ(row[k % 4], model::vector_pixel(left, k)) << k;
        ASSERT_EQ(row[4 + k % 4], model::vector_pixel(right, k)) << k;
        ASSERT_LE(std::abs(row[k % 4] - model::scalar_pixel(left, k)), 1);
      }
      EXPECT_EQ(a[0], static_cast<int>(left.total));
      EXPECT_EQ(b[16], static_cast<int>(right.pixel[15]));
    }
    // The two step-wise pair members add up to the 3x3 processor, or one ring each.
    int la[17], ra[17], lb[17], rb[17];
    CumBlockWeight2_256neon(cur, s, la, ra, 256);
    CumBlockWeight2_256neon(cur, s, lb, rb, 256);
    AddBlockSumByNei_5x5neon(cur, cur - 1, cur + 1, cur - s - 1, cur - s, cur - s + 1, cur + s - 1,
                             cur + s, cur + s + 1, s, map.data(), lb, rb, m_left, m_right);
    unsigned char step[32], alone[32];
    AddBlockSumByNei_neon(cur, cur - 1, cur + 1, cur - s - 1, cur - s, cur - s + 1, cur + s - 1,
                          cur + s, cur + s + 1, s, map.data(), m_left, m_right, step, 8, la, ra);
    EXPECT_TRUE(std::equal(step, step + 32, pair[0]));
    EXPECT_TRUE(std::equal(la, la + 17, lb) && std::equal(ra, ra + 17, rb));
    GetBlockResult_2neon(alone, 8, lb, rb);
    EXPECT_TRUE(std::equal(alone, alone + 32, pair[0]));
    AddBlockSumByNei_7x7neon(cur, cur - 2, cur + 2, cur - 2 * s - 2, cur - 2 * s, cur - 2 * s + 2,
                             cur + 2 * s - 2, cur + 2 * s, cur + 2 * s + 2, s, map.data(), lb, rb,
                             m_left, m_right);
    EXPECT_EQ(rb[0], static_cast<int>(model::block_sums(&p, 4, 0, 2, map.data(), m_right).total));
  }
}

// An exact half on which the reciprocal of the vector rule comes out below: the scalar rule rounds
// up, the pair gives one less. Which rule a block gets is part of the output.
TEST(ProcessBlocks, ExactHalvesMayDiffer) {
  int differing = 0;
  for (unsigned total = 256; total <= 6376; total += 2) {
    model::sums s;
    s.total = total;
    s.pixel[0] = total * 100 + total / 2;
    int acc[17];
    acc[0] = static_cast<int>(total);
    std::fill_n(acc + 1, 16, static_cast<int>(s.pixel[0]));
    unsigned char one[16], two[32];
    GetBlockResult(one, 4, acc);
    GetBlockResult_2neon(two, 8, acc, acc);
    EXPECT_EQ(one[0], 101);
    EXPECT_EQ(two[7], model::vector_pixel(s, 0));
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
  model::plane p(8, 4);
  model::paint(&p, model::kTexture, 3);
  std::vector<int> map = model::weight_map(45);
  unsigned char* cur = p.at(0, 0);
  const int s = p.stride;
  int acc[17];
  unsigned char five[16], seven_one[16];
  ProcessBlock4x4_5x5(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, s, five, 4, map.data(), acc,
                      90);
  ProcessBlock4x4_7x7_1(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, nullptr, nullptr, s,
                        seven_one, 4, map.data(), acc, 90);
  EXPECT_TRUE(std::equal(five, five + 16, seven_one));
  unsigned char guided[16];
  ProcessBlock4x4_5x5_Guided(cur, cur - s, cur + s, cur - 2 * s, cur + 2 * s, s, cur, cur - s,
                             cur + s, cur - 2 * s, cur + 2 * s, 1, guided, 4, map.data(), acc, 90);
  EXPECT_TRUE(std::equal(five, five + 16, guided)) << "guided by itself";
}

}  // namespace
