// Leaf kernels for AVX2: 32 pixels per step for distances, two blocks per vector for the blend.
//
// Compiled for AVX2 while the rest of the library is not: nothing here may end up as a shared copy
// of an inline function, so everything is static and nothing comes from the standard library.
#include <immintrin.h>

#include <cstddef>

#include "ynr/luma_kernels.h"

namespace vorn {
namespace {

static inline __m256i load(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}

static inline __m256i load_halves(const void* low, const void* high) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(low))),
      _mm_loadu_si128(static_cast<const __m128i*>(high)), 1);
}

static inline void store_halves(void* low, void* high, __m256i v) {
  _mm_storeu_si128(static_cast<__m128i*>(low), _mm256_castsi256_si128(v));
  _mm_storeu_si128(static_cast<__m128i*>(high), _mm256_extracti128_si256(v, 1));
}

// Distances of 8 blocks in 32-bit lanes. Pixels are biased to signed bytes: their difference then
// saturates far above the clip of 49, and four clipped rows add up as bytes (196).
template <int Dx, int Dy>
static inline __m256i displaced(const __m256i (&cur)[4], const unsigned char* biased) {
  const __m256i clip = _mm256_set1_epi8(49);
  const unsigned char* nei = biased + Dy * kTilePitch + Dx;
  __m256i sum = _mm256_setzero_si256();
  for (int r = 0; r < 4; ++r) {
    const __m256i difference = _mm256_subs_epi8(cur[r], load(nei + r * kTilePitch));
    const __m256i clipped = _mm256_min_epu8(_mm256_abs_epi8(difference), clip);
    sum = r == 0 ? clipped : _mm256_add_epi8(sum, clipped);
  }
  return _mm256_madd_epi16(_mm256_maddubs_epi16(sum, _mm256_set1_epi8(1)), _mm256_set1_epi16(1));
}

static inline void store_two(uint16_t (*distance)[kRunBlocks], __m256i first, __m256i second) {
  const __m256i words = _mm256_packus_epi32(first, second);
  store_halves(distance[0], distance[1], _mm256_permute4x64_epi64(words, 0xD8));
}

template <int D>
static inline void ring_distances(const __m256i (&cur)[4], const unsigned char* biased,
                                  uint16_t (*distance)[kRunBlocks]) {
  store_two(distance, displaced<-D, 0>(cur, biased), displaced<D, 0>(cur, biased));
  store_two(distance + 2, displaced<-D, -D>(cur, biased), displaced<0, -D>(cur, biased));
  store_two(distance + 4, displaced<D, -D>(cur, biased), displaced<-D, D>(cur, biased));
  store_two(distance + 6, displaced<0, D>(cur, biased), displaced<D, D>(cur, biased));
}

static void distances(const unsigned char* tile, int rings, uint16_t (*distance)[kRunBlocks]) {
  alignas(32) unsigned char copy[kTileRows * kTilePitch];
  unsigned char* biased = copy + kMaxRings * kTilePitch + kTileMargin;
  const __m256i bias = _mm256_set1_epi8(-128);
  for (int r = -rings; r < 4 + rings; ++r) {
    for (int x = -kTileMargin; x < kRunPixels + kTileMargin; x += 32) {
      const int at = r * kTilePitch + x;
      _mm256_store_si256(reinterpret_cast<__m256i*>(biased + at),
                         _mm256_xor_si256(load(tile + at), bias));
    }
  }
  for (int first = 0; first < kRunBlocks; first += 8, biased += 32) {
    __m256i cur[4];
    for (int r = 0; r < 4; ++r) cur[r] = load(biased + r * kTilePitch);
    uint16_t(*out)[kRunBlocks] = reinterpret_cast<uint16_t(*)[kRunBlocks]>(&distance[0][first]);
    ring_distances<1>(cur, biased, out);
    if (rings >= 2) ring_distances<2>(cur, biased, out + kNeighbours);
    if (rings >= 3) ring_distances<3>(cur, biased, out + 2 * kNeighbours);
  }
}

// The rules' fields of 16 blocks, a field per vector.
struct rule_lanes {
  __m256i bias, factor, shift_factor;
};

static inline rule_lanes load_rules(const index_rule* rules) {
  // Halves hold blocks 0..3 and 8..11, 4..7 and 12..15; two rounds of interleaving pick the fields.
  const __m256i a = load_halves(rules, rules + 8), b = load_halves(rules + 2, rules + 10);
  const __m256i c = load_halves(rules + 4, rules + 12), d = load_halves(rules + 6, rules + 14);
  const __m256i ab_low = _mm256_unpacklo_epi16(a, b), ab_high = _mm256_unpackhi_epi16(a, b);
  const __m256i cd_low = _mm256_unpacklo_epi16(c, d), cd_high = _mm256_unpackhi_epi16(c, d);
  const __m256i ab_first = _mm256_unpacklo_epi16(ab_low, ab_high);   // biases, factors
  const __m256i ab_second = _mm256_unpackhi_epi16(ab_low, ab_high);  // shifts, shift factors
  const __m256i cd_first = _mm256_unpacklo_epi16(cd_low, cd_high);
  const __m256i cd_second = _mm256_unpackhi_epi16(cd_low, cd_high);
  return {_mm256_unpacklo_epi64(ab_first, cd_first), _mm256_unpackhi_epi64(ab_first, cd_first),
          _mm256_unpackhi_epi64(ab_second, cd_second)};
}

