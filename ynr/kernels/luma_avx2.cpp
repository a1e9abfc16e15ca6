// Leaf kernels for AVX2 with fused multiply-add: 32 pixels per step for distances, two blocks per
// vector for the blend. Tiles hold pixels - 128 as signed bytes.
//
// Compiled for AVX2 while the rest of the library is not: nothing here may end up as a shared copy
// of an inline function, so everything is static and nothing comes from the standard library.
#include <immintrin.h>

#include <cstddef>

#include "ynr/kernels/luma_avx2_weights.h"
#include "ynr/kernels/luma_kernels.h"

namespace vorn {
namespace {

static void fetch(unsigned char* to, const unsigned char* from, int count) {
  const __m256i bias = _mm256_set1_epi8(-128);
  int x = 0;
  for (; x + 32 <= count; x += 32) store(to + x, _mm256_xor_si256(load(from + x), bias));
  if (x == count) return;
  if (count >= 32)  // the last ones once more
    store(to + count - 32, _mm256_xor_si256(load(from + count - 32), bias));
  else
    for (; x < count; ++x) to[x] = static_cast<unsigned char>(from[x] ^ 0x80);
}

// Distances of 8 blocks in 32-bit lanes. The difference of signed bytes saturates far above the
// clip of 49, and four clipped rows add up as bytes (196).
template <int Dx, int Dy>
static inline __m256i displaced(const __m256i (&cur)[4], const unsigned char* tile) {
  const __m256i clip = _mm256_set1_epi8(49);
  const unsigned char* nei = tile + Dy * kTilePitch + Dx;
  __m256i sum = _mm256_setzero_si256();
  for (int r = 0; r < 4; ++r) {
    const __m256i difference = _mm256_subs_epi8(cur[r], load(nei + r * kTilePitch));
    const __m256i clipped = _mm256_min_epu8(_mm256_abs_epi8(difference), clip);
    sum = r == 0 ? clipped : _mm256_add_epi8(sum, clipped);
  }
  return _mm256_madd_epi16(_mm256_maddubs_epi16(sum, _mm256_set1_epi8(1)), _mm256_set1_epi16(1));
}

// The rules' fields of 8 blocks, each block twice, in the order of packed distances.
struct rule_lanes {
  __m256i bias, factor, shift_factor;
};

static inline rule_lanes load_rules(const index_rule* rules) {
  // A half each: blocks 0 and 4, 1 and 5, ...; two rounds of interleaving put their fields
  // together.
  const __m256i a = load_halves(rules, rules + 4), b = load_halves(rules + 2, rules + 6);
  const __m256i low = _mm256_unpacklo_epi16(a, b), high = _mm256_unpackhi_epi16(a, b);
  const __m256i first = _mm256_unpacklo_epi16(low, high);   // biases, factors
  const __m256i second = _mm256_unpackhi_epi16(low, high);  // shifts, shift factors
  return {_mm256_unpacklo_epi64(first, first), _mm256_unpackhi_epi64(first, first),
          _mm256_unpackhi_epi64(second, second)};
}

static inline __m256i indices(__m256i first, __m256i second, const rule_lanes& rule) {
  const __m256i distance = _mm256_packus_epi32(first, second);
  const __m256i scaled = _mm256_add_epi16(_mm256_slli_epi16(distance, 6), rule.bias);
  return _mm256_mulhi_epu16(_mm256_mulhi_epu16(scaled, rule.factor), rule.shift_factor);
}

template <int D>
static inline void side_indices(const __m256i (&cur)[4], const unsigned char* tile,
                                const rule_lanes& rule, int half, __m256i (*index)[2]) {
  index[0][half] = indices(displaced<-D, -D>(cur, tile), displaced<D, -D>(cur, tile), rule);
  index[1][half] = indices(displaced<-D, 0>(cur, tile), displaced<D, 0>(cur, tile), rule);
  index[2][half] = indices(displaced<-D, D>(cur, tile), displaced<D, D>(cur, tile), rule);
}

template <int Dy1, int Dy2>
static inline __m256i column_indices(const __m256i (&cur)[4], const unsigned char* tile,
                                     const rule_lanes& rule) {
  return indices(displaced<0, Dy1>(cur, tile), displaced<0, Dy2>(cur, tile), rule);
}

template <int Rings>
static void make_indices(const unsigned char* tile, const index_rule* rules, run_pairs* pairs) {
  for (int half = 0; half < 2; ++half, tile += 32, rules += 8) {
    const rule_lanes rule = load_rules(rules);
    __m256i cur[4];
    for (int r = 0; r < 4; ++r) cur[r] = load(tile + r * kTilePitch);
    side_indices<1>(cur, tile, rule, half, pairs->index);
    if (Rings >= 2) side_indices<2>(cur, tile, rule, half, pairs->index + 3);
    if (Rings >= 3) side_indices<3>(cur, tile, rule, half, pairs->index + 6);
    // See columns: the pairs that stand together there, and the two singles last.
    __m256i(*column)[2] = pairs->index + 3 * Rings;
    if (Rings == 1) column[0][half] = column_indices<-1, 1>(cur, tile, rule);
    if (Rings == 2) {
      column[0][half] = column_indices<-2, -1>(cur, tile, rule);
      column[1][half] = column_indices<1, 2>(cur, tile, rule);
    }
    if (Rings == 3) {
      column[0][half] = column_indices<-3, -2>(cur, tile, rule);
      column[1][half] = column_indices<1, 2>(cur, tile, rule);
      column[2][half] = column_indices<-1, 3>(cur, tile, rule);
    }
  }
}

// The centre column's weights from Rings rows above to Rings rows below in pairs of rows, the block
// itself (256) included; the last row stands alone, as the second one.
template <int Rings>
static inline void columns(const run_pairs& pairs, int half, __m256i (&column)[Rings + 1]) {
  const __m256i first = _mm256_set1_epi32(0xFFFF);
  const auto at = [&](int i) { return pairs.weight[3 * Rings + i][half]; };
  if (Rings == 1) {
    column[0] = _mm256_or_si256(_mm256_and_si256(at(0), first), _mm256_set1_epi32(256 << 16));
    column[1] = _mm256_andnot_si256(first, at(0));
  }
  if (Rings == 2) {
    column[0] = at(0);
    column[1] = _mm256_or_si256(_mm256_slli_epi32(at(1), 16), _mm256_set1_epi32(256));
    column[Rings] = _mm256_andnot_si256(first, at(1));
  }
  if (Rings == 3) {
    column[0] = at(0);
    column[1] = _mm256_or_si256(_mm256_and_si256(at(2), first), _mm256_set1_epi32(256 << 16));
    column[Rings - 1] = at(1);
    column[Rings] = _mm256_andnot_si256(first, at(2));
  }
}

// The refined reciprocals of runtime/reciprocal.h: the 8-bit estimate, whose whole quotient a
// division gives exactly, and two steps. Totals are 256..6376.
static inline __m256 refined(__m256 x) {
  const __m256i bits = _mm256_castps_si256(x), one = _mm256_set1_epi32(1);
  const __m256i byte = _mm256_set1_epi32(0xFF);
  const __m256i scaled = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(bits, 15), byte),
                                         _mm256_set1_epi32(0x100));
  const __m256i divisor = _mm256_add_epi32(_mm256_slli_epi32(scaled, 1), one);
  const __m256i quotient =
      _mm256_cvttps_epi32(_mm256_div_ps(_mm256_set1_ps(524288.0f), _mm256_cvtepi32_ps(divisor)));
  const __m256i mantissa =
      _mm256_and_si256(_mm256_srli_epi32(_mm256_add_epi32(quotient, one), 1), byte);
  const __m256i exponent = _mm256_sub_epi32(_mm256_set1_epi32(253), _mm256_srli_epi32(bits, 23));
  __m256 e = _mm256_castsi256_ps(
      _mm256_or_si256(_mm256_slli_epi32(exponent, 23), _mm256_slli_epi32(mantissa, 15)));
  const __m256 two = _mm256_set1_ps(2.0f);
  e = _mm256_mul_ps(e, _mm256_fnmadd_ps(x, e, two));
  return _mm256_mul_ps(e, _mm256_fnmadd_ps(x, e, two));
}

