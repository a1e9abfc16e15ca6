#include <emmintrin.h>

#include <cstring>

#include "cnr/kernels/chroma_kernels.h"

namespace vorn {
namespace {

__m128i load(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
void store(void* p, __m128i v) {
  _mm_storeu_si128(static_cast<__m128i*>(p), v);
}

__m128i distance(__m128i a, __m128i b) {
  return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a));
}

// (U - 128)^2 + (V - 128)^2 + 2048 of eight pixels, at most 34816, from the magnitudes.
__m128i grey_distance(__m128i du, __m128i dv) {
  const __m128i sum = _mm_add_epi16(_mm_mullo_epi16(du, du), _mm_mullo_epi16(dv, dv));
  return _mm_add_epi16(sum, _mm_set1_epi16(2048));
}

// Index of the range weights of eight pixels. d32 is 32 * d, grey 2048 more than the square:
// d2 = d32 * grey >> 16. Then 4 * d2 * radial * 256 >> 16 and an average with 0 round d2 * radial
// over 128 to nearest; d2 above 16383 is far past the last weight. The radial factor 128 stands as
// 32767, which the average makes good.
__m128i range_index(__m128i d32, __m128i grey, __m128i radial) {
  const __m128i d2 = _mm_min_epi16(_mm_mulhi_epu16(d32, grey), _mm_set1_epi16(16383));
  const __m128i twice = _mm_mulhi_epu16(_mm_slli_epi16(d2, 2), radial);
  const __m128i index = _mm_avg_epu16(twice, _mm_setzero_si128());
  return _mm_min_epi16(index, _mm_set1_epi16(kRangeWeights - 1));
}

// Weights of eight indices, as words.
__m128i look_up(const uint8_t* weight, __m128i index) {
  alignas(16) uint16_t i[8];
  _mm_store_si128(reinterpret_cast<__m128i*>(i), index);
  const uint64_t low = weight[i[0]] | static_cast<uint64_t>(weight[i[1]]) << 16 |
                       static_cast<uint64_t>(weight[i[2]]) << 32 |
                       static_cast<uint64_t>(weight[i[3]]) << 48;
  const uint64_t high = weight[i[4]] | static_cast<uint64_t>(weight[i[5]]) << 16 |
                        static_cast<uint64_t>(weight[i[6]]) << 32 |
                        static_cast<uint64_t>(weight[i[7]]) << 48;
  return _mm_unpacklo_epi64(_mm_cvtsi64_si128(static_cast<long long>(low)),
                            _mm_cvtsi64_si128(static_cast<long long>(high)));
}

// Eight sums of 32 bits.
struct sums {
  __m128i low;
  __m128i high;

  void add(__m128i product_low, __m128i product_high) {
    low = _mm_add_epi32(low, product_low);
    high = _mm_add_epi32(high, product_high);
  }
  // Pairs of taps: words (w, w') times words (s, s').
  void add_pair(__m128i w, __m128i w2, __m128i sample, __m128i sample2) {
    add(_mm_madd_epi16(_mm_unpacklo_epi16(w, w2), _mm_unpacklo_epi16(sample, sample2)),
        _mm_madd_epi16(_mm_unpackhi_epi16(w, w2), _mm_unpackhi_epi16(sample, sample2)));
  }
  // (sum + words on top) * scale, truncated, as words.
  __m128i quotient(__m128i top, __m128 scale_low, __m128 scale_high) const {
    const __m128i zero = _mm_setzero_si128();
    const __m128i n_low = _mm_add_epi32(low, _mm_unpacklo_epi16(top, zero));
    const __m128i n_high = _mm_add_epi32(high, _mm_unpackhi_epi16(top, zero));
    return _mm_packs_epi32(_mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(n_low), scale_low)),
                           _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(n_high), scale_high)));
  }
};

