// Weights of a run for the AVX2 form: what its two phases hand on, and the look-up of 32 indices at
// a time, in registers as far as the table allows.
//
// Widest intermediate: the sum of 12 weights in 16 bits (3060). Exact. For luma_avx2.cpp alone, and
// static for the reason given there.
#pragma once

#include <immintrin.h>

#include <cstddef>

#include "ynr/kernels/luma_kernels.h"

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

static inline void store(void* p, __m256i v) {
  _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}

// Neighbours go in pairs whose weights the blend uses side by side: per ring the left and right one
// of the row above, the own row and the row below, then the centre column's neighbours in the order
// of make_indices, which columns takes apart (luma_avx2.cpp).
constexpr int pairs_of(int rings) {
  return 4 * rings;
}

// What stands between the phases: per pair of neighbours and half of the run, 8 blocks each.
struct run_pairs {
  __m256i index[pairs_of(kMaxRings)][2];   // 16-bit; 4 blocks of the first, 4 of the second, twice
  __m256i weight[pairs_of(kMaxRings)][2];  // the two as 16-bit words of the block's 32-bit lane
  __m256i total[2];                        // 32-bit lanes
};

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

// The weights of a pair from bytes (4 blocks of the first, 4 of the second, of the lower half of
// the run, then of the upper) to words side by side.
static inline void set_weights(__m256i bytes, __m256i (&weight)[2]) {
  weight[0] =
      _mm256_shuffle_epi8(bytes, _mm256_broadcastsi128_si256(_mm_setr_epi8(
                                     0, -1, 4, -1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1)));
  weight[1] = _mm256_shuffle_epi8(
      bytes, _mm256_broadcastsi128_si256(
                 _mm_setr_epi8(8, -1, 12, -1, 9, -1, 13, -1, 10, -1, 14, -1, 11, -1, 15, -1)));
}

static inline void set_totals(const __m256i (&sum)[2], run_pairs* pairs) {
  for (int half = 0; half < 2; ++half)
    pairs->total[half] = _mm256_add_epi32(_mm256_madd_epi16(sum[half], _mm256_set1_epi16(1)),
                                          _mm256_set1_epi32(256));
}

template <int Segments>
static void look_up_in_registers(int count, const unsigned char* of, run_pairs* pairs) {
  const table_of<Segments> table(of);
  __m256i sum[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
  for (int i = 0; i < count; ++i) {
    set_weights(table.at(_mm256_packus_epi16(pairs->index[i][0], pairs->index[i][1])),
                pairs->weight[i]);
    for (int half = 0; half < 2; ++half)
      sum[half] = _mm256_add_epi16(sum[half], pairs->weight[i][half]);
  }
  set_totals(sum, pairs);
}

static void look_up_in_memory(int count, const unsigned char* of, run_pairs* pairs) {
  for (int half = 0; half < 2; ++half) {
    __m256i sum = _mm256_setzero_si256();
    for (int i = 0; i < count; ++i) {
      alignas(32) uint16_t index[16], weight[16];
      store(index, _mm256_min_epu16(pairs->index[i][half], _mm256_set1_epi16(799)));
      for (int k = 0; k < 16; ++k) weight[k / 8 * 8 + k % 4 * 2 + k / 4 % 2] = of[index[k]];
      pairs->weight[i][half] = load(weight);
      sum = _mm256_add_epi16(sum, pairs->weight[i][half]);
    }
    pairs->total[half] =
        _mm256_add_epi32(_mm256_madd_epi16(sum, _mm256_set1_epi16(1)), _mm256_set1_epi32(256));
  }
}

// A table of 64 entries, for indices within it.
using line_table = segmented_table<4>;

// Long tables on lines of 8 or 16 entries, 1 << Shift; see weight_table.
template <int Shift>
static void look_up_on_lines(int count, const weight_table* table, run_pairs* pairs) {
  const line_table base(table->base), slope(table->slope), lower(table->lower), upper(table->upper);
  const __m256i bits = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(-128, 64, 32, 16, 8, 4, 2, 1, -128, 64, 32, 16, 8, 4, 2, 1));
  const __m256i low = _mm256_set1_epi16(0xFF), places = _mm256_set1_epi16((1 << Shift) - 1);
  const __m256i last = _mm256_set1_epi16(Shift == 3 ? 511 : 799);
  __m256i sum[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
  for (int i = 0; i < count; ++i) {
    const __m256i first = _mm256_min_epu16(pairs->index[i][0], last);
    const __m256i second = _mm256_min_epu16(pairs->index[i][1], last);
    const __m256i line =
        _mm256_packus_epi16(_mm256_srli_epi16(first, Shift), _mm256_srli_epi16(second, Shift));
    const __m256i place =
        _mm256_packus_epi16(_mm256_and_si256(first, places), _mm256_and_si256(second, places));
    // slope * place fits a byte.
    const __m256i steep = slope.at(line);
    const __m256i even =
        _mm256_mullo_epi16(_mm256_and_si256(steep, low), _mm256_and_si256(place, low));
    const __m256i odd =
        _mm256_mullo_epi16(_mm256_srli_epi16(steep, 8), _mm256_srli_epi16(place, 8));
    const __m256i fall = _mm256_or_si256(_mm256_srli_epi16(even, 4),
                                         _mm256_slli_epi16(_mm256_srli_epi16(odd, 4), 8));
    __m256i corrections = lower.at(line);
    if (Shift == 4)
      corrections = _mm256_blendv_epi8(corrections, upper.at(line), _mm256_slli_epi16(place, 4));
    const __m256i bit = _mm256_shuffle_epi8(bits, place);
    const __m256i minus_one = _mm256_cmpeq_epi8(_mm256_and_si256(corrections, bit), bit);
    set_weights(_mm256_sub_epi8(minus_one, _mm256_add_epi8(base.at(line), fall)), pairs->weight[i]);
    for (int half = 0; half < 2; ++half)
      sum[half] = _mm256_add_epi16(sum[half], pairs->weight[i][half]);
  }
  set_totals(sum, pairs);
}

static void look_up(int count, const weight_table* table, run_pairs* pairs) {
  if (table->support <= 63)
    look_up_in_registers<4>(count, table->of, pairs);
  else if (table->support <= 127)
    look_up_in_registers<8>(count, table->of, pairs);
  else if (table->support <= 255)
    look_up_in_registers<16>(count, table->of, pairs);
  else if (!table->lines)
    look_up_in_memory(count, table->of, pairs);
  else if (table->support < 512)
    look_up_on_lines<3>(count, table, pairs);
  else
    look_up_on_lines<4>(count, table, pairs);
}

}  // namespace
}  // namespace vorn