// Of both rules, for 8 blocks; exact_reciprocals() are one float above the nearest.
static inline __m256 reciprocals(__m256i total, uint32_t exact) {
  const __m256 x = _mm256_cvtepi32_ps(total);
  const __m256 r = refined(x);
  if (!exact) return r;
  const __m256i bit = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
  const __m256i wanted =
      _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(static_cast<int>(exact)), bit), bit);
  const __m256i nearest = _mm256_castps_si256(_mm256_div_ps(_mm256_set1_ps(1.0f), x));
  return _mm256_blendv_ps(r, _mm256_castsi256_ps(_mm256_add_epi32(nearest, _mm256_set1_epi32(1))),
                          _mm256_castsi256_ps(wanted));
}

template <int Lane>
static inline void add(__m256i* sum, __m256i pixels, const __m256i& weights) {
  *sum =
      _mm256_add_epi32(*sum, _mm256_madd_epi16(pixels, _mm256_shuffle_epi32(weights, Lane * 0x55)));
}

// What the blend of 8 blocks needs: weights as above, sums to start from, reciprocals.
template <int Rings>
struct half_weights {
  const __m256i (*sides)[2];  // row above, own row, row below of each ring
  __m256i column[Rings + 1];
  __m256i start;
  __m256 reciprocal;
};

