// Compiled for AVX2: everything here is static, so that no copy of a shared function made for this
// level can be linked into code that older machines run.
#include <immintrin.h>

#include "cnr/kernels/chroma_kernels.h"

namespace vorn {
namespace {

__m256i load(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
void store(void* p, __m256i v) {
  _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}

// Of thirty-two pixels, unpacking makes a low half (pixels 0-7 and 16-23) and a high half (8-15 and
// 24-31) of 16-bit lanes, and four quarters of 32-bit lanes; packing undoes both.
struct halves {
  __m256i low;
  __m256i high;
};

halves unpack(__m256i a, __m256i b) {
  return {_mm256_unpacklo_epi8(a, b), _mm256_unpackhi_epi8(a, b)};
}

halves widen(__m256i a) {
  return unpack(a, _mm256_setzero_si256());
}

__m256i distance(__m256i a, __m256i b) {
  return _mm256_or_si256(_mm256_subs_epu8(a, b), _mm256_subs_epu8(b, a));
}

// (U - 128)^2 + (V - 128)^2 + 2048, at most 34816.
__m256i grey_distance(__m256i du, __m256i dv) {
  const __m256i sum = _mm256_add_epi16(_mm256_mullo_epi16(du, du), _mm256_mullo_epi16(dv, dv));
  return _mm256_add_epi16(sum, _mm256_set1_epi16(2048));
}

// Weights of thirty-two indices. kGroups: how many groups of 16 entries hold the support, 1..8;
// 0: look-ups in memory.
template <int kGroups>
struct weight_table {
  __m256i folded[kGroups];

  explicit weight_table(const chroma_weights& weights) {
    for (int g = 0; g < kGroups; ++g)
      folded[g] = _mm256_broadcastsi128_si256(
          _mm_load_si128(reinterpret_cast<const __m128i*>(weights.folded + kWeightGroup * g)));
  }
  // An index raised by 112 leaves the low half of the bytes exactly when it is 16 or more, and then
  // the shuffle gives 0; lowered by 16 once per group it takes part from its own group on.
  __m256i operator()(__m256i low, __m256i high) const {
    __m256i at = _mm256_adds_epu8(_mm256_packus_epi16(low, high), _mm256_set1_epi8(112));
    __m256i w = _mm256_shuffle_epi8(folded[0], at);
    for (int g = 1; g < kGroups; ++g) {
      at = _mm256_sub_epi8(at, _mm256_set1_epi8(16));
      w = _mm256_xor_si256(w, _mm256_shuffle_epi8(folded[g], at));
    }
    return w;
  }
};

template <>
struct weight_table<0> {
  const uint8_t* weight;

  explicit weight_table(const chroma_weights& weights) : weight(weights.weight) {}
  __m256i operator()(__m256i low, __m256i high) const {
    const __m256i top = _mm256_set1_epi16(kRangeWeights - 1);
    alignas(32) uint16_t index[32];
    alignas(32) uint8_t w[32];
    _mm256_store_si256(reinterpret_cast<__m256i*>(index), _mm256_min_epi16(low, top));
    _mm256_store_si256(reinterpret_cast<__m256i*>(index + 16), _mm256_min_epi16(high, top));
    // The halves hold pixels 0-7, 16-23 and 8-15, 24-31.
    for (int i = 0; i < 8; ++i) {
      w[i] = weight[index[i]];
      w[16 + i] = weight[index[8 + i]];
      w[8 + i] = weight[index[16 + i]];
      w[24 + i] = weight[index[24 + i]];
    }
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(w));
  }
};

// Thirty-two sums of 32 bits.
struct sums {
  __m256i q[4];

