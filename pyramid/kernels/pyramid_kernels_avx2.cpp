#include <immintrin.h>

#include "pyramid/kernels/pyramid_kernels_x86.h"

// 32 bytes per register. All forms are exact; see pyramid_kernels_sse2.cpp for the rules. Nothing
// here may be an inline function that another file could end up calling.
namespace vorn {
namespace {

inline __m256i load(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
inline void store(uint8_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

// Sixteen outputs from 32 columns. 2 * even + odd of each row comes from one multiply-add (at most
// 765), the odd sums to the left from the high bytes; `before` is replaced by this step's.
inline __m256i down16(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                      __m256i& before) {
  const __m256i weights = _mm256_set1_epi16(0x0102);
  const __m256i u = load(upper), c = load(centre), l = load(lower);
  const __m256i right = _mm256_add_epi16(
      _mm256_add_epi16(_mm256_maddubs_epi16(u, weights), _mm256_maddubs_epi16(l, weights)),
      _mm256_slli_epi16(_mm256_maddubs_epi16(c, weights), 1));
  const __m256i odd =
      _mm256_add_epi16(_mm256_add_epi16(_mm256_srli_epi16(u, 8), _mm256_srli_epi16(l, 8)),
                       _mm256_slli_epi16(_mm256_srli_epi16(c, 8), 1));
  const __m256i left = _mm256_alignr_epi8(odd, _mm256_permute2x128_si256(before, odd, 0x21), 14);
  before = odd;
  const __m256i total = _mm256_add_epi16(_mm256_add_epi16(right, left), _mm256_set1_epi16(8));
  return _mm256_srli_epi16(total, 4);
}

// 32 outputs per step from 64 columns.
void down_avx2(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
               int width) {
  if (width < 32)
    return pyramid_kernels_of(kernel_form::sse2).down(upper, centre, lower, dst, width);
  __m256i before = _mm256_set1_epi16(static_cast<short>(column_sum(upper, centre, lower, 0)));
  for (int x = 0;;) {
    const int c = 2 * x;
    const __m256i first = down16(upper + c, centre + c, lower + c, before);
    const __m256i second = down16(upper + c + 32, centre + c + 32, lower + c + 32, before);
    store(dst + x, _mm256_permute4x64_epi64(_mm256_packus_epi16(first, second), 0xd8));
    x += 32;
    if (x + 32 <= width) continue;
    if (x >= width) return;
    x = width - 32;
    before = _mm256_set1_epi16(static_cast<short>(column_sum(upper, centre, lower, 2 * x - 1)));
  }
}

// 64 columns of two rows.
struct block {
  __m256i even[2], odd[2];
};

// p(0) q(0) p(1) q(1) ... in order.
inline void zip(__m256i p, __m256i q, __m256i (&out)[2]) {
  const __m256i low = _mm256_unpacklo_epi8(p, q), high = _mm256_unpackhi_epi8(p, q);
  out[0] = _mm256_permute2x128_si256(low, high, 0x20);
  out[1] = _mm256_permute2x128_si256(low, high, 0x31);
}

inline void enlarge(const uint8_t* a, const uint8_t* b, block& k) {
  const __m256i a0 = load(a), b0 = load(b);
  const __m256i ha = _mm256_avg_epu8(a0, load(a + 1)), hb = _mm256_avg_epu8(b0, load(b + 1));
  zip(a0, ha, k.even);
  zip(_mm256_avg_epu8(a0, b0), _mm256_avg_epu8(ha, hb), k.odd);
}

void up_avx2(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width) {
  if (width < 64) return pyramid_kernels_of(kernel_form::sse2).up(a, b, even, odd, width);
  if (width % 2) up_last_column(a, b, even, odd, --width);
  for (int i = 0;;) {
    block k;
    enlarge(a + i, b + i, k);
    store(even + 2 * i, k.even[0]);
    store(even + 2 * i + 32, k.even[1]);
    store(odd + 2 * i, k.odd[0]);
    store(odd + 2 * i + 32, k.odd[1]);
    i += 32;
    if (2 * i + 64 <= width) continue;
    if (2 * i >= width) return;
    i = width / 2 - 32;
  }
}

// value + up - down in saturating bytes, mirrored where it is negative.
inline __m256i reflected(__m256i value, __m256i up, __m256i down) {
  return _mm256_or_si256(_mm256_adds_epu8(_mm256_subs_epu8(value, down), up),
                         _mm256_subs_epu8(down, value));
}

struct merge_rule {
  static __m256i of(__m256i value, __m256i detail) {
    const __m256i bias = _mm256_set1_epi8(-128);
    return reflected(value, _mm256_subs_epu8(detail, bias), _mm256_subs_epu8(bias, detail));
  }
};

struct detail_rule {
  static __m256i of(__m256i value, __m256i reference) {
    const __m256i bias = _mm256_set1_epi8(-128);
    return reflected(value, _mm256_subs_epu8(bias, reference), _mm256_subs_epu8(reference, bias));
  }
};

// As up, but each row may overwrite the detail it is merged with: the step that ends with the row
// is computed before any is stored.
void up_merge_avx2(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                   const uint8_t* detail_odd, uint8_t* out_even, uint8_t* out_odd, int width) {
  if (width < 64)
    return pyramid_kernels_of(kernel_form::sse2)
        .up_merge(a, b, detail_even, detail_odd, out_even, out_odd, width);
  if (width % 2) up_merge_last_column(a, b, detail_even, detail_odd, out_even, out_odd, --width);
  const auto merged = [&](int x, block& k) {
    enlarge(a + x / 2, b + x / 2, k);
    for (int i = 0; i < 2; ++i) {
      k.even[i] = merge_rule::of(k.even[i], load(detail_even + x + 32 * i));
      k.odd[i] = merge_rule::of(k.odd[i], load(detail_odd + x + 32 * i));
    }
  };
  const auto write = [&](int x, const block& k) {
    for (int i = 0; i < 2; ++i) {
      store(out_even + x + 32 * i, k.even[i]);
      store(out_odd + x + 32 * i, k.odd[i]);
    }
  };
  block last;
  merged(width - 64, last);
  for (int x = 0; x + 64 <= width; x += 64) {
    block k;
    merged(x, k);
    write(x, k);
  }
  write(width - 64, last);
}

// out may be a or b: the vector that ends with the row is computed before any is stored.
template <typename Rule>
inline void combine(const uint8_t* a, const uint8_t* b, uint8_t* out, int width) {
  const __m256i last = Rule::of(load(a + width - 32), load(b + width - 32));
  int x = 0;
  for (; x + 64 <= width; x += 64) {
    const __m256i first = Rule::of(load(a + x), load(b + x));
    const __m256i second = Rule::of(load(a + x + 32), load(b + x + 32));
    store(out + x, first);
    store(out + x + 32, second);
  }
  if (x + 32 <= width) store(out + x, Rule::of(load(a + x), load(b + x)));
  store(out + width - 32, last);
}

void split_avx2(const uint8_t* uv, uint8_t* u, uint8_t* v, int width) {
  const __m256i low = _mm256_set1_epi16(0xff);
  int i = 0;
  for (; i + 32 <= width; i += 32) {
    const __m256i p = load(uv + 2 * i), q = load(uv + 2 * i + 32);
    const __m256i evens = _mm256_packus_epi16(_mm256_and_si256(p, low), _mm256_and_si256(q, low));
    const __m256i odds = _mm256_packus_epi16(_mm256_srli_epi16(p, 8), _mm256_srli_epi16(q, 8));
    store(u + i, _mm256_permute4x64_epi64(evens, 0xd8));
    store(v + i, _mm256_permute4x64_epi64(odds, 0xd8));
  }
  pyramid_kernels_of(kernel_form::sse2).split(uv + 2 * i, u + i, v + i, width - i);
}

void interleave_avx2(const uint8_t* u, const uint8_t* v, uint8_t* uv, int width) {
  int i = 0;
  for (; i + 32 <= width; i += 32) {
    __m256i pairs[2];
    zip(load(u + i), load(v + i), pairs);
    store(uv + 2 * i, pairs[0]);
    store(uv + 2 * i + 32, pairs[1]);
  }
  pyramid_kernels_of(kernel_form::sse2).interleave(u + i, v + i, uv + 2 * i, width - i);
}

}  // namespace

void subtract_row_avx2(const uint8_t* a, const uint8_t* b, uint8_t* out, int width) {
  if (width < 32) return pyramid_kernels_of(kernel_form::sse2).subtract(a, b, out, width);
  combine<detail_rule>(a, b, out, width);
}

void add_row_avx2(const uint8_t* a, const uint8_t* d, uint8_t* out, int width) {
  if (width < 32) return pyramid_kernels_of(kernel_form::sse2).add(a, d, out, width);
  combine<merge_rule>(a, d, out, width);
}

extern const pyramid_kernels kPyramidAvx2 = {down_avx2,         up_avx2,        up_merge_avx2,
                                             subtract_row_avx2, add_row_avx2,   blur_row_sse2,
                                             split_avx2,        interleave_avx2};

}  // namespace vorn
