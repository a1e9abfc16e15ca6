// The tables that every form of the luma kernels works with: index rules by mask value, weights by
// index, reciprocals by total.
#include <cmath>
#include <cstring>

#include "runtime/reciprocal.h"
#include "ynr/block_rules.h"
#include "ynr/kernels/luma_kernels.h"

namespace vorn {
namespace {

// floor((64 D + m / 2) / m) by a 16-bit reciprocal 2^(16 + shift) / m of 16 significant bits.
// Rounded up it is exact for all 16-bit dividends when the rounding is at most half a unit; rounded
// down it is exact for a dividend one larger.
struct index_rules {
  index_rule of[256];
  index_rules() : of{} {
    for (unsigned m = 2; m < 256; ++m) {
      unsigned shift = 0;
      while ((2u << shift) < m) ++shift;
      const unsigned exact = 1u << (16 + shift);
      const bool up = exact % m == 0 || (exact % m) * 2 >= m;
      of[m].bias = static_cast<uint16_t>(m / 2 + (up ? 0 : 1));
      of[m].factor = static_cast<uint16_t>((exact + (up ? m - 1 : 0)) / m);
      of[m].shift = static_cast<uint16_t>(shift);
      of[m].shift_factor = static_cast<uint16_t>(0x10000u >> shift);
    }
    // Half of 64 D + 1 with a shift of at least 1: (n * 65535) >> 16 = n - 1.
    of[2] = {1, 65535, 1, 0x8000};
  }
};

// One float above the nearest reciprocal: truncate(0.5 + sum * r) then equals the rounded whole
// quotient for every total 256..6376 and every sum up to 255 times it, exact halves included.
struct exact_reciprocal_table {
  float of[kReciprocals];
  exact_reciprocal_table() {
    of[0] = 0;
    for (int n = 1; n < kReciprocals; ++n)
      of[n] = std::nextafter(1.0f / static_cast<float>(n), 2.0f);
  }
};

// Whether factor gives every index of mask value m below `limit`, and nothing below for the rest.
bool short_rule_holds(int m, int factor, int limit) {
  for (int d = 0; d <= kMaxDistance; ++d) {
    const int wanted = (kNeutralMask * d + m / 2) / m;
    const int found = ((2 * 32 * d * factor >> 16) + 16) >> 5;
    if (wanted < limit ? found != wanted : found < limit) return false;
  }
  return true;
}

constexpr int kShortLimits[] = {128, 64};  // the wider ones first

// By mask value 64..255, a factor around 2^21 / m, and up to what support it holds.
struct short_rules {
  int16_t factor[256];
  uint8_t support[256];
  short_rules() : factor{}, support{} {
    for (int m = kNeutralMask; m < 256; ++m)
      for (const int limit : kShortLimits)
        for (int f = (1 << 21) / m - 4; !support[m] && f <= (1 << 21) / m + 4 && f <= INT16_MAX;
             ++f)
          if (short_rule_holds(m, f, limit)) {
            factor[m] = static_cast<int16_t>(f);
            support[m] = static_cast<uint8_t>(limit);
          }
  }
};

const short_rules& short_rule_table() {
  static const short_rules rules;
  return rules;
}

// A line through `entries` weights from of[0] on, as weight_table has it: the steepest and highest
// are tried last, so that the first fit is found soon. False where there is none.
bool fit_line(const unsigned char* of, int entries, int length, weight_table* table, int k) {
  for (int slope = 0; slope <= 255 / (length - 1); ++slope) {
    for (int base = of[0] - 1; base <= of[0] + 3; ++base) {
      unsigned bits = 0;
      int i = 0;
      for (; i < entries; ++i) {
        const int over = base - (slope * i >> 4) - of[i];
        if (over != 0 && over != 1) break;
        bits |= static_cast<unsigned>(over) << (15 - i);
      }
      if (i < entries) continue;
      table->base[k] = static_cast<unsigned char>(-base);
      table->slope[k] = static_cast<unsigned char>(slope);
      table->lower[k] = static_cast<unsigned char>(bits >> 8);
      table->upper[k] = static_cast<unsigned char>(bits);
      return true;
    }
  }
  return false;
}

bool make_lines(weight_table* table) {
  const int length = table->support < 512 ? 8 : 16;
  for (int k = 0; k < 64; ++k) {
    table->base[k] = table->slope[k] = table->lower[k] = table->upper[k] = 0;
    const int rest = kMapSize - k * length;
    if (rest > 0 &&
        !fit_line(table->of + k * length, rest < length ? rest : length, length, table, k))
      return false;
  }
  return true;
}

}  // namespace

bool make_weight_table(weight_table* table, const int* map) {
  table->support = 0;
  for (int i = 1; i < kMapSize; ++i) {
    if (map[i] < 0 || map[i] > 255) return false;
    table->of[i] = static_cast<unsigned char>(map[i]);
    if (map[i]) table->support = i + 1;
  }
  table->of[0] = table->of[1];
  std::memset(table->of + kMapSize, 0, sizeof table->of - kMapSize);
  table->lines = table->support > 255 && make_lines(table);
  return true;
}

void make_mask_rules(mask_rules* rules, const unsigned char (&values)[kRunBlocks],
                     bool with_short) {
  const index_rule* by_value = index_rule_table();
  for (int i = 0; i < kRunBlocks; ++i) rules->of[i] = by_value[values[i]];
  rules->short_support = 0;
  rules->neutral = false;
  if (!with_short) return;
  const short_rules& shorter = short_rule_table();
  uint8_t support = kShortLimits[0];
  bool neutral = true;
  for (int i = 0; i < kRunBlocks; ++i) {
    const unsigned char m = values[i];
    rules->short_factor[i] = shorter.factor[m];
    support = support < shorter.support[m] ? support : shorter.support[m];
    neutral &= m == kNeutralMask;
  }
  rules->short_support = support;
  rules->neutral = neutral;
}

const index_rule* index_rule_table() {
  static const index_rules rules;
  return rules.of;
}

const float* exact_reciprocals() {
  static const exact_reciprocal_table table;
  return table.of;
}

}  // namespace vorn