// Blocks Lane and 4 + Lane of a half, four rows of weighted sums each. Pixels enter as the upper
// bytes of words, 256 (p - 128): what that takes away stands in the sums from the start, and 256
// goes out with the reciprocal, which rounds nothing.
template <int Rings, int Half, int Lane>
static inline void blend_blocks(const unsigned char* tile, const half_weights<Rings>& w,
                                __m256i (&sum)[4]) {
  const __m256i side_bytes[kMaxRings] = {
      _mm256_broadcastsi128_si256(
          _mm_setr_epi8(-1, 2, -1, 4, -1, 3, -1, 5, -1, 4, -1, 6, -1, 5, -1, 7)),
      _mm256_broadcastsi128_si256(
          _mm_setr_epi8(-1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1, 4, -1, 8)),
      _mm256_broadcastsi128_si256(
          _mm_setr_epi8(-1, 0, -1, 6, -1, 1, -1, 7, -1, 2, -1, 8, -1, 3, -1, 9))};
  // Of the first eight bytes of two rows.
  const __m256i centre_bytes = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(-1, 3, -1, 11, -1, 4, -1, 12, -1, 5, -1, 13, -1, 6, -1, 14));
  const unsigned char* block = tile + 32 * Half + 4 * Lane - kMaxRings;
  for (int r = 0; r < 4; ++r) sum[r] = _mm256_shuffle_epi32(w.start, Lane * 0x55);
  __m256i above = _mm256_setzero_si256();  // the row before
#pragma GCC unroll 10
  for (int row = -Rings; row <= 3 + Rings; ++row) {
    const unsigned char* at = block + row * kTilePitch;
    const __m256i pixels = load(at);  // 16 bytes of either block
#pragma GCC unroll 3
    for (int ring = 0; ring < Rings; ++ring) {
      const int d = ring + 1;
      if (row < -d || row > 3 + d) continue;
      const __m256i sides = _mm256_shuffle_epi8(pixels, side_bytes[ring]);
      const __m256i(*of)[2] = w.sides + 3 * ring;
      if (row + d < 4) add<Lane>(&sum[row + d], sides, of[0][Half]);
      if (row >= 0 && row < 4) add<Lane>(&sum[row], sides, of[1][Half]);
      if (row - d >= 0) add<Lane>(&sum[row - d], sides, of[2][Half]);
    }
    // The centre column in pairs of rows: (row - 1, row) is pair i of the output row whose rows
    // 2 i - R and 2 i - R + 1 they are; of the last pair only the second row counts.
    const __m256i both = _mm256_shuffle_epi8(_mm256_unpacklo_epi64(above, pixels), centre_bytes);
#pragma GCC unroll 4
    for (int i = 0; i < Rings; ++i) {
      const int r = row - 1 - (2 * i - Rings);
      if (r >= 0 && r < 4) add<Lane>(&sum[r], both, w.column[i]);
    }
    if (row - Rings >= 0) add<Lane>(&sum[row - Rings], both, w.column[Rings]);
    above = pixels;
    // The sums so far stay in registers: compilers else put products off and store them.
    asm("" : "+x"(sum[0]), "+x"(sum[1]), "+x"(sum[2]), "+x"(sum[3]));
  }
}

