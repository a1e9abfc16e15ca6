// The rule of the block non-local mean, in whole numbers: what the scalar members do and what every
// vector form is held against.
//
// A 4x4 block is replaced by the weighted mean of itself (weight 256) and of blocks displaced from
// it. A displaced block's weight is map[index(D, m)]: D is its clipped distance to the block, m the
// block's mask value (pre_mask.h), map the curve of an intensity (MakeWeightMap in block_sums.h).
#pragma once

#include <cstdint>
#include <cstdlib>

namespace vorn {

constexpr int kDistanceClip = 49;  // per pixel: one outlier cannot push a block out of the mean
constexpr int kMaxDistance = 784;  // 16 * 49
constexpr int kMapSize = 800;      // weight map entries; the last index is 799
constexpr int kLastIndex = kMapSize - 1;
constexpr int kNeutralMask = 64;    // the mask value at which the index is the distance itself
constexpr int kCentreWeight = 256;  // weight of the block itself, map[0]
constexpr int kAccWords = 17;       // total weight, then 16 weighted pixel sums row by row

// The eight displacements of a ring at distance 1, in the order in which they are visited.
//
//     2 3 4
//     0 . 1
//     5 6 7
struct displacement {
  int dx, dy;
};
constexpr displacement kRing[8] = {{-1, 0}, {1, 0},  {-1, -1}, {0, -1},
                                   {1, -1}, {-1, 1}, {0, 1},   {1, 1}};

// Sum over the 16 pixel pairs of min(|a - b|, 49): 0..784.
static inline unsigned block_distance(const unsigned char* a, const unsigned char* b, int stride) {
  unsigned sum = 0;
  for (int r = 0; r < 4; ++r, a += stride, b += stride) {
    for (int c = 0; c < 4; ++c) {
      const int difference = std::abs(a[c] - b[c]);
      sum += static_cast<unsigned>(difference < kDistanceClip ? difference : kDistanceClip);
    }
  }
  return sum;
}

// Index into the weight map: the distance scaled by 64 / m, rounded half up, within 1..799. Entry 0
// belongs to the block itself and is never a neighbour's. m = 0 (which no caller passes) gives 1.
static inline int weight_index(unsigned distance, int m) {
  const int index = m == 0 ? 0 : (static_cast<int>(distance) * kNeutralMask + m / 2) / m;
  return index < 1 ? 1 : index > kLastIndex ? kLastIndex : index;
}

// One normalised pixel: (sum + total / 2) / total as signed 32-bit numbers, low 8 bits.
static inline unsigned char normalised(int sum, int total) {
  if (total == 0) return 0;
  const int rounded =
      static_cast<int>(static_cast<unsigned>(sum) + static_cast<unsigned>(total / 2));
  // Divided as 64-bit numbers: the one quotient that 32 bits cannot hold then has its low bits too.
  return static_cast<unsigned char>(int64_t{rounded} / total);
}

// One pixel of a pair of blocks: truncate(0.5 + sum * r), the product rounded, then the sum; r is
// the refined reciprocal of the total (runtime/reciprocal.h). At most one below `normalised`, on
// exact halves only; with r of exact_reciprocals() it is `normalised`.
static inline unsigned char normalised_by(int sum, float r) {
  const float mean = static_cast<float>(sum) * r;
  return static_cast<unsigned char>(static_cast<int>(0.5f + mean));
}

// The block itself is cur; the rows of blocks d above and below it, as the processors get them.
struct ring_rows {
  unsigned char *up, *down;
};
static inline unsigned char* neighbour(unsigned char* cur, ring_rows rows, int d, int i) {
  const displacement n = kRing[i];
  return (n.dy == 0 ? cur : n.dy < 0 ? rows.up : rows.down) + n.dx * d;
}

// Adds a block with weight w to an accumulator, whose words wrap.
static inline void add_weighted(int* acc, const unsigned char* block, int stride, unsigned w) {
  acc[0] = static_cast<int>(static_cast<unsigned>(acc[0]) + w);
  for (int r = 0; r < 4; ++r, block += stride) {
    for (int c = 0; c < 4; ++c) {
      int& sum = acc[1 + 4 * r + c];
      sum = static_cast<int>(static_cast<unsigned>(sum) + w * block[c]);
    }
  }
}

// Adds the block `pixels` with the weight that the distance of two blocks has. Returns the
// distance.
static inline unsigned add_by_distance(const unsigned char* a, const unsigned char* b,
                                       const unsigned char* pixels, int stride, int* acc,
                                       const int* map, int m) {
  const unsigned distance = block_distance(a, b, stride);
  add_weighted(acc, pixels, stride, static_cast<unsigned>(map[weight_index(distance, m)]));
  return distance;
}

}  // namespace vorn
