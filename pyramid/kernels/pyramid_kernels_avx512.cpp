#include <immintrin.h>

#include "pyramid/kernels/pyramid_kernels_x86.h"

// 64 bytes per register, byte permutes across all of it. All forms are exact; see
// pyramid_kernels_sse2.cpp for the rules. Nothing here may be an inline function that another file
// could end up calling.
namespace vorn {
namespace {

inline __m512i load(const uint8_t* p) {
  return _mm512_loadu_si512(p);
}
inline void store(uint8_t* p, __m512i v) {
  _mm512_storeu_si512(p, v);
}

// Bytes to take from two registers side by side (0..63 the first, 64..127 the second).
struct byte_order {
  alignas(64) uint8_t index[64];
  __m512i vector() const { return _mm512_load_si512(index); }
};

// Every second byte, from the first on or from the second.
constexpr byte_order every_second(int from) {
  byte_order order{};
  for (int i = 0; i < 64; ++i) order.index[i] = static_cast<uint8_t>(2 * i + from);
  return order;
}

// Bytes of the two in turn, from byte `from` of each.
constexpr byte_order in_turn(int from) {
  byte_order order{};
  for (int i = 0; i < 64; ++i) order.index[i] = static_cast<uint8_t>(from + i / 2 + 64 * (i % 2));
  return order;
}

constexpr byte_order kEvens = every_second(0), kOdds = every_second(1);
constexpr byte_order kZipLow = in_turn(0), kZipHigh = in_turn(32);

// 16-bit lanes moved up by one, the last lane of the second register moved in.
struct lane_order {
  alignas(64) uint16_t index[32];
};
constexpr lane_order moved_up() {
  lane_order order{};
  for (int i = 0; i < 32; ++i) order.index[i] = static_cast<uint16_t>(i ? i - 1 : 63);
  return order;
}
constexpr lane_order kMovedUp = moved_up();

// 32 outputs from 64 columns; see pyramid_kernels_avx2.cpp.
inline __m512i down32(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                      __m512i& before) {
  const __m512i weights = _mm512_set1_epi16(0x0102);
  const __m512i u = load(upper), c = load(centre), l = load(lower);
  const __m512i right = _mm512_add_epi16(
      _mm512_add_epi16(_mm512_maddubs_epi16(u, weights), _mm512_maddubs_epi16(l, weights)),
      _mm512_slli_epi16(_mm512_maddubs_epi16(c, weights), 1));
  const __m512i odd =
      _mm512_add_epi16(_mm512_add_epi16(_mm512_srli_epi16(u, 8), _mm512_srli_epi16(l, 8)),
                       _mm512_slli_epi16(_mm512_srli_epi16(c, 8), 1));
  const __m512i left = _mm512_permutex2var_epi16(odd, _mm512_load_si512(kMovedUp.index), before);
  before = odd;
  const __m512i total = _mm512_add_epi16(_mm512_add_epi16(right, left), _mm512_set1_epi16(8));
  return _mm512_srli_epi16(total, 4);
}

// 64 outputs per step from 128 columns.
void down_avx512(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
                 int width) {
  if (width < 64)
    return pyramid_kernels_of(kernel_form::avx2).down(upper, centre, lower, dst, width);
  __m512i before = _mm512_set1_epi16(static_cast<short>(column_sum(upper, centre, lower, 0)));
  for (int x = 0;;) {
    const int c = 2 * x;
    const __m512i first = down32(upper + c, centre + c, lower + c, before);
    const __m512i second = down32(upper + c + 64, centre + c + 64, lower + c + 64, before);
    store(dst + x, _mm512_permutex2var_epi8(first, kEvens.vector(), second));
    x += 64;
    if (x + 64 <= width) continue;
    if (x >= width) return;
    x = width - 64;
    before = _mm512_set1_epi16(static_cast<short>(column_sum(upper, centre, lower, 2 * x - 1)));
  }
}

// 128 columns of two rows.
struct block {
  __m512i even[2], odd[2];
};

inline void zip(__m512i p, __m512i q, __m512i (&out)[2]) {
  out[0] = _mm512_permutex2var_epi8(p, kZipLow.vector(), q);
  out[1] = _mm512_permutex2var_epi8(p, kZipHigh.vector(), q);
}

inline void enlarge(const uint8_t* a, const uint8_t* b, block& k) {
  const __m512i a0 = load(a), b0 = load(b);
  const __m512i ha = _mm512_avg_epu8(a0, load(a + 1)), hb = _mm512_avg_epu8(b0, load(b + 1));
  zip(a0, ha, k.even);
  zip(_mm512_avg_epu8(a0, b0), _mm512_avg_epu8(ha, hb), k.odd);
}

void up_avx512(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width) {
  if (width < 128) return pyramid_kernels_of(kernel_form::avx2).up(a, b, even, odd, width);
  if (width % 2) up_last_column(a, b, even, odd, --width);
  for (int i = 0;;) {
    block k;
    enlarge(a + i, b + i, k);
    store(even + 2 * i, k.even[0]);
    store(even + 2 * i + 64, k.even[1]);
    store(odd + 2 * i, k.odd[0]);
    store(odd + 2 * i + 64, k.odd[1]);
    i += 64;
    if (2 * i + 128 <= width) continue;
    if (2 * i >= width) return;
    i = width / 2 - 64;
  }
}

// value + up - down in saturating bytes, mirrored where it is negative.
inline __m512i reflected(__m512i value, __m512i up, __m512i down) {
  return _mm512_or_si512(_mm512_adds_epu8(_mm512_subs_epu8(value, down), up),
                         _mm512_subs_epu8(down, value));
}

struct merge_rule {
  static __m512i of(__m512i value, __m512i detail) {
    const __m512i bias = _mm512_set1_epi8(-128);
    return reflected(value, _mm512_subs_epu8(detail, bias), _mm512_subs_epu8(bias, detail));
  }
};

// As up, but each row may overwrite the detail it is merged with: the step that ends with the row
// is computed before any is stored.
void up_merge_avx512(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                     const uint8_t* detail_odd, uint8_t* out_even, uint8_t* out_odd, int width) {
  if (width < 128)
    return pyramid_kernels_of(kernel_form::avx2)
        .up_merge(a, b, detail_even, detail_odd, out_even, out_odd, width);
  if (width % 2) up_merge_last_column(a, b, detail_even, detail_odd, out_even, out_odd, --width);
  const auto merged = [&](int x, block& k) {
    enlarge(a + x / 2, b + x / 2, k);
    for (int i = 0; i < 2; ++i) {
      k.even[i] = merge_rule::of(k.even[i], load(detail_even + x + 64 * i));
      k.odd[i] = merge_rule::of(k.odd[i], load(detail_odd + x + 64 * i));
    }
  };
  const auto write = [&](int x, const block& k) {
    for (int i = 0; i < 2; ++i) {
      store(out_even + x + 64 * i, k.even[i]);
      store(out_odd + x + 64 * i, k.odd[i]);
    }
  };
  block last;
  merged(width - 128, last);
  for (int x = 0; x + 128 <= width; x += 128) {
    block k;
    merged(x, k);
    write(x, k);
  }
  write(width - 128, last);
}

void split_avx512(const uint8_t* uv, uint8_t* u, uint8_t* v, int width) {
  int i = 0;
  for (; i + 64 <= width; i += 64) {
    const __m512i p = load(uv + 2 * i), q = load(uv + 2 * i + 64);
    store(u + i, _mm512_permutex2var_epi8(p, kEvens.vector(), q));
    store(v + i, _mm512_permutex2var_epi8(p, kOdds.vector(), q));
  }
  pyramid_kernels_of(kernel_form::avx2).split(uv + 2 * i, u + i, v + i, width - i);
}

void interleave_avx512(const uint8_t* u, const uint8_t* v, uint8_t* uv, int width) {
  int i = 0;
  for (; i + 64 <= width; i += 64) {
    __m512i pairs[2];
    zip(load(u + i), load(v + i), pairs);
    store(uv + 2 * i, pairs[0]);
    store(uv + 2 * i + 64, pairs[1]);
  }
  pyramid_kernels_of(kernel_form::avx2).interleave(u + i, v + i, uv + 2 * i, width - i);
}

}  // namespace

extern const pyramid_kernels kPyramidAvx512 = {down_avx512,       up_avx512,        up_merge_avx512,
                                               subtract_row_avx2, add_row_avx2,     blur_row_sse2,
                                               split_avx512,      interleave_avx512};

}  // namespace vorn