// Four rows of two blocks to bytes: per half 4 pixels of row 0, 1, 2, 3.
template <int Rings, int Half, int Lane>
static inline __m256i pixels_of(const unsigned char* tile, const half_weights<Rings>& w) {
  __m256i sum[4];
  blend_blocks<Rings, Half, Lane>(tile, w, sum);
  const __m256 r = _mm256_permute_ps(w.reciprocal, Lane * 0x55);
  for (int row = 0; row < 4; ++row) {
    const __m256 mean = _mm256_mul_ps(_mm256_cvtepi32_ps(sum[row]), r);
    sum[row] = _mm256_cvttps_epi32(_mm256_add_ps(_mm256_set1_ps(0.5f), mean));
  }
  return _mm256_packus_epi16(_mm256_packus_epi32(sum[0], sum[1]),
                             _mm256_packus_epi32(sum[2], sum[3]));
}

template <int Rings, int Half>
static inline void blend_half(const unsigned char* tile, const run_pairs& pairs, uint32_t exact,
                              unsigned char* out, ptrdiff_t out_stride) {
  half_weights<Rings> w;
  w.sides = pairs.weight;
  columns<Rings>(pairs, Half, w.column);
  w.start = _mm256_slli_epi32(pairs.total[Half], 15);
  w.reciprocal =
      _mm256_mul_ps(reciprocals(pairs.total[Half], exact >> 8 * Half), _mm256_set1_ps(1.0f / 256));
  const __m256i a = pixels_of<Rings, Half, 0>(tile, w), b = pixels_of<Rings, Half, 1>(tile, w);
  const __m256i c = pixels_of<Rings, Half, 2>(tile, w), d = pixels_of<Rings, Half, 3>(tile, w);
  // Four pairs of blocks of four rows each to four rows of eight blocks.
  const __m256i ab_low = _mm256_unpacklo_epi32(a, b), ab_high = _mm256_unpackhi_epi32(a, b);
  const __m256i cd_low = _mm256_unpacklo_epi32(c, d), cd_high = _mm256_unpackhi_epi32(c, d);
  out += 32 * Half;
  store(out, _mm256_unpacklo_epi64(ab_low, cd_low));
  store(out + out_stride, _mm256_unpackhi_epi64(ab_low, cd_low));
  store(out + 2 * out_stride, _mm256_unpacklo_epi64(ab_high, cd_high));
  store(out + 3 * out_stride, _mm256_unpackhi_epi64(ab_high, cd_high));
}

template <int Rings>
static void filter(const unsigned char* tile, const run_rules* rules, int runs, unsigned char* out,
                   int out_stride, unsigned char* /*carry*/, bool /*first*/) {
  for (; runs > 0; --runs, ++rules, tile += kRunPixels, out += kRunPixels) {
    run_pairs pairs;
    make_indices<Rings>(tile, rules->masks->of, &pairs);
    look_up(pairs_of(Rings), rules->table, &pairs);
    blend_half<Rings, 0>(tile, pairs, rules->exact & 0xFF, out, out_stride);
    blend_half<Rings, 1>(tile, pairs, rules->exact & 0xFF00, out, out_stride);
  }
}

}  // namespace

const luma_kernels kLumaAvx2 = {0x80, false, fetch, {filter<1>, filter<2>, filter<3>}};

}  // namespace vorn
