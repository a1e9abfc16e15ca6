// AVX-512 F, BW, VL, VBMI and VNNI: 64 pixels per step, four taps at a time. Widest intermediates:
// 16 bits up to the index, 32 bits for the sums (at most 20656 * 255). Exact.
#include <immintrin.h>

#include "cnr/kernels/chroma_x86.h"

namespace vorn {
namespace {

struct dot_sums;

struct vector {
  using reg = __m512i;
  static constexpr int kBytes = 64;
  static constexpr kernel_form kNarrower = kernel_form::avx2;
  using sums = dot_sums;

  static reg load(const void* p) { return _mm512_loadu_si512(p); }
  static void store(void* p, reg v) { _mm512_storeu_si512(p, v); }
  static void load_halves(const int16_t* p, reg* low, reg* high) {
    const reg first = load(p), second = load(p + 32);
    *low = _mm512_shuffle_i32x4(first, second, 0x88);
    *high = _mm512_shuffle_i32x4(first, second, 0xDD);
  }
  static reg from_eights(const uint64_t (&of)[8]) { return load(of); }
  static reg words(int n) { return _mm512_set1_epi16(static_cast<int16_t>(n)); }
  static reg unpack_low(reg a, reg b) { return _mm512_unpacklo_epi8(a, b); }
  static reg unpack_high(reg a, reg b) { return _mm512_unpackhi_epi8(a, b); }
  static reg unpack_low_words(reg a, reg b) { return _mm512_unpacklo_epi16(a, b); }
  static reg unpack_high_words(reg a, reg b) { return _mm512_unpackhi_epi16(a, b); }
  static reg pack(reg a, reg b) { return _mm512_packus_epi16(a, b); }
  static reg pack_words(reg a, reg b) { return _mm512_packs_epi32(a, b); }
  static reg in_order(reg packed) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), packed);
  }
  static reg and_(reg a, reg b) { return _mm512_and_si512(a, b); }
  static reg or_(reg a, reg b) { return _mm512_or_si512(a, b); }
  static reg minus_8(reg a, reg b) { return _mm512_subs_epu8(a, b); }
  static reg plus_8(reg a, reg b) { return _mm512_add_epi8(a, b); }
  static reg plus_16(reg a, reg b) { return _mm512_add_epi16(a, b); }
  static reg times_16(reg a, reg b) { return _mm512_mullo_epi16(a, b); }
  static reg high_16(reg a, reg b) { return _mm512_mulhi_epu16(a, b); }
  static reg smaller_16(reg a, reg b) { return _mm512_min_epi16(a, b); }
  template <int N>
  static reg right_16(reg a) {
    return _mm512_srli_epi16(a, N);
  }
  template <int N>
  static reg signed_right_16(reg a) {
    return _mm512_srai_epi16(a, N);
  }
  static reg pair_products(reg bytes, reg factors) { return _mm512_maddubs_epi16(bytes, factors); }
  static reg rounded_product(reg d2, reg radial) { return _mm512_mulhrs_epi16(d2, radial); }
};

using kernels = chroma_x86<vector>;

// Weights of sixty-four indices. kTables: tables of 128 entries, 1 (support at most 127) or 2 (at
// most 255).
template <int kTables>
struct table_in_registers {
  __m512i part[2 * kTables];

  explicit table_in_registers(const chroma_weights& weights) {
    for (int i = 0; i < 2 * kTables; ++i) part[i] = vector::load(weights.weight + 64 * i);
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

// Weighted sums by dot products, in 32-bit lanes. They take samples as signed bytes, so these enter
// lowered by 128, and 128 times the weights follows at the end.
struct dot_sums {
  static constexpr int kTaps = 4;
  __m512i total[4], a[4], b[4];

  dot_sums(__m512i a0, __m512i b0) {
    kernels::quarters_of(kernels::widen(a0), a);
    kernels::quarters_of(kernels::widen(b0), b);
    for (int i = 0; i < 4; ++i) {
      total[i] = _mm512_set1_epi32(256);
      a[i] = _mm512_sub_epi32(_mm512_slli_epi32(a[i], 8), _mm512_set1_epi32(256 * 128));
      b[i] = _mm512_sub_epi32(_mm512_slli_epi32(b[i], 8), _mm512_set1_epi32(256 * 128));
    }
  }
  // Bytes of four taps, a pixel's four side by side.
  static void quads_of(const __m512i (&taps)[4], __m512i (&q)[4]) {
    const kernels::halves first = kernels::unpack(taps[0], taps[1]);
    const kernels::halves second = kernels::unpack(taps[2], taps[3]);
    q[0] = _mm512_unpacklo_epi16(first.low, second.low);
    q[1] = _mm512_unpackhi_epi16(first.low, second.low);
    q[2] = _mm512_unpacklo_epi16(first.high, second.high);
    q[3] = _mm512_unpackhi_epi16(first.high, second.high);
  }
  void add(const __m512i (&w)[4], const __m512i (&of_a)[4], const __m512i (&of_b)[4]) {
    const __m512i mid = vector::words(static_cast<int16_t>(0x8080)), ones = vector::words(0x0101);
    __m512i low_a[4], low_b[4], weight[4], quad_a[4], quad_b[4];
    for (int i = 0; i < 4; ++i) {
      low_a[i] = _mm512_xor_si512(of_a[i], mid);
      low_b[i] = _mm512_xor_si512(of_b[i], mid);
    }
    quads_of(w, weight);
    quads_of(low_a, quad_a);
    quads_of(low_b, quad_b);
    for (int i = 0; i < 4; ++i) {
      total[i] = _mm512_dpbusd_epi32(total[i], weight[i], ones);
      a[i] = _mm512_dpbusd_epi32(a[i], weight[i], quad_a[i]);
      b[i] = _mm512_dpbusd_epi32(b[i], weight[i], quad_b[i]);
    }
  }
  void quotients(kernels::halves dither, uint8_t* dst_a, uint8_t* dst_b) const {
    __m512i quarters[4], out_a[4], out_b[4];
    kernels::quarters_of(dither, quarters);
    for (int i = 0; i < 4; ++i) {
      const __m512 scale =
          _mm512_div_ps(_mm512_set1_ps(kQuotientScale), _mm512_cvtepi32_ps(total[i]));
      const __m512i bias = _mm512_madd_epi16(_mm512_srli_epi32(total[i], 2), quarters[i]);
      const __m512i base = _mm512_add_epi32(_mm512_slli_epi32(total[i], 7), bias);
      const auto quotient = [&](__m512i n) {
        return _mm512_cvttps_epi32(
            _mm512_mul_ps(_mm512_cvtepi32_ps(_mm512_add_epi32(n, base)), scale));
      };
      out_a[i] = quotient(a[i]);
      out_b[i] = quotient(b[i]);
    }
    vector::store(dst_a, kernels::pack_quarters(out_a));
    vector::store(dst_b, kernels::pack_quarters(out_b));
  }
};

void filter(const chroma_span& s, const chroma_weights& weights) {
  if (s.count < vector::kBytes) return kernels::narrower().filter(s, weights);
  if (weights.support <= 127) return kernels::filter_span<table_in_registers<1>>(s, weights);
  if (weights.support <= 255) return kernels::filter_span<table_in_registers<2>>(s, weights);
  kernels::filter_span<kernels::table_in_memory>(s, weights);
}

}  // namespace

const chroma_kernels kChromaAvx512 = {filter, kernels::split_gain};

}  // namespace vorn