  // 256 times the centre
  explicit sums(__m256i centre) {
    const __m256i zero = _mm256_setzero_si256();
    const halves c = unpack(zero, centre);
    q[0] = _mm256_unpacklo_epi16(c.low, zero);
    q[1] = _mm256_unpackhi_epi16(c.low, zero);
    q[2] = _mm256_unpacklo_epi16(c.high, zero);
    q[3] = _mm256_unpackhi_epi16(c.high, zero);
  }
  // Bytes (s, s') of two taps against words (w, w').
  void add(const __m256i (&w)[4], halves pair) {
    const halves l = widen(pair.low);
    const halves h = widen(pair.high);
    q[0] = _mm256_add_epi32(q[0], _mm256_madd_epi16(w[0], l.low));
    q[1] = _mm256_add_epi32(q[1], _mm256_madd_epi16(w[1], l.high));
    q[2] = _mm256_add_epi32(q[2], _mm256_madd_epi16(w[2], h.low));
    q[3] = _mm256_add_epi32(q[3], _mm256_madd_epi16(w[3], h.high));
  }
  // (sum + bias) * scale, truncated.
  __m256i quotient(halves bias, const __m256 (&scale)[4]) const {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i top[4] = {
        _mm256_unpacklo_epi16(bias.low, zero), _mm256_unpackhi_epi16(bias.low, zero),
        _mm256_unpacklo_epi16(bias.high, zero), _mm256_unpackhi_epi16(bias.high, zero)};
    __m256i out[4];
    for (int i = 0; i < 4; ++i)
      out[i] = _mm256_cvttps_epi32(
          _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_add_epi32(q[i], top[i])), scale[i]));
    return _mm256_packus_epi16(_mm256_packs_epi32(out[0], out[1]),
                               _mm256_packs_epi32(out[2], out[3]));
  }
};

// Thirty-two pixels per step, two taps at a time. d32 is 32 * d, at most 61632; the multiplication
// by edge_a goes together with the luma difference, whose multiple of 32 the mask leaves alone.
// d2 = d32 * (grey + 2048) >> 16; d2 * radial * 256 is rounded at bit 15 to the index; the radial
// factor 128 stands as 32767 and gives d2 itself up to 16384, far past the last weight. Exact.
template <int kGroups>
void filter_span(const chroma_span& s, const chroma_weights& weights) {
  const weight_table<kGroups> table(weights);
  const __m256i zero = _mm256_setzero_si256();
  const __m256i mid = _mm256_set1_epi8(static_cast<char>(128));
  const __m256i edge_a_luma = _mm256_set1_epi16(static_cast<int16_t>(4 * weights.edge_a | 32 << 8));
  const __m256i edge_b = _mm256_set1_epi16(static_cast<int16_t>(4 * weights.edge_b));
  const __m256i whole = _mm256_set1_epi16(~31);
  const __m256i ones = _mm256_set1_epi8(1);
  for (int x = 0; x < s.count; x += 32) {
    if (x > s.count - 32) x = s.count - 32;
    const uint8_t* const guide = s.guide + x;
    const uint8_t* const src_a = s.src_a + x;
    const uint8_t* const src_b = s.src_b + x;
    const __m256i y0 = load(guide), a0 = load(src_a), b0 = load(src_b);
    const halves da0 = widen(distance(a0, mid));
    const halves db0 = widen(distance(b0, mid));
    const halves grey = {grey_distance(da0.low, db0.low), grey_distance(da0.high, db0.high)};
    const __m256i r0 = load(s.radial + x), r1 = load(s.radial + x + 16);
    const halves radial = {_mm256_permute2x128_si256(r0, r1, 0x20),
                           _mm256_permute2x128_si256(r0, r1, 0x31)};
    halves sum = {_mm256_set1_epi16(256), _mm256_set1_epi16(256)};
    sums sum_a(a0), sum_b(b0);
    const auto index = [&](__m256i ay, __m256i b, __m256i g, __m256i r) {
      const __m256i d_ay = _mm256_and_si256(_mm256_maddubs_epi16(ay, edge_a_luma), whole);
      const __m256i d_b = _mm256_and_si256(_mm256_mullo_epi16(b, edge_b), whole);
      return _mm256_mulhrs_epi16(_mm256_mulhi_epu16(_mm256_add_epi16(d_ay, d_b), g), r);
    };
    const auto weigh = [&](__m256i a, __m256i b, __m256i y) {
      const halves ay = unpack(distance(a0, a), distance(y0, y));
      const halves db = widen(distance(b0, b));
      return table(index(ay.low, db.low, grey.low, radial.low),
                   index(ay.high, db.high, grey.high, radial.high));
    };
    const auto add = [&](__m256i w, __m256i w2, __m256i a, __m256i a2, __m256i b, __m256i b2) {
      const halves pair = unpack(w, w2);
      sum.low = _mm256_add_epi16(sum.low, _mm256_maddubs_epi16(pair.low, ones));
      sum.high = _mm256_add_epi16(sum.high, _mm256_maddubs_epi16(pair.high, ones));
      const halves l = widen(pair.low);
      const halves h = widen(pair.high);
      const __m256i words[4] = {l.low, l.high, h.low, h.high};
      sum_a.add(words, unpack(a, a2));
      sum_b.add(words, unpack(b, b2));
    };
    int k = 0;
    for (; k + 2 <= s.tap_count; k += 2) {
      const ptrdiff_t tap = s.taps[k], tap2 = s.taps[k + 1];
      const __m256i a = load(src_a + tap), b = load(src_b + tap);
      const __m256i w = weigh(a, b, load(guide + tap));
      const __m256i a2 = load(src_a + tap2), b2 = load(src_b + tap2);
      const __m256i w2 = weigh(a2, b2, load(guide + tap2));
      add(w, w2, a, a2, b, b2);
    }
    if (k < s.tap_count) {
      const ptrdiff_t tap = s.taps[k];
      const __m256i a = load(src_a + tap), b = load(src_b + tap);
      add(weigh(a, b, load(guide + tap)), zero, a, zero, b, zero);
    }
    const __m256 numerator = _mm256_set1_ps(kQuotientScale);
    const __m256i total[4] = {
        _mm256_unpacklo_epi16(sum.low, zero), _mm256_unpackhi_epi16(sum.low, zero),
        _mm256_unpacklo_epi16(sum.high, zero), _mm256_unpackhi_epi16(sum.high, zero)};
    __m256 scale[4];
    for (int i = 0; i < 4; ++i) scale[i] = _mm256_div_ps(numerator, _mm256_cvtepi32_ps(total[i]));
    const halves quarters =
        widen(_mm256_add_epi8(load(s.dither + x), _mm256_set1_epi8(static_cast<char>(s.quarters))));
    const halves bias = {_mm256_mullo_epi16(_mm256_srli_epi16(sum.low, 2), quarters.low),
                         _mm256_mullo_epi16(_mm256_srli_epi16(sum.high, 2), quarters.high)};
    store(s.dst_a + x, sum_a.quotient(bias, scale));
    store(s.dst_b + x, sum_b.quotient(bias, scale));
  }
}