static inline __m256i indices(const uint16_t* distance, const rule_lanes& rule) {
  const __m256i scaled = _mm256_add_epi16(_mm256_slli_epi16(load(distance), 6), rule.bias);
  return _mm256_mulhi_epu16(_mm256_mulhi_epu16(scaled, rule.factor), rule.shift_factor);
}

// The table as the exclusive-or of neighbouring 16-byte segments: adding up (by exclusive or) the
// segments that an index has reached leaves the one it is in. An index below a segment turns
// negative there and selects 0.
template <int Segments>
struct segmented_table {
  __m256i step[Segments];
  explicit segmented_table(const unsigned char* of) {
    __m128i before = _mm_setzero_si128();
    for (int k = 0; k < Segments; ++k) {
      const __m128i segment = _mm_loadu_si128(reinterpret_cast<const __m128i*>(of + 16 * k));
      step[k] = _mm256_broadcastsi128_si256(_mm_xor_si128(segment, before));
      before = segment;
    }
  }
  // index: 0..16 * Segments - 1, or a negative byte for 0.
  __m256i at(__m256i index) const {
    __m256i found = _mm256_shuffle_epi8(step[0], index);
    for (int k = 1; k < Segments; ++k) {
      index = _mm256_sub_epi8(index, _mm256_set1_epi8(16));
      found = _mm256_xor_si256(found, _mm256_shuffle_epi8(step[k], index));
    }
    return found;
  }
};

// Weights of 32 indices from a table whose last entry is 0.
template <int Segments>
struct table_of {
  segmented_table<Segments> low;
  explicit table_of(const unsigned char* of) : low(of) {}
  __m256i at(__m256i index) const {
    return low.at(_mm256_min_epu8(index, _mm256_set1_epi8(16 * Segments - 1)));
  }
};

template <>
struct table_of<16> {
  segmented_table<8> low, high;
  explicit table_of(const unsigned char* of) : low(of), high(of + 128) {}
  __m256i at(__m256i index) const {
    // All ones, which stay negative through all segments, in the half that the index is not in.
    const __m256i is_high = _mm256_cmpgt_epi8(_mm256_setzero_si256(), index);
    const __m256i in_low = _mm256_or_si256(index, is_high);
    const __m256i in_high = _mm256_or_si256(_mm256_xor_si256(index, _mm256_set1_epi8(-128)),
                                            _mm256_xor_si256(is_high, _mm256_set1_epi8(-1)));
    return _mm256_or_si256(low.at(in_low), high.at(in_high));
  }
};

template <int Segments>
static void look_up_in_registers(const uint16_t (*distance)[kRunBlocks], int neighbours,
                                 const index_rule* rules, const unsigned char* of,
                                 unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  const table_of<Segments> table(of);
  const rule_lanes rule = load_rules(rules);
  const __m256i interleave = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15));
  __m256i sum = _mm256_set1_epi16(256);
  for (int n = 0; n < neighbours; n += 2) {
    // Per half: eight blocks of neighbour n, then the same blocks of neighbour n + 1.
    const __m256i index =
        _mm256_packus_epi16(indices(distance[n], rule), indices(distance[n + 1], rule));
    const __m256i w = table.at(index);
    store_halves(weight[n], weight[n + 1], _mm256_permute4x64_epi64(w, 0xD8));
    sum = _mm256_add_epi16(
        sum, _mm256_maddubs_epi16(_mm256_shuffle_epi8(w, interleave), _mm256_set1_epi8(1)));
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(total), sum);
}

static void look_up_in_memory(const uint16_t (*distance)[kRunBlocks], int neighbours,
                              const index_rule* rules, const unsigned char* of,
                              unsigned char (*weight)[kRunBlocks], uint16_t* total) {
  const rule_lanes rule = load_rules(rules);
  __m256i sum = _mm256_set1_epi16(256);
  for (int n = 0; n < neighbours; ++n) {
    alignas(32) uint16_t index[kRunBlocks];
    _mm256_store_si256(reinterpret_cast<__m256i*>(index),
                       _mm256_min_epu16(indices(distance[n], rule), _mm256_set1_epi16(799)));
    for (int i = 0; i < kRunBlocks; ++i) weight[n][i] = of[index[i]];
    sum = _mm256_add_epi16(
        sum, _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(weight[n]))));
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(total), sum);
}

