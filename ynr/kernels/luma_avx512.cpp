// Leaf kernels for AVX-512 (F, BW, VL, VBMI, VNNI): a run's 64 pixels per vector, byte permutes and
// dot products. Tiles hold pixels - 128 as signed bytes.
//
// Compiled for AVX-512 while the rest of the library is not: nothing here may end up as a shared
// copy of an inline function, so everything is static and nothing comes from the standard library.
#include <immintrin.h>

#include <cstddef>

#include "ynr/kernels/luma_kernels.h"

namespace vorn {
namespace {

static inline __m512i load(const void* p) {
  return _mm512_loadu_si512(p);
}

static void fetch(unsigned char* to, const unsigned char* from, int count) {
  const __m512i bias = _mm512_set1_epi8(-128);
  int x = 0;
  for (; x + 64 <= count; x += 64)
    _mm512_storeu_si512(to + x, _mm512_xor_si512(load(from + x), bias));
  const __mmask64 rest = (1ull << (count - x)) - 1;
  _mm512_mask_storeu_epi8(to + x, rest,
                          _mm512_xor_si512(_mm512_maskz_loadu_epi8(rest, from + x), bias));
}

// Distances of 16 blocks in 32-bit lanes. Differences of signed bytes saturate far above the clip
// of 49; four clipped rows add up as bytes (196), and a dot product with ones adds four columns.
static inline __m512i displaced(const __m512i (&cur)[4], const unsigned char* tile, int dx,
                                int dy) {
  const __m512i clip = _mm512_set1_epi8(49);
  const unsigned char* nei = tile + dy * kTilePitch + dx;
  __m512i clipped[4];
  for (int r = 0; r < 4; ++r)
    clipped[r] = _mm512_min_epu8(
        _mm512_abs_epi8(_mm512_subs_epi8(cur[r], load(nei + r * kTilePitch))), clip);
  const __m512i sum = _mm512_add_epi8(_mm512_add_epi8(clipped[0], clipped[1]),
                                      _mm512_add_epi8(clipped[2], clipped[3]));
  return _mm512_dpbusd_epi32(_mm512_setzero_si512(), sum, _mm512_set1_epi8(1));
}

// Byte or word positions of a permute.
struct byte_positions {
  alignas(64) unsigned char at[64];
};
struct word_positions {
  alignas(64) uint16_t at[32];
};

// One field of 16 rules, in the order of blocks that packing two vectors of distances gives: each
// quarter holds four blocks of the first and the same four of the second.
constexpr word_positions words_of_field(int field) {
  word_positions words{};
  for (int i = 0; i < 32; ++i)
    words.at[i] = static_cast<uint16_t>(4 * (4 * (i / 8) + i % 4) + field);
  return words;
}

constexpr word_positions kBiasWords = words_of_field(0), kFactorWords = words_of_field(1),
                         kShiftWords = words_of_field(2);

struct rule_lanes {
  __m512i bias, factor, shift;
};

static inline rule_lanes load_rules(const index_rule* rules) {
  const __m512i first = load(rules), second = load(rules + 8);
  return {_mm512_permutex2var_epi16(first, load(kBiasWords.at), second),
          _mm512_permutex2var_epi16(first, load(kFactorWords.at), second),
          _mm512_permutex2var_epi16(first, load(kShiftWords.at), second)};
}

// Indices of two neighbours' distances.
static inline __m512i indices(__m512i first, __m512i second, const rule_lanes& rule) {
  const __m512i distance = _mm512_packus_epi32(first, second);
  const __m512i scaled = _mm512_add_epi16(_mm512_slli_epi16(distance, 6), rule.bias);
  return _mm512_srlv_epi16(_mm512_mulhi_epu16(scaled, rule.factor), rule.shift);
}

// The weights of four neighbours, a byte each: per quarter four blocks of each neighbour. All look
// up in registers: tables of up to 128 and up to 255 entries by saturated bytes, longer ones in
// parts of 256 by the index's lower byte, kept where the upper byte names the part.
enum class table_size { short_one, long_one, in_parts };

template <table_size Size>
struct weight_lanes {
  __m512i part[4];
  const unsigned char* of;
  int parts;
  explicit weight_lanes(const weight_table* table)
      : part{load(table->of), load(table->of + 64), load(table->of + 128), load(table->of + 192)},
        of(table->of),
        parts((table->support + 255) / 256) {}

