// AVX2: 32 pixels per step, two taps at a time. Widest intermediates: 16 bits up to the index, 32
// bits for the sums (at most 20656 * 255). Exact.
#include <immintrin.h>

#include "cnr/kernels/chroma_x86.h"

namespace vorn {
namespace {

struct vector {
  using reg = __m256i;
  static constexpr int kBytes = 32;
  static constexpr kernel_form kNarrower = kernel_form::sse2;
  using sums = chroma_x86<vector>::madd_sums;

  static reg load(const void* p) { return _mm256_loadu_si256(static_cast<const reg*>(p)); }
  static void store(void* p, reg v) { _mm256_storeu_si256(static_cast<reg*>(p), v); }
  static void load_halves(const int16_t* p, reg* low, reg* high) {
    const reg first = load(p), second = load(p + 16);
    *low = _mm256_permute2x128_si256(first, second, 0x20);
    *high = _mm256_permute2x128_si256(first, second, 0x31);
  }
  static reg from_eights(const uint64_t (&of)[4]) { return load(of); }
  static reg words(int n) { return _mm256_set1_epi16(static_cast<int16_t>(n)); }
  static reg unpack_low(reg a, reg b) { return _mm256_unpacklo_epi8(a, b); }
  static reg unpack_high(reg a, reg b) { return _mm256_unpackhi_epi8(a, b); }
  static reg unpack_low_words(reg a, reg b) { return _mm256_unpacklo_epi16(a, b); }
  static reg unpack_high_words(reg a, reg b) { return _mm256_unpackhi_epi16(a, b); }
  static reg pack(reg a, reg b) { return _mm256_packus_epi16(a, b); }
  static reg pack_words(reg a, reg b) { return _mm256_packs_epi32(a, b); }
  static reg in_order(reg packed) { return _mm256_permute4x64_epi64(packed, 0xD8); }
  static reg and_(reg a, reg b) { return _mm256_and_si256(a, b); }
  static reg or_(reg a, reg b) { return _mm256_or_si256(a, b); }
  static reg minus_8(reg a, reg b) { return _mm256_subs_epu8(a, b); }
  static reg plus_8(reg a, reg b) { return _mm256_add_epi8(a, b); }
  static reg plus_16(reg a, reg b) { return _mm256_add_epi16(a, b); }
  static reg plus_32(reg a, reg b) { return _mm256_add_epi32(a, b); }
  static reg times_16(reg a, reg b) { return _mm256_mullo_epi16(a, b); }
  static reg high_16(reg a, reg b) { return _mm256_mulhi_epu16(a, b); }
  static reg smaller_16(reg a, reg b) { return _mm256_min_epi16(a, b); }
  template <int N>
  static reg right_16(reg a) {
    return _mm256_srli_epi16(a, N);
  }
  template <int N>
  static reg signed_right_16(reg a) {
    return _mm256_srai_epi16(a, N);
  }
  static reg pair_products(reg bytes, reg factors) { return _mm256_maddubs_epi16(bytes, factors); }
  static reg rounded_product(reg d2, reg radial) { return _mm256_mulhrs_epi16(d2, radial); }
  static reg weight_sum(reg pairs) { return _mm256_maddubs_epi16(pairs, _mm256_set1_epi8(1)); }
  static reg products(reg a, reg b) { return _mm256_madd_epi16(a, b); }
  static __m256 scale(reg divisor) {
    return _mm256_div_ps(_mm256_set1_ps(kQuotientScale), _mm256_cvtepi32_ps(divisor));
  }
  static reg quotient(reg n, __m256 by) {
    return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(n), by));
  }
};

using kernels = chroma_x86<vector>;

// Weights of thirty-two indices. kGroups: how many groups of 16 entries hold the support, 1..8.
template <int kGroups>
struct table_in_registers {
  __m256i folded[kGroups];

  explicit table_in_registers(const chroma_weights& weights) {
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

void filter(const chroma_span& s, const chroma_weights& weights) {
  if (s.count < vector::kBytes) return kernels::narrower().filter(s, weights);
  if (weights.support <= 16) return kernels::filter_span<table_in_registers<1>>(s, weights);
  if (weights.support <= 32) return kernels::filter_span<table_in_registers<2>>(s, weights);
  if (weights.support <= 48) return kernels::filter_span<table_in_registers<3>>(s, weights);
  if (weights.support <= 64) return kernels::filter_span<table_in_registers<4>>(s, weights);
  if (weights.support <= 128) return kernels::filter_span<table_in_registers<8>>(s, weights);
  kernels::filter_span<kernels::table_in_memory>(s, weights);
}

}  // namespace

const chroma_kernels kChromaAvx2 = {filter, kernels::split_gain};

}  // namespace vorn