static void look_up(const uint16_t (*distance)[kRunBlocks], int rings, const index_rule* rules,
                    const weight_table* table, unsigned char (*weight)[kRunBlocks],
                    uint16_t* total) {
  const int neighbours = rings * kNeighbours;
  if (table->support <= 63)
    look_up_in_registers<4>(distance, neighbours, rules, table->of, weight, total);
  else if (table->support <= 127)
    look_up_in_registers<8>(distance, neighbours, rules, table->of, weight, total);
  else if (table->support <= 255)
    look_up_in_registers<16>(distance, neighbours, rules, table->of, weight, total);
  else
    look_up_in_memory(distance, neighbours, rules, table->of, weight, total);
}

// Weights of two neighbours as pairs of 16-bit words: [0] blocks 0..3 and 8..11, [1] 4..7 and
// 12..15, a half of the vector each.
static inline void to_pairs(__m256i first, __m256i second, __m256i (&pairs)[2]) {
  pairs[0] = _mm256_unpacklo_epi16(first, second);
  pairs[1] = _mm256_unpackhi_epi16(first, second);
}

static inline __m256i words_of(const unsigned char* weight) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(weight)));
}

template <int Rings>
struct run_weights {
  __m256i sides[Rings][3][2];    // left and right pixel of the row above, own row, row below
  __m256i column[Rings + 1][2];  // centre column: rows -R and 1 - R, and so on, two per entry
};

// The centre column's weights from R rows above to R rows below, the block itself (256) included.
template <int Rings>
static inline void set_weights(const unsigned char (*weight)[kRunBlocks], run_weights<Rings>* w) {
  __m256i column[2 * Rings + 2];
  column[Rings] = _mm256_set1_epi16(256);
  column[2 * Rings + 1] = _mm256_setzero_si256();
  for (int ring = 0; ring < Rings; ++ring) {
    const unsigned char(*of)[kRunBlocks] = weight + ring * kNeighbours;
    to_pairs(words_of(of[2]), words_of(of[4]), w->sides[ring][0]);
    to_pairs(words_of(of[0]), words_of(of[1]), w->sides[ring][1]);
    to_pairs(words_of(of[5]), words_of(of[7]), w->sides[ring][2]);
    column[Rings - 1 - ring] = words_of(of[3]);
    column[Rings + 1 + ring] = words_of(of[6]);
  }
  for (int i = 0; i <= Rings; ++i) to_pairs(column[2 * i], column[2 * i + 1], w->column[i]);
}

template <int Lane>
static inline void add(__m256i* sum, __m256i pixels, const __m256i& weights) {
  *sum =
      _mm256_add_epi32(*sum, _mm256_madd_epi16(pixels, _mm256_shuffle_epi32(weights, Lane * 0x55)));
}

// Blocks 4 Half + Lane and 8 + 4 Half + Lane: four rows of weighted sums, a block per half.
template <int Rings, int Half, int Lane>
static inline void blend_blocks(const unsigned char* tile, const run_weights<Rings>& w,
                                const __m256i (&side_bytes)[kMaxRings], __m256i (&sum)[4]) {
  const unsigned char* block = tile + 16 * Half + 4 * Lane - kMaxRings;
  const __m256i centre_bytes = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(3, -1, -1, -1, 4, -1, -1, -1, 5, -1, -1, -1, 6, -1, -1, -1));
  for (int r = 0; r < 4; ++r) sum[r] = _mm256_setzero_si256();
  __m256i above = _mm256_setzero_si256();  // centre column of the row before, as low words
#pragma GCC unroll 10
  for (int row = -Rings; row <= 3 + Rings; ++row) {
    const unsigned char* at = block + row * kTilePitch;
    const __m256i pixels = load_halves(at, at + 32);
#pragma GCC unroll 3
    for (int ring = 0; ring < Rings; ++ring) {
      const int d = ring + 1;
      if (row < -d || row > 3 + d) continue;
      const __m256i sides = _mm256_shuffle_epi8(pixels, side_bytes[ring]);
      if (row + d < 4) add<Lane>(&sum[row + d], sides, w.sides[ring][0][Half]);
      if (row >= 0 && row < 4) add<Lane>(&sum[row], sides, w.sides[ring][1][Half]);
      if (row - d >= 0) add<Lane>(&sum[row - d], sides, w.sides[ring][2][Half]);
    }
    // The centre column in pairs of rows: (row - 1, row) is pair i of the output row whose rows
    // 2 i - R and 2 i - R + 1 they are; the last row of a column stands alone.
    const __m256i centre = _mm256_shuffle_epi8(pixels, centre_bytes);
    const __m256i both = _mm256_or_si256(above, _mm256_slli_epi32(centre, 16));
#pragma GCC unroll 4
    for (int i = 0; i < Rings; ++i) {
      const int r = row - 1 - (2 * i - Rings);
      if (r >= 0 && r < 4) add<Lane>(&sum[r], both, w.column[i][Half]);
    }
    if (row - Rings >= 0) add<Lane>(&sum[row - Rings], centre, w.column[Rings][Half]);
    above = centre;
  }
}

