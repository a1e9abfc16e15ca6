// Compiled for AVX-512 F, BW, VL, VBMI and VNNI: everything here is static, so that no copy of a
// shared function made for this level can be linked into code that older machines run.
#include <immintrin.h>

#include "cnr/kernels/chroma_kernels.h"

namespace vorn {
namespace {

__m512i load(const void* p) {
  return _mm512_loadu_si512(p);
}
void store(void* p, __m512i v) {
  _mm512_storeu_si512(p, v);
}

// Of sixty-four pixels, unpacking within 128-bit lanes makes two halves of 16-bit lanes (pixels 0-7
// and 8-15 of every sixteen) and four quarters of 32-bit lanes; packing undoes both.
struct halves {
  __m512i low;
  __m512i high;
};

halves unpack(__m512i a, __m512i b) {
  return {_mm512_unpacklo_epi8(a, b), _mm512_unpackhi_epi8(a, b)};
}

halves widen(__m512i a) {
  return unpack(a, _mm512_setzero_si512());
}

__m512i distance(__m512i a, __m512i b) {
  return _mm512_or_si512(_mm512_subs_epu8(a, b), _mm512_subs_epu8(b, a));
}

// (U - 128)^2 + (V - 128)^2 + 2048, at most 34816.
__m512i grey_distance(__m512i du, __m512i dv) {
  const __m512i sum = _mm512_add_epi16(_mm512_mullo_epi16(du, du), _mm512_mullo_epi16(dv, dv));
  return _mm512_add_epi16(sum, _mm512_set1_epi16(2048));
}

// Bytes of four taps per pixel, a pixel's four side by side.
struct quads {
  __m512i q[4];

  quads(__m512i t0, __m512i t1, __m512i t2, __m512i t3) {
    const halves a = unpack(t0, t1);
    const halves b = unpack(t2, t3);
    q[0] = _mm512_unpacklo_epi16(a.low, b.low);
    q[1] = _mm512_unpackhi_epi16(a.low, b.low);
    q[2] = _mm512_unpacklo_epi16(a.high, b.high);
    q[3] = _mm512_unpackhi_epi16(a.high, b.high);
  }
};

// 32-bit lanes of bytes in pixel order.
void widen_to_quarters(__m512i bytes, __m512i (&out)[4]) {
  const __m512i zero = _mm512_setzero_si512();
  const halves h = widen(bytes);
  out[0] = _mm512_unpacklo_epi16(h.low, zero);
  out[1] = _mm512_unpackhi_epi16(h.low, zero);
  out[2] = _mm512_unpacklo_epi16(h.high, zero);
  out[3] = _mm512_unpackhi_epi16(h.high, zero);
}

// Weights of sixty-four indices. kTables: tables of 128 entries in registers, 1 (support at most
// 127) or 2 (at most 255); 0: look-ups in memory.
template <int kTables>
struct weight_table {
  __m512i part[2 * kTables];

  explicit weight_table(const chroma_weights& weights) {
    for (int i = 0; i < 2 * kTables; ++i) part[i] = load(weights.weight + 64 * i);
  }
  __m512i operator()(__m512i low, __m512i high) const {
    // Saturates at the last entry, which is 0.
    if (kTables == 1)
      return _mm512_permutex2var_epi8(part[0], _mm512_packs_epi16(low, high), part[1]);
    const __m512i index = _mm512_packus_epi16(low, high);
    const __m512i w = _mm512_permutex2var_epi8(part[0], index, part[1]);
    const __m512i w2 =
        _mm512_permutex2var_epi8(part[2 * kTables - 2], index, part[2 * kTables - 1]);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), w, w2);
  }
};

template <>
struct weight_table<0> {
  const uint8_t* weight;

