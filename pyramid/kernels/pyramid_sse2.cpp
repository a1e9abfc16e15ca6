// Every x86-64 machine: 16 bytes per register; outputs per step 16 (down, split, interleave), 2 x
// 32 (up, up_merge), 32 then 16 (subtract, add), 8 (blur). Widest intermediate 16 bits: at most 16
// * 255 + 8 in down and blur. Exact.
#include <emmintrin.h>

#include "pyramid/kernels/pyramid_rows.h"

namespace vorn {
namespace {

struct vector {
  using reg = __m128i;
  static constexpr int kBytes = 16;
  static constexpr int kUnrolled = 2;
  static constexpr bool kOwnDetail = true, kOwnBlur = true;
  static constexpr kernel_form kNarrower = kernel_form::scalar;

  static reg load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const reg*>(p)); }
  static void store(uint8_t* p, reg v) { _mm_storeu_si128(reinterpret_cast<reg*>(p), v); }
  static void load_step(const uint8_t* p, reg (&v)[kUnrolled]) {
    for (int k = 0; k < kUnrolled; ++k) v[k] = load(p + k * kBytes);
  }
  static void store_step(uint8_t* p, const reg (&v)[kUnrolled]) {
    for (int k = 0; k < kUnrolled; ++k) store(p + k * kBytes, v[k]);
  }
  static reg average(reg a, reg b) { return _mm_avg_epu8(a, b); }

  // value + up - down in saturating bytes, mirrored where it is negative.
  static reg reflected(reg value, reg up, reg down) {
    return _mm_or_si128(_mm_adds_epu8(_mm_subs_epu8(value, down), up), _mm_subs_epu8(down, value));
  }
  static reg merge(reg value, reg detail) {
    const reg bias = _mm_set1_epi8(-128);
    return reflected(value, _mm_subs_epu8(detail, bias), _mm_subs_epu8(bias, detail));
  }
  static reg detail(reg value, reg reference) {
    const reg bias = _mm_set1_epi8(-128);
    return reflected(value, _mm_subs_epu8(bias, reference), _mm_subs_epu8(reference, bias));
  }

  static void zip(reg p, reg q, reg (&out)[2]) {
    out[0] = _mm_unpacklo_epi8(p, q);
    out[1] = _mm_unpackhi_epi8(p, q);
  }
  static reg low_bytes(reg p) { return _mm_and_si128(p, _mm_set1_epi16(0xff)); }
  static void unzip(const uint8_t* uv, reg (&out)[2]) {
    const reg p = load(uv), q = load(uv + 16);
    const reg low = _mm_set1_epi16(0xff);
    out[0] = _mm_packus_epi16(_mm_and_si128(p, low), _mm_and_si128(q, low));
    out[1] = _mm_packus_epi16(_mm_srli_epi16(p, 8), _mm_srli_epi16(q, 8));
  }

  static void store_pairs(uint8_t* uv, reg u, reg v) {
    reg pairs[2];
    zip(u, v, pairs);
    store(uv, pairs[0]);
    store(uv + kBytes, pairs[1]);
  }

  static reg carry_of(int sum) { return _mm_set1_epi16(static_cast<short>(sum)); }
  // Eight outputs of 16 columns; sums of 16 bits, at most 4088.
  static reg down8(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, reg& before) {
    const reg u = load(upper), c = load(centre), l = load(lower);
    const reg even =
        _mm_add_epi16(_mm_add_epi16(low_bytes(u), low_bytes(l)), _mm_slli_epi16(low_bytes(c), 1));
    const reg odd = _mm_add_epi16(_mm_add_epi16(_mm_srli_epi16(u, 8), _mm_srli_epi16(l, 8)),
                                  _mm_slli_epi16(_mm_srli_epi16(c, 8), 1));
    const reg left = _mm_or_si128(_mm_slli_si128(odd, 2), _mm_srli_si128(before, 14));
    before = odd;
    const reg total = _mm_add_epi16(_mm_add_epi16(odd, left), _mm_slli_epi16(even, 1));
    return _mm_srli_epi16(_mm_add_epi16(total, _mm_set1_epi16(8)), 4);
  }
  static reg down(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, reg& before) {
    const reg first = down8(upper, centre, lower, before);
    return _mm_packus_epi16(first, down8(upper + 16, centre + 16, lower + 16, before));
  }

  // Vertical sums of eight columns, and eight bytes of sums of 16.
  using wide = __m128i;
  static wide sums8(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower) {
    const auto widened = [](const uint8_t* p) {
      return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const reg*>(p)),
                               _mm_setzero_si128());
    };
    return _mm_add_epi16(_mm_add_epi16(widened(upper), widened(lower)),
                         _mm_slli_epi16(widened(centre), 1));
  }
  static void store_blurred(uint8_t* p, wide left, wide middle, wide right) {
    const wide sum = _mm_add_epi16(_mm_add_epi16(left, right), _mm_slli_epi16(middle, 1));
    const wide result = _mm_srli_epi16(_mm_add_epi16(sum, _mm_set1_epi16(8)), 4);
    _mm_storel_epi64(reinterpret_cast<reg*>(p), _mm_packus_epi16(result, result));
  }
};

}  // namespace

const pyramid_kernels kPyramidSse2 = pyramid_rows<vector>::table();

}  // namespace vorn
