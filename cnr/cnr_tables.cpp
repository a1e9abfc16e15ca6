#include "cnr/cnr_tables.h"

#include <cmath>
#include <cstring>

#include "base/noise.h"

namespace vorn {

const dither_tables& chroma_dither() {
  static const dither_tables tables = [] {
    dither_tables t{};
    short drawn[kDitherEntries];
    GetRandomTable(drawn, kDitherEntries, 255, -1, 2);
    for (int i = 0; i < kDitherEntries; ++i)
      t.dither[i] = static_cast<int8_t>(drawn[i] > 1 ? 0 : drawn[i]);
    std::memcpy(t.dither + kDitherEntries, t.dither, kDitherSlack);
    GetRandomTable(t.offset, kOffsetEntries, 1024, 0, 2048);
    return t;
  }();
  return tables;
}

const int64_t* chroma_mask_reciprocals() {
  struct table {
    int64_t entry[kMaskReciprocals];
  };
  static const table reciprocals = [] {
    table t{};
    for (int n = 1; n < kMaskReciprocals; ++n) {
      const float rounded = 1048576.0f / static_cast<float>(n) + 0.5f;
      t.entry[n] = n <= 4092 ? static_cast<int64_t>(rounded) : 256;
    }
    return t;
  }();
  return reciprocals.entry;
}

int make_range_weights(float coef, uint8_t (&weights)[kRangeWeights]) {
  std::memset(weights, 0, sizeof(weights));
  if (!std::isfinite(coef)) return 0;
  const double g = coef;
  int support = 0;
  for (int i = 0; i < kRangeWeights; ++i) {
    const double t = 1 - (i * (0.25 * i)) * g;
    // For g >= 0 t only falls: nothing follows the first zero.
    if (t <= 0) break;
    const double cube = t * t * t;
    weights[i] = static_cast<uint8_t>(0.5 + 255 * (cube < 1 ? cube : 1));
    if (weights[i]) support = i + 1;
  }
  return support;
}

}  // namespace vorn