  explicit weight_table(const chroma_weights& weights) : weight(weights.weight) {}
  __m512i operator()(__m512i low, __m512i high) const {
    const __m512i top = _mm512_set1_epi16(kRangeWeights - 1);
    alignas(64) uint16_t index[64];
    alignas(64) uint8_t w[64];
    _mm512_store_si512(index, _mm512_min_epi16(low, top));
    _mm512_store_si512(index + 32, _mm512_min_epi16(high, top));
    for (int lane = 0; lane < 4; ++lane)
      for (int i = 0; i < 8; ++i) {
        w[16 * lane + i] = weight[index[8 * lane + i]];
        w[16 * lane + 8 + i] = weight[index[32 + 8 * lane + i]];
      }
    return _mm512_load_si512(w);
  }
};

// Sixty-four pixels per step, four taps at a time. Distances as in the AVX2 form. The dot product
// takes samples as signed bytes: they enter lowered by 128, and 128 times the weights follows at
// the end. Exact.
template <int kTables>
void filter_span(const chroma_span& s, const chroma_weights& weights) {
  const weight_table<kTables> table(weights);
  const __m512i zero = _mm512_setzero_si512();
  const __m512i mid = _mm512_set1_epi8(static_cast<char>(128));
  const __m512i edge_a_luma = _mm512_set1_epi16(static_cast<int16_t>(4 * weights.edge_a | 32 << 8));
  const __m512i edge_b = _mm512_set1_epi16(static_cast<int16_t>(4 * weights.edge_b));
  const __m512i whole = _mm512_set1_epi16(~31);
  const __m512i ones = _mm512_set1_epi8(1);
  for (int x = 0; x < s.count; x += 64) {
    if (x > s.count - 64) x = s.count - 64;
    const uint8_t* const guide = s.guide + x;
    const uint8_t* const src_a = s.src_a + x;
    const uint8_t* const src_b = s.src_b + x;
    const __m512i y0 = load(guide), a0 = load(src_a), b0 = load(src_b);
    const halves da0 = widen(distance(a0, mid));
    const halves db0 = widen(distance(b0, mid));
    const halves grey = {grey_distance(da0.low, db0.low), grey_distance(da0.high, db0.high)};
    const __m512i r0 = load(s.radial + x), r1 = load(s.radial + x + 32);
    const halves radial = {_mm512_shuffle_i32x4(r0, r1, 0x88), _mm512_shuffle_i32x4(r0, r1, 0xDD)};
    __m512i sum[4], sum_a[4], sum_b[4];
    widen_to_quarters(a0, sum_a);
    widen_to_quarters(b0, sum_b);
    for (int i = 0; i < 4; ++i) {
      sum[i] = _mm512_set1_epi32(256);
      sum_a[i] = _mm512_sub_epi32(_mm512_slli_epi32(sum_a[i], 8), _mm512_set1_epi32(256 * 128));
      sum_b[i] = _mm512_sub_epi32(_mm512_slli_epi32(sum_b[i], 8), _mm512_set1_epi32(256 * 128));
    }
    const auto index = [&](__m512i ay, __m512i b, __m512i g, __m512i r) {
      const __m512i d_ay = _mm512_and_si512(_mm512_maddubs_epi16(ay, edge_a_luma), whole);
      const __m512i d_b = _mm512_and_si512(_mm512_mullo_epi16(b, edge_b), whole);
      return _mm512_mulhrs_epi16(_mm512_mulhi_epu16(_mm512_add_epi16(d_ay, d_b), g), r);
    };
    // Weight of one tap; its samples, lowered by 128.
    const auto weigh = [&](ptrdiff_t tap, __m512i* a_low, __m512i* b_low) {
      const __m512i a = load(src_a + tap), b = load(src_b + tap);
      const halves ay = unpack(distance(a0, a), distance(y0, load(guide + tap)));
      const halves db = widen(distance(b0, b));
      *a_low = _mm512_xor_si512(a, mid);
      *b_low = _mm512_xor_si512(b, mid);
      return table(index(ay.low, db.low, grey.low, radial.low),
                   index(ay.high, db.high, grey.high, radial.high));
    };
    for (int k = 0; k < s.tap_count; k += 4) {
      __m512i w[4], a[4], b[4];
      for (int i = 0; i < 4; ++i) {
        if (k + i < s.tap_count)
          w[i] = weigh(s.taps[k + i], &a[i], &b[i]);
        else
          w[i] = a[i] = b[i] = zero;
      }
      const quads weight(w[0], w[1], w[2], w[3]);
      const quads quad_a(a[0], a[1], a[2], a[3]);
      const quads quad_b(b[0], b[1], b[2], b[3]);
      for (int i = 0; i < 4; ++i) {
        sum[i] = _mm512_dpbusd_epi32(sum[i], weight.q[i], ones);
        sum_a[i] = _mm512_dpbusd_epi32(sum_a[i], weight.q[i], quad_a.q[i]);
        sum_b[i] = _mm512_dpbusd_epi32(sum_b[i], weight.q[i], quad_b.q[i]);
      }
    }
    __m512i quarters[4];
    widen_to_quarters(
        _mm512_add_epi8(load(s.dither + x), _mm512_set1_epi8(static_cast<char>(s.quarters))),
        quarters);
    __m512i out_a[4], out_b[4];
    for (int i = 0; i < 4; ++i) {
      const __m512 scale =
          _mm512_div_ps(_mm512_set1_ps(kQuotientScale), _mm512_cvtepi32_ps(sum[i]));
      const __m512i bias = _mm512_madd_epi16(_mm512_srli_epi32(sum[i], 2), quarters[i]);
      const __m512i base = _mm512_add_epi32(_mm512_slli_epi32(sum[i], 7), bias);
      const auto quotient = [&](__m512i n) {
        return _mm512_cvttps_epi32(
            _mm512_mul_ps(_mm512_cvtepi32_ps(_mm512_add_epi32(n, base)), scale));
      };
      out_a[i] = quotient(sum_a[i]);
      out_b[i] = quotient(sum_b[i]);
    }
    store(s.dst_a + x, _mm512_packus_epi16(_mm512_packs_epi32(out_a[0], out_a[1]),
                                           _mm512_packs_epi32(out_a[2], out_a[3])));
    store(s.dst_b + x, _mm512_packus_epi16(_mm512_packs_epi32(out_b[0], out_b[1]),
                                           _mm512_packs_epi32(out_b[2], out_b[3])));
  }
}