void filter_avx2(const chroma_span& s, const chroma_weights& weights) {
  if (s.count < 32) return kChromaKernelsSse2.filter(s, weights);
  if (weights.support <= 16) return filter_span<1>(s, weights);
  if (weights.support <= 32) return filter_span<2>(s, weights);
  if (weights.support <= 48) return filter_span<3>(s, weights);
  if (weights.support <= 64) return filter_span<4>(s, weights);
  if (weights.support <= 128) return filter_span<8>(s, weights);
  filter_span<0>(s, weights);
}

// U bytes of 64 interleaved ones in the low half, V bytes in the high half of two vectors' lanes.
struct planes {
  __m256i u;
  __m256i v;
};

planes split_words(__m256i u0, __m256i u1, __m256i v0, __m256i v1) {
  return {_mm256_permute4x64_epi64(_mm256_packus_epi16(u0, u1), 0xD8),
          _mm256_permute4x64_epi64(_mm256_packus_epi16(v0, v1), 0xD8)};
}

// Sixteen samples as words. 16384 + 8 fits. Exact.
__m256i with_gain(__m256i x, __m256i gain) {
  const __m256i product = _mm256_mullo_epi16(_mm256_sub_epi16(x, _mm256_set1_epi16(128)), gain);
  return _mm256_add_epi16(x, _mm256_srai_epi16(_mm256_add_epi16(product, _mm256_set1_epi16(8)), 4));
}

void split_gain_avx2(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs,
                     int8_t gain) {
  const __m256i even = _mm256_set1_epi16(0x00FF);
  const __m256i g = _mm256_set1_epi16(gain);
  size_t i = 0;
  for (; i + 32 <= pairs; i += 32) {
    const __m256i a = load(src_uv + 2 * i), b = load(src_uv + 2 * i + 32);
    const planes p = split_words(
        with_gain(_mm256_and_si256(a, even), g), with_gain(_mm256_and_si256(b, even), g),
        with_gain(_mm256_srli_epi16(a, 8), g), with_gain(_mm256_srli_epi16(b, 8), g));
    store(dst_u + i, p.u);
    store(dst_v + i, p.v);
  }
  kChromaKernelsSse2.split_gain(src_uv + 2 * i, dst_u + i, dst_v + i, pairs - i, gain);
}

}  // namespace

const chroma_kernels kChromaKernelsAvx2 = {filter_avx2, split_gain_avx2};

}  // namespace vorn
