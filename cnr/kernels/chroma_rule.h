// What every form of the directional chroma filters shares: the tap grid, the radial factor, the
// start of a row's dither, and the distance of two pixels. All of it is defined for any tuning:
// products that may leave 32 bits wrap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "cnr/cnr_tables.h"
#include "runtime/arithmetic.h"

namespace vorn {

// Offsets first, first + step, ... <= last along one axis; none when first > last. 0 is the centre
// pixel, which callers skip.
struct tap_range {
  int first;
  int last;
};

// Taps of the pixel at `position` on an axis of `length` pixels. Where the window is cut at the
// near border the grid starts at the border. A radius or step below 1 has no taps.
inline tap_range taps_at(int position, int length, int radius, int step) {
  if (radius < 1 || step < 1) return {0, -1};
  const int after = length - 1 - position;
  return {-radius > -position ? -radius : -position, radius < after ? radius : after};
}

constexpr uint8_t kRadial[5] = {128, 108, 108, 91, 76};

// Scale of the distance in 1/128: full at the centre of the level, less towards its corners.
inline int radial_at(int x, int y, int width, int height) {
  const int centre_x = width >> 1;
  const int centre_y = height >> 1;
  const int64_t reach = static_cast<int64_t>(centre_x) + centre_y;
  if (reach == 0) return kRadial[0];
  const int64_t distance = static_cast<int64_t>(std::abs(x - centre_x)) + std::abs(y - centre_y);
  return kRadial[4 * distance / reach];
}

// Index of a row's first dither entry, not yet wrapped into the table. The horizontal pass adds
// the level mode to the row, the vertical pass to the value. Row -1, mode -1 on the first row, is
// the last dither entry: the two tables stand back to back, dither first, and the first row is
// rounded by it. Kept on purpose (HorVer.FirstRowDither).
inline int64_t horizontal_dither_start(int y, int level_mode) {
  const dither_tables& tables = chroma_dither();
  const int64_t row = static_cast<int64_t>(y) + level_mode;
  const int64_t start = row < 0 ? tables.dither[(row + kDitherEntries) & (kDitherEntries - 1)]
                                : tables.offset[row & (kOffsetEntries - 1)];
  return start + 1;
}

inline int64_t vertical_dither_start(int y, int level_mode) {
  return static_cast<int64_t>(chroma_dither().offset[y & (kOffsetEntries - 1)]) + level_mode + 1;
}

inline int dither_entry(int64_t index) {
  return chroma_dither().dither[index & (kDitherEntries - 1)];
}

// Squared distance of a colour from grey: 0..32768.
inline int grey_distance_sq(int u, int v) {
  return (u - 128) * (u - 128) + (v - 128) * (v - 128);
}

struct chroma_pixel {
  int y;
  int u;
  int v;
};

// Distance of two pixels as an index of the range weights, 0..511: luma difference plus weighted
// chroma differences, magnified by the centre's saturation (2^11 doubles it), scaled by the radial
// factor. Both sums are cut to signed 16 bits and may wrap with extreme colour edges: kept on
// purpose (HorVer.ExtremeEdges).
inline int range_index(const chroma_pixel& centre, const chroma_pixel& tap, int edge_u, int edge_v,
                       int grey_sq, int radial) {
  const int d_u = wrapping_product(std::abs(centre.u - tap.u), edge_u) >> 3;
  const int d_v = wrapping_product(std::abs(centre.v - tap.v), edge_v) >> 3;
  const int d =
      static_cast<int16_t>(wrapping_sum(wrapping_sum(std::abs(centre.y - tap.y), d_u), d_v));
  const int d2 = static_cast<int16_t>(d + ((d * grey_sq) >> 11));
  const int scaled = d2 * 4 * radial;
  if (scaled >= 261376) return kRangeWeights - 1;
  return scaled < 0 ? 0 : (scaled + 256) >> 9;
}

// Where a pixel and its taps stand in the three planes.
struct chroma_place {
  const uint8_t *guide, *a, *b;
  chroma_pixel at(ptrdiff_t offset) const { return {guide[offset], a[offset], b[offset]}; }
};

template <typename Sum>
struct weighted_sums {
  Sum weight, a, b;
};

// The sums of one pixel: the centre with centre_weight, each tap with weight(tap), 0..255.
// taps(visit) calls visit(byte offset) for each tap. Sum is wide enough for 255 times all weights.
template <typename Sum, typename Weight, typename Taps>
inline weighted_sums<Sum> sum_taps(const chroma_place& place, Sum centre_weight,
                                   const Weight& weight, const Taps& taps) {
  const chroma_pixel centre = place.at(0);
  weighted_sums<Sum> sums = {centre_weight, centre_weight * centre.u, centre_weight * centre.v};
  taps([&](ptrdiff_t offset) {
    const chroma_pixel tap = place.at(offset);
    const int w = weight(tap);
    sums.weight += w;
    sums.a += w * tap.u;
    sums.b += w * tap.v;
  });
  return sums;
}

// The same with the range weights and colour edges of a tuning, a chroma_weights.
template <typename Sum, typename Weights, typename Taps>
inline weighted_sums<Sum> filter_sums(const chroma_place& place, Sum centre_weight,
                                      const Weights& weights, int radial, const Taps& taps) {
  const chroma_pixel centre = place.at(0);
  const int grey_sq = grey_distance_sq(centre.u, centre.v);
  const auto weight = [&](const chroma_pixel& tap) {
    return weights
        .weight[range_index(centre, tap, weights.edge_a, weights.edge_b, grey_sq, radial)];
  };
  return sum_taps(place, centre_weight, weight, taps);
}

// A sum over its weight as the planes store it, with a bias of quarters / 4 of the weight. Above
// 255 it is 255. It is negative only for level modes that the driver never sets; then its low 8
// bits are stored.
template <typename Sum>
inline uint8_t dithered_quotient(Sum sum, Sum weight, Sum quarters) {
  const Sum q = (sum + weight / 4 * quarters) / weight;
  return static_cast<uint8_t>(q < 255 ? q : 255);
}

constexpr int kDitherCentreWeight = 256;

// x moved away from 128 by gain / 16 of its distance, rounded half up. The product wraps as a
// 32-bit one: gains beyond the tuning range are defined, if not useful.
inline uint8_t with_gain(uint8_t x, int gain) {
  const int y = x + (wrapping_sum(wrapping_product(x - 128, gain), 8) >> 4);
  return static_cast<uint8_t>(y < 0 ? 0 : y > 255 ? 255 : y);
}

// The finer fixed point of the masked and merging passes: the centre weighs 32768, and a quotient
// is a product with a tabulated 2^20 / n after both sums lose 11 bits.
constexpr int kFineCentreWeight = 32768;

inline uint8_t fine_quotient(int64_t sum, int64_t weight) {
  const int64_t n = (weight + 1024) >> 11;  // 16 for the centre alone
  const int64_t reciprocal =
      chroma_mask_reciprocals()[n < kMaskReciprocals ? n : kMaskReciprocals - 1];
  const int64_t value = reciprocal * ((sum + 1024) >> 11);
  return static_cast<uint8_t>(value < 266862592 ? (value + 524288) >> 20 : 255);
}

}  // namespace vorn