  __m512i at(__m512i first, __m512i second) const {
    if (Size == table_size::in_parts) return from_parts(first, second);
    const __m512i index = _mm512_packus_epi16(first, second);  // saturates: weight 0
    const __mmask64 beyond = _mm512_movepi8_mask(index);       // 128 and above
    if (Size == table_size::short_one)
      return _mm512_maskz_permutex2var_epi8(~beyond, part[0], index, part[1]);
    return _mm512_mask_blend_epi8(beyond, _mm512_permutex2var_epi8(part[0], index, part[1]),
                                  _mm512_permutex2var_epi8(part[2], index, part[3]));
  }

 private:
  __m512i from_parts(__m512i first, __m512i second) const {
    const __m512i low = _mm512_set1_epi16(0xFF), last = _mm512_set1_epi16(799);
    first = _mm512_min_epu16(first, last);
    second = _mm512_min_epu16(second, last);
    const __m512i index =
        _mm512_packus_epi16(_mm512_and_si512(first, low), _mm512_and_si512(second, low));
    const __m512i part_of =
        _mm512_packus_epi16(_mm512_srli_epi16(first, 8), _mm512_srli_epi16(second, 8));
    const __mmask64 upper = _mm512_movepi8_mask(index);
    __m512i weight = _mm512_setzero_si512();
    for (int k = 0; k < parts; ++k) {
      const unsigned char* at = of + 256 * k;
      const __m512i found =
          _mm512_mask_blend_epi8(upper, _mm512_permutex2var_epi8(load(at), index, load(at + 64)),
                                 _mm512_permutex2var_epi8(load(at + 128), index, load(at + 192)));
      const __mmask64 here =
          _mm512_cmpeq_epi8_mask(part_of, _mm512_set1_epi8(static_cast<char>(k)));
      weight = _mm512_mask_mov_epi8(weight, here, found);
    }
    return weight;
  }
};

// Byte k of block b is byte rows[k] of the block's four (-1: whichever, it is masked), in a
// quarter's order as above.
constexpr byte_positions words_from(int first, int second, int third, int fourth) {
  byte_positions bytes{};
  const int rows[4] = {first, second, third, fourth};
  for (int i = 0; i < 64; ++i) {
    const int block = i / 4 % 4, row = rows[i % 4];
    bytes.at[i] = static_cast<unsigned char>((row & 4) * 16 + i / 16 * 16 + (row & 3) * 4 + block);
  }
  return bytes;
}

// Bytes (left, centre, right, centre) of 16 pixels at ring distance d, from a row that begins three
// pixels to the left of the first.
constexpr byte_positions quads_at(int d) {
  byte_positions bytes{};
  for (int x = 0; x < 16; ++x) {
    bytes.at[4 * x] = static_cast<unsigned char>(3 + x - d);
    bytes.at[4 * x + 1] = static_cast<unsigned char>(3 + x);
    bytes.at[4 * x + 2] = static_cast<unsigned char>(3 + x + d);
    bytes.at[4 * x + 3] = static_cast<unsigned char>(3 + x);
  }
  return bytes;
}

// Vectors of weights hold the row above and the left one, and the row below and the right one.
constexpr byte_positions kTripleWords = words_from(0, 1, 2, 0);
constexpr byte_positions kOwnWords = words_from(3, 0, 7, 0);
constexpr byte_positions kQuads[kMaxRings] = {quads_at(1), quads_at(2), quads_at(3)};

// A word per block: the weights of (left, centre, right, spare) of the row above, own row and row
// below of each ring. The block's own weight 256 is 255 in the centre byte and 1 in the spare one.
struct run_words {
  __m512i of[kMaxRings][3];
  __m512i total;
};

template <int Rings, table_size Size>
static void make_words(const unsigned char* tile, const run_rules* rules, run_words* words) {
  constexpr __mmask64 kTriples = 0x7777777777777777, kSides = 0x5555555555555555;
  const __m512i ones = _mm512_set1_epi8(1);
  const weight_lanes<Size> weights(rules->table);
  const rule_lanes rule = load_rules(rules->masks->of);
  __m512i cur[4];
  for (int r = 0; r < 4; ++r) cur[r] = load(tile + r * kTilePitch);
  __m512i total[3] = {};
#pragma GCC unroll 3
  for (int ring = 0; ring < Rings; ++ring) {
    const int d = ring + 1;
    const auto two = [&](int dx1, int dy1, int dx2, int dy2) {
      return indices(displaced(cur, tile, dx1, dy1), displaced(cur, tile, dx2, dy2), rule);
    };
    const __m512i above = weights.at(two(-d, -d, 0, -d), two(d, -d, -d, 0));
    const __m512i below = weights.at(two(-d, d, 0, d), two(d, d, d, 0));
    const __m512i triples = load(kTripleWords.at);
    __m512i* of = words->of[ring];
    of[0] = _mm512_maskz_shuffle_epi8(kTriples, above, triples);
    of[1] = _mm512_maskz_permutex2var_epi8(kSides, above, load(kOwnWords.at), below);
    of[2] = _mm512_maskz_shuffle_epi8(kTriples, below, triples);
    if (ring == 0) of[1] = _mm512_or_si512(of[1], _mm512_set1_epi32(0x0100FF00));
    for (int i = 0; i < 3; ++i) total[i] = _mm512_dpbusd_epi32(total[i], of[i], ones);
  }
  words->total = _mm512_add_epi32(_mm512_add_epi32(total[0], total[1]), total[2]);
}

// Mantissas of the 8-bit reciprocal estimate by the top eight bits of the divisor's, as in
// runtime/reciprocal.cpp.
struct estimates {
  alignas(64) unsigned char of[256];
};

constexpr estimates make_estimates() {
  estimates table{};
  for (int i = 0; i < 256; ++i)
    table.of[i] = static_cast<unsigned char>(((1 << 19) / (2 * (256 + i) + 1) + 1) / 2 & 0xFF);
  return table;
}

constexpr estimates kEstimates = make_estimates();

// The refined reciprocals of runtime/reciprocal.h: the estimate, then two steps.
static inline __m512 refined(__m512 x) {
  constexpr __mmask64 kLowBytes = 0x1111111111111111;
  const __m512i bits = _mm512_castps_si512(x);
  const __m512i index = _mm512_srli_epi32(bits, 15);
  const __m512i lower = _mm512_maskz_permutex2var_epi8(kLowBytes, load(kEstimates.of), index,
                                                       load(kEstimates.of + 64));
  const __m512i upper = _mm512_maskz_permutex2var_epi8(kLowBytes, load(kEstimates.of + 128), index,
                                                       load(kEstimates.of + 192));
  const __mmask16 is_upper = _mm512_test_epi32_mask(index, _mm512_set1_epi32(0x80));
  const __m512i mantissa = _mm512_mask_blend_epi32(is_upper, lower, upper);
  const __m512i exponent = _mm512_sub_epi32(_mm512_set1_epi32(253), _mm512_srli_epi32(bits, 23));
  __m512 e = _mm512_castsi512_ps(
      _mm512_or_si512(_mm512_slli_epi32(exponent, 23), _mm512_slli_epi32(mantissa, 15)));
  const __m512 two = _mm512_set1_ps(2.0f);
  e = _mm512_mul_ps(e, _mm512_fnmadd_ps(x, e, two));
  return _mm512_mul_ps(e, _mm512_fnmadd_ps(x, e, two));
}

// Of both rules: exact_reciprocals() are one float above the nearest.
static inline __m512 reciprocals(__m512i total, uint32_t exact) {
  const __m512 x = _mm512_cvtepi32_ps(total);
  const __m512 r = refined(x);
  if (!exact) return r;
  const __m512i nearest = _mm512_castps_si512(_mm512_div_ps(_mm512_set1_ps(1.0f), x));
  return _mm512_castsi512_ps(_mm512_mask_add_epi32(
      _mm512_castps_si512(r), static_cast<__mmask16>(exact), nearest, _mm512_set1_epi32(1)));
}

// Four groups of 16 pixels, a quarter per block with its four rows, to four whole rows.
static inline void store_rows(const __m512i (&group)[4], unsigned char* out, ptrdiff_t out_stride) {
  const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  const __m512i ab_low = _mm512_unpacklo_epi32(group[0], group[1]);
  const __m512i ab_high = _mm512_unpackhi_epi32(group[0], group[1]);
  const __m512i cd_low = _mm512_unpacklo_epi32(group[2], group[3]);
  const __m512i cd_high = _mm512_unpackhi_epi32(group[2], group[3]);
  const __m512i rows[4] = {
      _mm512_unpacklo_epi64(ab_low, cd_low), _mm512_unpackhi_epi64(ab_low, cd_low),
      _mm512_unpacklo_epi64(ab_high, cd_high), _mm512_unpackhi_epi64(ab_high, cd_high)};
  for (int r = 0; r < 4; ++r)
    _mm512_storeu_si512(out + r * out_stride, _mm512_permutexvar_epi32(order, rows[r]));
}

template <int Rings>
static void blend(const unsigned char* tile, const run_words& words, uint32_t exact,
                  unsigned char* out, int out_stride) {
  // Pixels are 128 too low; what that takes away stands in the sums from the start.
  const __m512i offset = _mm512_slli_epi32(words.total, 7);
  const __m512 r = reciprocals(words.total, exact);
  const __m512i quads[3] = {load(kQuads[0].at), load(kQuads[1].at), load(kQuads[2].at)};
  __m512i pixels[4];
#pragma GCC unroll 1
  for (int group = 0; group < 4; ++group, tile += 16) {
    const __m512i of_block =
        _mm512_add_epi32(_mm512_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3),
                         _mm512_set1_epi32(4 * group));
    __m512i w[Rings][3];
    for (int ring = 0; ring < Rings; ++ring)
      for (int i = 0; i < 3; ++i)
        w[ring][i] = _mm512_permutexvar_epi32(of_block, words.of[ring][i]);
    const __m512i start = _mm512_permutexvar_epi32(of_block, offset);
    __m512i sum[4] = {start, start, start, start};
#pragma GCC unroll 10
    for (int row = -Rings; row <= 3 + Rings; ++row) {
      const __m512i near = _mm512_castsi256_si512(_mm256_loadu_si256(  // 22 bytes are looked at
          reinterpret_cast<const __m256i*>(tile + row * kTilePitch - kMaxRings)));
#pragma GCC unroll 3
      for (int ring = 0; ring < Rings; ++ring) {
        const int d = ring + 1;
        if (row < -d || row > 3 + d) continue;
        const __m512i quad = _mm512_permutexvar_epi8(quads[ring], near);
        if (row + d < 4) sum[row + d] = _mm512_dpbusd_epi32(sum[row + d], w[ring][0], quad);
        if (row >= 0 && row < 4) sum[row] = _mm512_dpbusd_epi32(sum[row], w[ring][1], quad);
        if (row - d >= 0) sum[row - d] = _mm512_dpbusd_epi32(sum[row - d], w[ring][2], quad);
      }
    }
    const __m512 of_group = _mm512_permutexvar_ps(of_block, r);
    for (int row = 0; row < 4; ++row) {
      const __m512 mean = _mm512_mul_ps(_mm512_cvtepi32_ps(sum[row]), of_group);
      sum[row] = _mm512_cvttps_epi32(_mm512_add_ps(_mm512_set1_ps(0.5f), mean));
    }
    pixels[group] = _mm512_packus_epi16(_mm512_packus_epi32(sum[0], sum[1]),
                                        _mm512_packus_epi32(sum[2], sum[3]));
  }
  store_rows(pixels, out, out_stride);
}

template <int Rings>
static void make_words(const unsigned char* tile, const run_rules* rules, run_words* words) {
  if (rules->table->support <= 128)
    make_words<Rings, table_size::short_one>(tile, rules, words);
  else if (rules->table->support <= 255)
    make_words<Rings, table_size::long_one>(tile, rules, words);
  else
    make_words<Rings, table_size::in_parts>(tile, rules, words);
}

// Weights are long chains of operations, so they are made one run ahead: the blend of the run
// before needs nothing of them and fills the gaps.
template <int Rings>
static void filter(const unsigned char* tile, const run_rules* rules, int runs, unsigned char* out,
                   int out_stride, unsigned char* /*carry*/, bool /*first*/) {
  run_words words[2];
  make_words<Rings>(tile, rules, &words[0]);
  for (int i = 0; i < runs; ++i, tile += kRunPixels, out += kRunPixels) {
    if (i + 1 < runs) make_words<Rings>(tile + kRunPixels, &rules[i + 1], &words[(i + 1) & 1]);
    blend<Rings>(tile, words[i & 1], rules[i].exact, out, out_stride);
  }
}

}  // namespace

const luma_kernels kLumaAvx512 = {0x80, false, fetch, {filter<1>, filter<2>, filter<3>}};

}  // namespace vorn
