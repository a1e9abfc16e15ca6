// Leaf kernels for every x86-64: 16 pixels per step for distances, 8 for the blend.
#include <emmintrin.h>

#include <cstddef>

#include "ynr/kernels/luma_kernels.h"

namespace vorn {
namespace {

static inline __m128i load(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

// Distances of four blocks in 32-bit lanes; four rows of clipped differences add up as bytes (196).
template <int Dx, int Dy>
static inline __m128i displaced(const __m128i (&cur)[4], const unsigned char* tile) {
  const __m128i clip = _mm_set1_epi8(49);
  const unsigned char* nei = tile + Dy * kTilePitch + Dx;
  __m128i sum = _mm_setzero_si128();
  for (int r = 0; r < 4; ++r) {
    const __m128i pixels = load(nei + r * kTilePitch);
    const __m128i difference =
        _mm_or_si128(_mm_subs_epu8(cur[r], pixels), _mm_subs_epu8(pixels, cur[r]));
    const __m128i clipped = _mm_min_epu8(difference, clip);
    sum = r == 0 ? clipped : _mm_add_epi8(sum, clipped);
  }
  const __m128i pairs =
      _mm_add_epi16(_mm_and_si128(sum, _mm_set1_epi16(0xFF)), _mm_srli_epi16(sum, 8));
  return _mm_madd_epi16(pairs, _mm_set1_epi16(1));
}

static inline void store_two(uint16_t (*distance)[kRunBlocks], __m128i first, __m128i second) {
  const __m128i words = _mm_packs_epi32(first, second);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(distance[0]), words);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(distance[1]), _mm_srli_si128(words, 8));
}

template <int D>
static inline void ring_distances(const __m128i (&cur)[4], const unsigned char* tile,
                                  uint16_t (*distance)[kRunBlocks]) {
  store_two(distance, displaced<-D, 0>(cur, tile), displaced<D, 0>(cur, tile));
  store_two(distance + 2, displaced<-D, -D>(cur, tile), displaced<0, -D>(cur, tile));
  store_two(distance + 4, displaced<D, -D>(cur, tile), displaced<-D, D>(cur, tile));
  store_two(distance + 6, displaced<0, D>(cur, tile), displaced<D, D>(cur, tile));
}

static void distances(const unsigned char* tile, int rings, uint16_t (*distance)[kRunBlocks]) {
  for (int first = 0; first < kRunBlocks; first += 4, tile += 16) {
    __m128i cur[4];
    for (int r = 0; r < 4; ++r) cur[r] = load(tile + r * kTilePitch);
    uint16_t(*out)[kRunBlocks] = reinterpret_cast<uint16_t(*)[kRunBlocks]>(&distance[0][first]);
    ring_distances<1>(cur, tile, out);
    if (rings >= 2) ring_distances<2>(cur, tile, out + kNeighbours);
    if (rings >= 3) ring_distances<3>(cur, tile, out + 2 * kNeighbours);
  }
}

struct rule_lanes {
  __m128i bias, factor, shift_factor;
};

// The fields of eight rules, a field per vector.
static inline rule_lanes load_rules(const index_rule* rules) {
  const __m128i a = load(rules), b = load(rules + 2), c = load(rules + 4), d = load(rules + 6);
  const __m128i ab_low = _mm_unpacklo_epi16(a, b), ab_high = _mm_unpackhi_epi16(a, b);
  const __m128i cd_low = _mm_unpacklo_epi16(c, d), cd_high = _mm_unpackhi_epi16(c, d);
  const __m128i ab_first = _mm_unpacklo_epi16(ab_low, ab_high);   // biases, factors
  const __m128i ab_second = _mm_unpackhi_epi16(ab_low, ab_high);  // shifts, shift factors
  const __m128i cd_first = _mm_unpacklo_epi16(cd_low, cd_high);
  const __m128i cd_second = _mm_unpackhi_epi16(cd_low, cd_high);
  return {_mm_unpacklo_epi64(ab_first, cd_first), _mm_unpackhi_epi64(ab_first, cd_first),
          _mm_unpackhi_epi64(ab_second, cd_second)};
}

// Indices in vectors, weights from memory.
static void look_up(const uint16_t (*distance)[kRunBlocks], int rings, const index_rule* rules,
                    const weight_table* table, unsigned char (*weight)[kRunBlocks],
                    uint16_t* total) {
  const unsigned char* of = table->of;
  for (int first = 0; first < kRunBlocks; first += 8) {
    const rule_lanes rule = load_rules(rules + first);
    __m128i sum = _mm_set1_epi16(256);
    for (int n = 0; n < rings * kNeighbours; ++n) {
      const __m128i scaled = _mm_add_epi16(_mm_slli_epi16(load(distance[n] + first), 6), rule.bias);
      // Below 32768, so that the signed minimum does.
      const __m128i index =
          _mm_min_epi16(_mm_mulhi_epu16(_mm_mulhi_epu16(scaled, rule.factor), rule.shift_factor),
                        _mm_set1_epi16(799));
      const uint64_t low = static_cast<uint64_t>(_mm_cvtsi128_si64(index));
      const uint64_t high = static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_srli_si128(index, 8)));
      unsigned char* w = weight[n] + first;
      for (int i = 0; i < 4; ++i) {
        w[i] = of[low >> (16 * i) & 0xFFFF];
        w[4 + i] = of[high >> (16 * i) & 0xFFFF];
      }
      sum =
          _mm_add_epi16(sum, _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(w)),
                                               _mm_setzero_si128()));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(total + first), sum);
  }
}

