#include <emmintrin.h>

#include "pyramid/kernels/pyramid_kernels_x86.h"

// Every x86-64 machine. All forms are exact; rows shorter than a step take the plain rule, and
// where a row function never works in place its last step is moved back to end with the row.
namespace vorn {
namespace {

inline __m128i load(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void store(uint8_t* p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

// Vertical sums of sixteen columns, even and odd ones apart, 16 bits each (at most 1020).
struct sums {
  __m128i even, odd;
};

inline sums vertical_sums(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower) {
  const __m128i low = _mm_set1_epi16(0xff);
  const __m128i u = load(upper), c = load(centre), l = load(lower);
  return {_mm_add_epi16(_mm_add_epi16(_mm_and_si128(u, low), _mm_and_si128(l, low)),
                        _mm_slli_epi16(_mm_and_si128(c, low), 1)),
          _mm_add_epi16(_mm_add_epi16(_mm_srli_epi16(u, 8), _mm_srli_epi16(l, 8)),
                        _mm_slli_epi16(_mm_srli_epi16(c, 8), 1))};
}

// Eight outputs; `before` holds the odd sums to the left in its last lane. At most 4088.
inline __m128i down8(const sums& s, __m128i before) {
  const __m128i left = _mm_or_si128(_mm_slli_si128(s.odd, 2), _mm_srli_si128(before, 14));
  const __m128i total = _mm_add_epi16(_mm_add_epi16(s.odd, left), _mm_slli_epi16(s.even, 1));
  return _mm_srli_epi16(_mm_add_epi16(total, _mm_set1_epi16(8)), 4);
}

// Sixteen outputs per step from 32 columns.
void down_sse2(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
               int width) {
  if (width < 16) return plain().down(upper, centre, lower, dst, width);
  __m128i before = _mm_set1_epi16(static_cast<short>(column_sum(upper, centre, lower, 0)));
  for (int x = 0;;) {
    const sums first = vertical_sums(upper + 2 * x, centre + 2 * x, lower + 2 * x);
    const sums second = vertical_sums(upper + 2 * x + 16, centre + 2 * x + 16, lower + 2 * x + 16);
    store(dst + x, _mm_packus_epi16(down8(first, before), down8(second, first.odd)));
    before = second.odd;
    x += 16;
    if (x + 16 <= width) continue;
    if (x >= width) return;
    x = width - 16;
    before = _mm_set1_epi16(static_cast<short>(column_sum(upper, centre, lower, 2 * x - 1)));
  }
}

// 32 columns of two rows: even columns are the coarse samples (or their vertical averages), odd
// ones the horizontal averages.
struct block {
  __m128i even[2], odd[2];
};

inline void enlarge(const uint8_t* a, const uint8_t* b, block& k) {
  const __m128i a0 = load(a), b0 = load(b);
  const __m128i ha = _mm_avg_epu8(a0, load(a + 1)), hb = _mm_avg_epu8(b0, load(b + 1));
  const __m128i v = _mm_avg_epu8(a0, b0), hv = _mm_avg_epu8(ha, hb);
  k = {{_mm_unpacklo_epi8(a0, ha), _mm_unpackhi_epi8(a0, ha)},
       {_mm_unpacklo_epi8(v, hv), _mm_unpackhi_epi8(v, hv)}};
}

void up_sse2(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width) {
  if (width < 32) return plain().up(a, b, even, odd, width);
  if (width % 2) up_last_column(a, b, even, odd, --width);
  for (int i = 0;;) {
    block k;
    enlarge(a + i, b + i, k);
    store(even + 2 * i, k.even[0]);
    store(even + 2 * i + 16, k.even[1]);
    store(odd + 2 * i, k.odd[0]);
    store(odd + 2 * i + 16, k.odd[1]);
    i += 16;
    if (2 * i + 32 <= width) continue;
    if (2 * i >= width) return;
    i = width / 2 - 16;
  }
}

// min(|value + detail - 128|, 255) in saturating bytes: the sum where it is positive, its mirror
// image where it is negative; at least one of the two is zero.
struct merge_rule {
  static __m128i of(__m128i value, __m128i detail) {
    const __m128i bias = _mm_set1_epi8(-128);
    const __m128i up = _mm_subs_epu8(detail, bias), down = _mm_subs_epu8(bias, detail);
    return _mm_or_si128(_mm_adds_epu8(_mm_subs_epu8(value, down), up), _mm_subs_epu8(down, value));
  }
};

// min(|value - reference + 128|, 255): the same with the roles of the two halves exchanged.
struct detail_rule {
  static __m128i of(__m128i value, __m128i reference) {
    const __m128i bias = _mm_set1_epi8(-128);
    const __m128i up = _mm_subs_epu8(bias, reference), down = _mm_subs_epu8(reference, bias);
    return _mm_or_si128(_mm_adds_epu8(_mm_subs_epu8(value, down), up), _mm_subs_epu8(down, value));
  }
};

// As up, but each row may overwrite the detail it is merged with: the step that ends with the row
// is computed before any is stored.
void up_merge_sse2(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                   const uint8_t* detail_odd, uint8_t* out_even, uint8_t* out_odd, int width) {
  if (width < 32) return plain().up_merge(a, b, detail_even, detail_odd, out_even, out_odd, width);
  if (width % 2) up_merge_last_column(a, b, detail_even, detail_odd, out_even, out_odd, --width);
  const auto merged = [&](int x, block& k) {
    enlarge(a + x / 2, b + x / 2, k);
    for (int i = 0; i < 2; ++i) {
      k.even[i] = merge_rule::of(k.even[i], load(detail_even + x + 16 * i));
      k.odd[i] = merge_rule::of(k.odd[i], load(detail_odd + x + 16 * i));
    }
  };
  const auto write = [&](int x, const block& k) {
    for (int i = 0; i < 2; ++i) {
      store(out_even + x + 16 * i, k.even[i]);
      store(out_odd + x + 16 * i, k.odd[i]);
    }
  };
  block last;
  merged(width - 32, last);
  for (int x = 0; x + 32 <= width; x += 32) {
    block k;
    merged(x, k);
    write(x, k);
  }
  write(width - 32, last);
}

// out may be a or b: the vector that ends with the row is computed before any is stored.
template <typename Rule>
inline void combine(const uint8_t* a, const uint8_t* b, uint8_t* out, int width) {
  const __m128i last = Rule::of(load(a + width - 16), load(b + width - 16));
  int x = 0;
  for (; x + 32 <= width; x += 32) {
    const __m128i first = Rule::of(load(a + x), load(b + x));
    const __m128i second = Rule::of(load(a + x + 16), load(b + x + 16));
    store(out + x, first);
    store(out + x + 16, second);
  }
  if (x + 16 <= width) store(out + x, Rule::of(load(a + x), load(b + x)));
  store(out + width - 16, last);
}

void subtract_sse2(const uint8_t* a, const uint8_t* b, uint8_t* out, int width) {
  if (width < 16) return plain().subtract(a, b, out, width);
  combine<detail_rule>(a, b, out, width);
}

void add_sse2(const uint8_t* a, const uint8_t* d, uint8_t* out, int width) {
  if (width < 16) return plain().add(a, d, out, width);
  combine<merge_rule>(a, d, out, width);
}

void split_sse2(const uint8_t* uv, uint8_t* u, uint8_t* v, int width) {
  const __m128i low = _mm_set1_epi16(0xff);
  int i = 0;
  for (; i + 16 <= width; i += 16) {
    const __m128i p = load(uv + 2 * i), q = load(uv + 2 * i + 16);
    store(u + i, _mm_packus_epi16(_mm_and_si128(p, low), _mm_and_si128(q, low)));
    store(v + i, _mm_packus_epi16(_mm_srli_epi16(p, 8), _mm_srli_epi16(q, 8)));
  }
  plain().split(uv + 2 * i, u + i, v + i, width - i);
}

void interleave_sse2(const uint8_t* u, const uint8_t* v, uint8_t* uv, int width) {
  int i = 0;
  for (; i + 16 <= width; i += 16) {
    const __m128i p = load(u + i), q = load(v + i);
    store(uv + 2 * i, _mm_unpacklo_epi8(p, q));
    store(uv + 2 * i + 16, _mm_unpackhi_epi8(p, q));
  }
  plain().interleave(u + i, v + i, uv + 2 * i, width - i);
}

// Vertical sums of eight columns.
inline __m128i sums8(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower) {
  const auto widened = [](const uint8_t* p) {
    return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)),
                             _mm_setzero_si128());
  };
  return _mm_add_epi16(_mm_add_epi16(widened(upper), widened(lower)),
                       _mm_slli_epi16(widened(centre), 1));
}

}  // namespace

