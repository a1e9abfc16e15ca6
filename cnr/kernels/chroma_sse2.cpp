// Every x86-64 machine: 16 pixels per step, two taps at a time, look-ups in memory. Widest
// intermediates: 16 bits up to the index, 32 bits for the sums (at most 20656 * 255). Exact.
#include <emmintrin.h>

#include "cnr/kernels/chroma_x86.h"

namespace vorn {
namespace {

struct vector {
  using reg = __m128i;
  static constexpr int kBytes = 16;
  static constexpr kernel_form kNarrower = kernel_form::scalar;
  using sums = chroma_x86<vector>::madd_sums;

  static reg load(const void* p) { return _mm_loadu_si128(static_cast<const reg*>(p)); }
  static void store(void* p, reg v) { _mm_storeu_si128(static_cast<reg*>(p), v); }
  static void load_halves(const int16_t* p, reg* low, reg* high) {
    *low = load(p);
    *high = load(p + 8);
  }
  static reg from_eights(const uint64_t (&of)[2]) {
    return _mm_set_epi64x(static_cast<long long>(of[1]), static_cast<long long>(of[0]));
  }
  static reg words(int n) { return _mm_set1_epi16(static_cast<int16_t>(n)); }
  static reg unpack_low(reg a, reg b) { return _mm_unpacklo_epi8(a, b); }
  static reg unpack_high(reg a, reg b) { return _mm_unpackhi_epi8(a, b); }
  static reg unpack_low_words(reg a, reg b) { return _mm_unpacklo_epi16(a, b); }
  static reg unpack_high_words(reg a, reg b) { return _mm_unpackhi_epi16(a, b); }
  static reg pack(reg a, reg b) { return _mm_packus_epi16(a, b); }
  static reg pack_words(reg a, reg b) { return _mm_packs_epi32(a, b); }
  static reg in_order(reg packed) { return packed; }
  static reg and_(reg a, reg b) { return _mm_and_si128(a, b); }
  static reg or_(reg a, reg b) { return _mm_or_si128(a, b); }
  static reg minus_8(reg a, reg b) { return _mm_subs_epu8(a, b); }
  static reg plus_8(reg a, reg b) { return _mm_add_epi8(a, b); }
  static reg plus_16(reg a, reg b) { return _mm_add_epi16(a, b); }
  static reg plus_32(reg a, reg b) { return _mm_add_epi32(a, b); }
  static reg times_16(reg a, reg b) { return _mm_mullo_epi16(a, b); }
  static reg high_16(reg a, reg b) { return _mm_mulhi_epu16(a, b); }
  static reg smaller_16(reg a, reg b) { return _mm_min_epi16(a, b); }
  template <int N>
  static reg right_16(reg a) {
    return _mm_srli_epi16(a, N);
  }
  template <int N>
  static reg signed_right_16(reg a) {
    return _mm_srai_epi16(a, N);
  }
  static reg pair_products(reg bytes, reg factors) {
    const reg low = words(0xFF);
    return plus_16(times_16(and_(bytes, low), and_(factors, low)),
                   times_16(right_16<8>(bytes), right_16<8>(factors)));
  }
  // 4 * d2 * radial >> 16 is twice the index and a half; an average with 0 rounds it. d2 above
  // 16383 is far past the last weight.
  static reg rounded_product(reg d2, reg radial) {
    const reg bounded = smaller_16(d2, words(16383));
    return _mm_avg_epu16(high_16(_mm_slli_epi16(bounded, 2), radial), words(0));
  }
  static reg weight_sum(reg pairs) { return plus_16(and_(pairs, words(0xFF)), right_16<8>(pairs)); }
  static reg products(reg a, reg b) { return _mm_madd_epi16(a, b); }
  static __m128 scale(reg divisor) {
    return _mm_div_ps(_mm_set1_ps(kQuotientScale), _mm_cvtepi32_ps(divisor));
  }
  static reg quotient(reg n, __m128 by) {
    return _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(n), by));
  }
};

using kernels = chroma_x86<vector>;

}  // namespace

const chroma_kernels kChromaSse2 = {kernels::filter_span<kernels::table_in_memory>,
                                    kernels::split_gain};

}  // namespace vorn
