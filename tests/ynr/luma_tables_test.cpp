// The shorter ways to a weight, over everything that they may meet: lines for long weight maps, the
// short index rule for mask values of 64 and more.
#include <gtest/gtest.h>

#include <algorithm>

#include "ynr/block_rules.h"
#include "ynr/block_sums.h"
#include "ynr/kernels/luma_kernels.h"

namespace {

// A weight by the description of vorn::weight_table.
int on_line(const vorn::weight_table& t, int index) {
  const int length = t.support < 512 ? 8 : 16, k = index / length, i = index % length;
  if (k >= 64) return 0;
  const int bit = i < 8 ? t.lower[k] >> (7 - i) & 1 : t.upper[k] >> (15 - i) & 1;
  return -(t.base[k] + (t.slope[k] * i >> 4) + bit) & 0xFF;
}

}  // namespace

TEST(LumaTables, LongWeightMapsStandOnLines) {
  for (int intensity = 1; intensity <= 1200; ++intensity) {
    int map[vorn::kMapSize];
    MakeWeightMap(map, static_cast<float>(intensity), vorn::kMapSize);
    vorn::weight_table table;
    ASSERT_TRUE(vorn::make_weight_table(&table, map)) << "intensity " << intensity;
    ASSERT_EQ(table.lines, table.support > 255) << "intensity " << intensity;
    for (int i = 1; i < vorn::kMapSize; ++i) {
      ASSERT_EQ(table.of[i], map[i]) << "intensity " << intensity << ", index " << i;
      if (table.lines) {
        ASSERT_EQ(on_line(table, i), map[i]) << "intensity " << intensity << ", index " << i;
      }
    }
  }
}

TEST(LumaTables, ShortRuleGivesTheIndex) {
  for (int m = vorn::kNeutralMask; m < 256; ++m) {
    unsigned char values[vorn::kRunBlocks];
    std::fill_n(values, vorn::kRunBlocks, static_cast<unsigned char>(m));
    vorn::mask_rules rules;
    vorn::make_mask_rules(&rules, values, true);
    EXPECT_EQ(rules.neutral, m == vorn::kNeutralMask);
    // 180 is what the built-in mask stays near; beyond it some values hold for short tables alone.
    ASSERT_GE(rules.short_support, m <= 180 ? 128 : 64) << "mask " << m;
    for (unsigned d = 0; d <= vorn::kMaxDistance; ++d) {
      const int high = static_cast<int>(2 * 32 * d) * rules.short_factor[0] >> 16;
      const int found = std::min((high + 16) >> 5, rules.short_support);
      // A neighbour's index is never below 1; entry 0 of the table repeats entry 1.
      ASSERT_EQ(std::max(found, 1), std::min(vorn::weight_index(d, m), rules.short_support))
          << "mask " << m << ", distance " << d;
    }
  }
}

TEST(LumaTables, AMaskValueBelow64HasNoShortRule) {
  unsigned char values[vorn::kRunBlocks];
  std::fill_n(values, vorn::kRunBlocks, static_cast<unsigned char>(100));
  values[7] = 63;
  vorn::mask_rules rules;
  vorn::make_mask_rules(&rules, values, true);
  EXPECT_EQ(rules.short_support, 0);
  EXPECT_FALSE(rules.neutral);
}
