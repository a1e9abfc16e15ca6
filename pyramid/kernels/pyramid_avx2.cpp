// AVX2: 32 bytes per register; outputs per step 32 (down, split, interleave), 2 x 64 (up,
// up_merge), 64 then 32 (subtract, add). Widest intermediate 16 bits: at most 16 * 255 + 8 in down.
// Exact.
#include <immintrin.h>

#include "pyramid/kernels/pyramid_rows.h"

namespace vorn {
namespace {

struct vector {
  using reg = __m256i;
  static constexpr int kBytes = 32;
  static constexpr int kUnrolled = 2;
  static constexpr bool kOwnDetail = true, kOwnBlur = false;
  static constexpr kernel_form kNarrower = kernel_form::sse2;

  static reg load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const reg*>(p)); }
  static void store(uint8_t* p, reg v) { _mm256_storeu_si256(reinterpret_cast<reg*>(p), v); }
  static void load_step(const uint8_t* p, reg (&v)[kUnrolled]) {
    for (int k = 0; k < kUnrolled; ++k) v[k] = load(p + k * kBytes);
  }
  static void store_step(uint8_t* p, const reg (&v)[kUnrolled]) {
    for (int k = 0; k < kUnrolled; ++k) store(p + k * kBytes, v[k]);
  }
  static reg average(reg a, reg b) { return _mm256_avg_epu8(a, b); }

  // value + up - down in saturating bytes, mirrored where it is negative.
  static reg reflected(reg value, reg up, reg down) {
    return _mm256_or_si256(_mm256_adds_epu8(_mm256_subs_epu8(value, down), up),
                           _mm256_subs_epu8(down, value));
  }
  static reg merge(reg value, reg detail) {
    const reg bias = _mm256_set1_epi8(-128);
    return reflected(value, _mm256_subs_epu8(detail, bias), _mm256_subs_epu8(bias, detail));
  }
  static reg detail(reg value, reg reference) {
    const reg bias = _mm256_set1_epi8(-128);
    return reflected(value, _mm256_subs_epu8(bias, reference), _mm256_subs_epu8(reference, bias));
  }

  static void zip(reg p, reg q, reg (&out)[2]) {
    const reg low = _mm256_unpacklo_epi8(p, q), high = _mm256_unpackhi_epi8(p, q);
    out[0] = _mm256_permute2x128_si256(low, high, 0x20);
    out[1] = _mm256_permute2x128_si256(low, high, 0x31);
  }
  static reg packed(reg p, reg q) {
    return _mm256_permute4x64_epi64(_mm256_packus_epi16(p, q), 0xd8);
  }
  static void unzip(const uint8_t* uv, reg (&out)[2]) {
    const reg p = load(uv), q = load(uv + 32), low = _mm256_set1_epi16(0xff);
    out[0] = packed(_mm256_and_si256(p, low), _mm256_and_si256(q, low));
    out[1] = packed(_mm256_srli_epi16(p, 8), _mm256_srli_epi16(q, 8));
  }

  static void store_pairs(uint8_t* uv, reg u, reg v) {
    reg pairs[2];
    zip(u, v, pairs);
    store(uv, pairs[0]);
    store(uv + kBytes, pairs[1]);
  }

  static reg carry_of(int sum) { return _mm256_set1_epi16(static_cast<short>(sum)); }
  // Sixteen outputs from 32 columns. 2 * even + odd of each row comes from one multiply-add (at
  // most 765), the odd sums to the left from the high bytes.
  static reg down16(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                    reg& before) {
    const reg weights = _mm256_set1_epi16(0x0102);
    const reg u = load(upper), c = load(centre), l = load(lower);
    const reg right = _mm256_add_epi16(
        _mm256_add_epi16(_mm256_maddubs_epi16(u, weights), _mm256_maddubs_epi16(l, weights)),
        _mm256_slli_epi16(_mm256_maddubs_epi16(c, weights), 1));
    const reg odd =
        _mm256_add_epi16(_mm256_add_epi16(_mm256_srli_epi16(u, 8), _mm256_srli_epi16(l, 8)),
                         _mm256_slli_epi16(_mm256_srli_epi16(c, 8), 1));
    const reg left = _mm256_alignr_epi8(odd, _mm256_permute2x128_si256(before, odd, 0x21), 14);
    before = odd;
    const reg total = _mm256_add_epi16(_mm256_add_epi16(right, left), _mm256_set1_epi16(8));
    return _mm256_srli_epi16(total, 4);
  }
  static reg down(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, reg& before) {
    const reg first = down16(upper, centre, lower, before);
    return packed(first, down16(upper + 32, centre + 32, lower + 32, before));
  }
};

}  // namespace

const pyramid_kernels kPyramidAvx2 = pyramid_rows<vector>::table();

}  // namespace vorn
