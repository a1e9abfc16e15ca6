// The small tables that the chroma filters read: seeded dither and offsets, reciprocals, and the
// range weights of one tuning.
//
// Threads: the seeded tables and the reciprocals are constants, built on first use; range weights
// live wherever the caller keeps them. Nothing here is shared and writable, so handles are
// independent of each other.
#pragma once

#include <cstdint>

namespace vorn {

constexpr int kRangeWeights = 512;
constexpr int kDitherEntries = 8192;
constexpr int kOffsetEntries = 2048;
constexpr int kDitherSlack = 1088;  // the first entries once more, so that a run may wrap around
constexpr int kMaskReciprocals = 4096;

struct dither_tables {
  int8_t dither[kDitherEntries + kDitherSlack];  // -1, 0, +1 with probability 1/4, 1/2, 1/4
  int16_t offset[kOffsetEntries];                // 0..2048: where a row starts in the dither
};

const dither_tables& chroma_dither();

// Entry n is 2^20 / n rounded to nearest (n = 1..4092), then 256; entry 0 is 0.
const int64_t* chroma_mask_reciprocals();

// Weight of a neighbour per distance: 255 * (1 - distance^2 * coef / 4)^3, rounded, 0 from the
// first zero on. A coefficient that is not a number or infinite (range factor 0) gives no weight
// at all. Returns the support: the number of entries up to the last that is not 0.
int make_range_weights(float coef, uint8_t (&weights)[kRangeWeights]);

}  // namespace vorn