// Eight pixels per step in 16-bit lanes, two taps at a time, look-ups in memory. Exact.
void filter_sse2(const chroma_span& s, const chroma_weights& weights) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i mid = _mm_set1_epi8(static_cast<char>(128));
  const __m128i edge_a = _mm_set1_epi16(static_cast<int16_t>(4 * weights.edge_a));
  const __m128i edge_b = _mm_set1_epi16(static_cast<int16_t>(4 * weights.edge_b));
  const __m128i whole = _mm_set1_epi16(~31);
  for (int x = 0; x < s.count; x += 8) {
    if (x > s.count - 8) x = s.count - 8;
    const auto words = [&](const uint8_t* p) {
      return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    };
    const uint8_t* const guide = s.guide + x;
    const uint8_t* const src_a = s.src_a + x;
    const uint8_t* const src_b = s.src_b + x;
    const __m128i y0 = words(guide), a0 = words(src_a), b0 = words(src_b);
    const __m128i grey = grey_distance(_mm_unpacklo_epi8(distance(a0, mid), zero),
                                       _mm_unpacklo_epi8(distance(b0, mid), zero));
    const __m128i radial = load(s.radial + x);
    const __m128i a256 = _mm_unpacklo_epi8(zero, a0);
    const __m128i b256 = _mm_unpacklo_epi8(zero, b0);
    __m128i sum = _mm_set1_epi16(256);
    sums sum_a = {_mm_unpacklo_epi16(a256, zero), _mm_unpackhi_epi16(a256, zero)};
    sums sum_b = {_mm_unpacklo_epi16(b256, zero), _mm_unpackhi_epi16(b256, zero)};
    const auto weigh = [&](ptrdiff_t tap, __m128i* a_words, __m128i* b_words) {
      const __m128i a = words(src_a + tap), b = words(src_b + tap);
      const __m128i dy = _mm_unpacklo_epi8(distance(y0, words(guide + tap)), zero);
      const __m128i da = _mm_unpacklo_epi8(distance(a0, a), zero);
      const __m128i db = _mm_unpacklo_epi8(distance(b0, b), zero);
      const __m128i d_a = _mm_and_si128(_mm_mullo_epi16(da, edge_a), whole);
      const __m128i d_b = _mm_and_si128(_mm_mullo_epi16(db, edge_b), whole);
      const __m128i d32 = _mm_add_epi16(_mm_add_epi16(_mm_slli_epi16(dy, 5), d_a), d_b);
      *a_words = _mm_unpacklo_epi8(a, zero);
      *b_words = _mm_unpacklo_epi8(b, zero);
      const __m128i w = look_up(weights.weight, range_index(d32, grey, radial));
      sum = _mm_add_epi16(sum, w);
      return w;
    };
    int k = 0;
    for (; k + 2 <= s.tap_count; k += 2) {
      __m128i a, b, a2, b2;
      const __m128i w = weigh(s.taps[k], &a, &b);
      const __m128i w2 = weigh(s.taps[k + 1], &a2, &b2);
      sum_a.add_pair(w, w2, a, a2);
      sum_b.add_pair(w, w2, b, b2);
    }
    if (k < s.tap_count) {
      __m128i a, b;
      const __m128i w = weigh(s.taps[k], &a, &b);
      sum_a.add_pair(w, zero, a, zero);
      sum_b.add_pair(w, zero, b, zero);
    }
    const __m128 scale = _mm_set1_ps(kQuotientScale);
    const __m128 scale_low = _mm_div_ps(scale, _mm_cvtepi32_ps(_mm_unpacklo_epi16(sum, zero)));
    const __m128 scale_high = _mm_div_ps(scale, _mm_cvtepi32_ps(_mm_unpackhi_epi16(sum, zero)));
    const __m128i dither = _mm_add_epi8(words(reinterpret_cast<const uint8_t*>(s.dither) + x),
                                        _mm_set1_epi8(static_cast<char>(s.quarters)));
    const __m128i bias = _mm_mullo_epi16(_mm_srli_epi16(sum, 2), _mm_unpacklo_epi8(dither, zero));
    const __m128i out = _mm_packus_epi16(sum_a.quotient(bias, scale_low, scale_high),
                                         sum_b.quotient(bias, scale_low, scale_high));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(s.dst_a + x), out);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(s.dst_b + x), _mm_unpackhi_epi64(out, out));
  }
}

// Eight samples as words, gain as words: see with_gain of uv_split.cpp. 16384 + 8 fits. Exact.
__m128i with_gain(__m128i x, __m128i gain) {
  const __m128i product = _mm_mullo_epi16(_mm_sub_epi16(x, _mm_set1_epi16(128)), gain);
  return _mm_add_epi16(x, _mm_srai_epi16(_mm_add_epi16(product, _mm_set1_epi16(8)), 4));
}

void split_gain_sse2(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs,
                     int8_t gain) {
  const __m128i even = _mm_set1_epi16(0x00FF);
  const __m128i g = _mm_set1_epi16(gain);
  for (size_t i = 0; i + 16 <= pairs; i += 16) {
    const __m128i low = load(src_uv + 2 * i), high = load(src_uv + 2 * i + 16);
    store(dst_u + i, _mm_packus_epi16(with_gain(_mm_and_si128(low, even), g),
                                      with_gain(_mm_and_si128(high, even), g)));
    store(dst_v + i, _mm_packus_epi16(with_gain(_mm_srli_epi16(low, 8), g),
                                      with_gain(_mm_srli_epi16(high, 8), g)));
  }
}

}  // namespace

const chroma_kernels kChromaKernelsSse2 = {filter_sse2, split_gain_sse2};

}  // namespace vorn