// Weights of two neighbours as pairs of 16-bit words, four blocks per vector.
static inline void to_pairs(const unsigned char* first, const unsigned char* second,
                            __m128i (&pairs)[4]) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i bytes_low = _mm_unpacklo_epi8(load(first), load(second));
  const __m128i bytes_high = _mm_unpackhi_epi8(load(first), load(second));
  pairs[0] = _mm_unpacklo_epi8(bytes_low, zero);
  pairs[1] = _mm_unpackhi_epi8(bytes_low, zero);
  pairs[2] = _mm_unpacklo_epi8(bytes_high, zero);
  pairs[3] = _mm_unpackhi_epi8(bytes_high, zero);
}

template <int Rings>
struct run_weights {
  __m128i sides[Rings][3][4];  // left and right pixel of the row above, own row, row below
  __m128i column[Rings][4];    // centre column: the rows d above and d below
};

// Pixel pairs of eight pixels (two blocks): words (first, second) per pixel.
struct pixel_pairs {
  __m128i left, right;  // block by block
};

static inline pixel_pairs pair_up(__m128i first, __m128i second) {
  const __m128i bytes = _mm_unpacklo_epi8(first, second);
  return {_mm_unpacklo_epi8(bytes, _mm_setzero_si128()),
          _mm_unpackhi_epi8(bytes, _mm_setzero_si128())};
}

static inline __m128i load8(const unsigned char* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

template <int Pair>
static inline void add(__m128i (&sum)[2], const pixel_pairs& pixels, const __m128i& weights) {
  sum[0] = _mm_add_epi32(
      sum[0], _mm_madd_epi16(pixels.left, _mm_shuffle_epi32(weights, (2 * Pair) * 0x55)));
  sum[1] = _mm_add_epi32(
      sum[1], _mm_madd_epi16(pixels.right, _mm_shuffle_epi32(weights, (2 * Pair + 1) * 0x55)));
}

// Blocks 4 group + 2 Pair and the next one.
template <int Rings, int Pair>
static inline void blend_pair(const unsigned char* tile, const run_weights<Rings>& w, int group,
                              __m128i (&sum)[4][2]) {
  const __m128i zero = _mm_setzero_si128();
  for (int r = 0; r < 4; ++r) {  // the blocks themselves, weight 256
    const __m128i centre = _mm_unpacklo_epi8(zero, load8(tile + r * kTilePitch));
    sum[r][0] = _mm_unpacklo_epi16(centre, zero);
    sum[r][1] = _mm_unpackhi_epi16(centre, zero);
  }
#pragma GCC unroll 3
  for (int ring = 0; ring < Rings; ++ring) {
    const int d = ring + 1;
#pragma GCC unroll 10
    for (int row = -d; row <= 3 + d; ++row) {
      const unsigned char* at = tile + row * kTilePitch;
      const pixel_pairs sides = pair_up(load8(at - d), load8(at + d));
      if (row + d < 4) add<Pair>(sum[row + d], sides, w.sides[ring][0][group]);
      if (row >= 0 && row < 4) add<Pair>(sum[row], sides, w.sides[ring][1][group]);
      if (row - d >= 0) add<Pair>(sum[row - d], sides, w.sides[ring][2][group]);
    }
#pragma GCC unroll 4
    for (int r = 0; r < 4; ++r) {
      const unsigned char* at = tile + r * kTilePitch;
      add<Pair>(sum[r], pair_up(load8(at - d * kTilePitch), load8(at + d * kTilePitch)),
                w.column[ring][group]);
    }
  }
}

static inline __m128i pixels_of(__m128i sum, __m128 reciprocal) {
  const __m128 mean = _mm_mul_ps(_mm_cvtepi32_ps(sum), reciprocal);
  return _mm_cvttps_epi32(_mm_add_ps(_mm_set1_ps(0.5f), mean));
}

template <int Rings>
static void blend(const unsigned char* tile, const unsigned char (*weight)[kRunBlocks],
                  const float* reciprocal, unsigned char* out, int out_stride) {
  run_weights<Rings> w;
  for (int ring = 0; ring < Rings; ++ring) {
    const unsigned char(*of)[kRunBlocks] = weight + ring * kNeighbours;
    to_pairs(of[2], of[4], w.sides[ring][0]);
    to_pairs(of[0], of[1], w.sides[ring][1]);
    to_pairs(of[5], of[7], w.sides[ring][2]);
    to_pairs(of[3], of[6], w.column[ring]);
  }
  for (int group = 0; group < 4; ++group, tile += 16, out += 16) {
    const __m128 r = _mm_loadu_ps(reciprocal + 4 * group);
    __m128i first[4][2], second[4][2];
    blend_pair<Rings, 0>(tile, w, group, first);
    blend_pair<Rings, 1>(tile + 8, w, group, second);
    for (int row = 0; row < 4; ++row) {
      const __m128i low = _mm_packs_epi32(pixels_of(first[row][0], _mm_shuffle_ps(r, r, 0x00)),
                                          pixels_of(first[row][1], _mm_shuffle_ps(r, r, 0x55)));
      const __m128i high = _mm_packs_epi32(pixels_of(second[row][0], _mm_shuffle_ps(r, r, 0xAA)),
                                           pixels_of(second[row][1], _mm_shuffle_ps(r, r, 0xFF)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + row * static_cast<ptrdiff_t>(out_stride)),
                       _mm_packus_epi16(low, high));
    }
  }
}

template <int Rings>
void filter(const unsigned char* tile, const run_rules* rules, int runs, unsigned char* out,
            int out_stride, unsigned char* /*carry*/, bool /*first*/) {
  filter_in_phases({distances, look_up, blend<Rings>}, Rings, tile, rules, runs, out, out_stride);
}

}  // namespace

const luma_kernels kLumaSse2 = {0, false, fetch_unchanged, {filter<1>, filter<2>, filter<3>}};

}  // namespace vorn