// Four rows of two blocks to bytes: per half 4 pixels of row 0, 1, 2, 3.
static inline __m256i normalise(const __m256i (&sum)[4], __m256 reciprocal) {
  __m256i pixels[4];
  for (int r = 0; r < 4; ++r) {
    const __m256 mean = _mm256_mul_ps(_mm256_cvtepi32_ps(sum[r]), reciprocal);
    pixels[r] = _mm256_cvttps_epi32(_mm256_add_ps(_mm256_set1_ps(0.5f), mean));
  }
  return _mm256_packus_epi16(_mm256_packus_epi32(pixels[0], pixels[1]),
                             _mm256_packus_epi32(pixels[2], pixels[3]));
}

template <int Rings, int Half>
static inline void blend_half(const unsigned char* tile, const run_weights<Rings>& w,
                              const __m256i (&side_bytes)[kMaxRings], const float* reciprocal,
                              unsigned char* out, ptrdiff_t out_stride) {
  const __m256 r =
      _mm256_castsi256_ps(load_halves(reciprocal + 4 * Half, reciprocal + 8 + 4 * Half));
  __m256i sum[4];
  blend_blocks<Rings, Half, 0>(tile, w, side_bytes, sum);
  const __m256i a = normalise(sum, _mm256_permute_ps(r, 0x00));
  blend_blocks<Rings, Half, 1>(tile, w, side_bytes, sum);
  const __m256i b = normalise(sum, _mm256_permute_ps(r, 0x55));
  blend_blocks<Rings, Half, 2>(tile, w, side_bytes, sum);
  const __m256i c = normalise(sum, _mm256_permute_ps(r, 0xAA));
  blend_blocks<Rings, Half, 3>(tile, w, side_bytes, sum);
  const __m256i d = normalise(sum, _mm256_permute_ps(r, 0xFF));
  // Four blocks of four rows each to four rows of four blocks.
  const __m256i ab_low = _mm256_unpacklo_epi32(a, b), ab_high = _mm256_unpackhi_epi32(a, b);
  const __m256i cd_low = _mm256_unpacklo_epi32(c, d), cd_high = _mm256_unpackhi_epi32(c, d);
  out += 16 * Half;
  store_halves(out, out + 32, _mm256_unpacklo_epi64(ab_low, cd_low));
  store_halves(out + out_stride, out + out_stride + 32, _mm256_unpackhi_epi64(ab_low, cd_low));
  store_halves(out + 2 * out_stride, out + 2 * out_stride + 32,
               _mm256_unpacklo_epi64(ab_high, cd_high));
  store_halves(out + 3 * out_stride, out + 3 * out_stride + 32,
               _mm256_unpackhi_epi64(ab_high, cd_high));
}

template <int Rings>
static void blend_rings(const unsigned char* tile, const unsigned char (*weight)[kRunBlocks],
                        const float* reciprocal, unsigned char* out, int out_stride) {
  const __m256i side_bytes[kMaxRings] = {
      _mm256_broadcastsi128_si256(
          _mm_setr_epi8(2, -1, 4, -1, 3, -1, 5, -1, 4, -1, 6, -1, 5, -1, 7, -1)),
      _mm256_broadcastsi128_si256(
          _mm_setr_epi8(1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1, 4, -1, 8, -1)),
      _mm256_broadcastsi128_si256(
          _mm_setr_epi8(0, -1, 6, -1, 1, -1, 7, -1, 2, -1, 8, -1, 3, -1, 9, -1))};
  run_weights<Rings> w;
  set_weights<Rings>(weight, &w);
  blend_half<Rings, 0>(tile, w, side_bytes, reciprocal, out, out_stride);
  blend_half<Rings, 1>(tile, w, side_bytes, reciprocal, out, out_stride);
}

static void blend(const unsigned char* tile, int rings, const unsigned char (*weight)[kRunBlocks],
                  const float* reciprocal, unsigned char* out, int out_stride) {
  if (rings == 1) blend_rings<1>(tile, weight, reciprocal, out, out_stride);
  if (rings == 2) blend_rings<2>(tile, weight, reciprocal, out, out_stride);
  if (rings == 3) blend_rings<3>(tile, weight, reciprocal, out, out_stride);
}

}  // namespace

const luma_kernels kLumaAvx2 = {distances, look_up, blend};

}  // namespace vorn