void filter_avx512(const chroma_span& s, const chroma_weights& weights) {
  if (s.count < 64) return kChromaKernelsAvx2.filter(s, weights);
  if (weights.support <= 127) return filter_span<1>(s, weights);
  if (weights.support <= 255) return filter_span<2>(s, weights);
  filter_span<0>(s, weights);
}

// Byte numbers of every second byte of two vectors, from `first`.
__m512i every_second(int first) {
  alignas(64) uint8_t order[64];
  for (int i = 0; i < 64; ++i) order[i] = static_cast<uint8_t>(2 * i + first);
  return _mm512_load_si512(order);
}

// Thirty-two samples as words. 16384 + 8 fits. Exact.
__m512i with_gain(__m512i x, __m512i gain) {
  const __m512i product = _mm512_mullo_epi16(_mm512_sub_epi16(x, _mm512_set1_epi16(128)), gain);
  return _mm512_add_epi16(x, _mm512_srai_epi16(_mm512_add_epi16(product, _mm512_set1_epi16(8)), 4));
}

void split_gain_avx512(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs,
                       int8_t gain) {
  const __m512i g = _mm512_set1_epi16(gain);
  const __m512i even = every_second(0), odd = every_second(1);
  const auto gained = [&](__m512i x) {
    const halves h = widen(x);
    return _mm512_packus_epi16(with_gain(h.low, g), with_gain(h.high, g));
  };
  size_t i = 0;
  for (; i + 64 <= pairs; i += 64) {
    const __m512i a = load(src_uv + 2 * i), b = load(src_uv + 2 * i + 64);
    store(dst_u + i, gained(_mm512_permutex2var_epi8(a, even, b)));
    store(dst_v + i, gained(_mm512_permutex2var_epi8(a, odd, b)));
  }
  kChromaKernelsSse2.split_gain(src_uv + 2 * i, dst_u + i, dst_v + i, pairs - i, gain);
}

}  // namespace

const chroma_kernels kChromaKernelsAvx512 = {filter_avx512, split_gain_avx512};

}  // namespace vorn