// Eight inner columns per step; the first and the last column by the mirrored rule.
void blur_row_sse2(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
                   int width) {
  if (width < 10) return plain().blur(upper, centre, lower, dst, width);
  for (int x = 1; x < width - 1; x += 8) {
    if (x > width - 9) x = width - 9;
    const auto at = [&](int i) { return sums8(upper + i, centre + i, lower + i); };
    const __m128i total =
        _mm_add_epi16(_mm_add_epi16(at(x - 1), at(x + 1)), _mm_slli_epi16(at(x), 1));
    const __m128i result = _mm_srli_epi16(_mm_add_epi16(total, _mm_set1_epi16(8)), 4);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packus_epi16(result, result));
  }
  const auto edge = [&](int outer, int inner) {
    return static_cast<uint8_t>(
        (2 * (column_sum(upper, centre, lower, outer) + column_sum(upper, centre, lower, inner)) +
         8) >>
        4);
  };
  dst[0] = edge(0, 1);
  dst[width - 1] = edge(width - 1, width - 2);
}

extern const pyramid_kernels kPyramidSse2 = {down_sse2,     up_sse2,        up_merge_sse2,
                                             subtract_sse2, add_sse2,       blur_row_sse2,
                                             split_sse2,    interleave_sse2};

}  // namespace vorn
