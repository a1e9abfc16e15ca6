#include <cstddef>

#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/neon.h"

// All forms here are exact. Rows shorter than a step take the plain rule; otherwise the last step
// is moved back to end with the row and writes some samples twice, with the same bytes.
namespace vorn {
namespace {

const pyramid_kernels& plain() {
  return pyramid_kernels_of(kernel_form::scalar);
}

// Sixteen vertical sums of 8-bit columns as two vectors of eight. At most 4 * 255 = 1020.
struct sums16 {
  uint16x8_t low, high;
};

inline sums16 vertical_sums(uint8x16_t upper, uint8x16_t centre, uint8x16_t lower) {
  const uint8x16_t two = vdupq_n_u8(2);
  return {vmlal_u8(vaddl_u8(vget_low_u8(upper), vget_low_u8(lower)), vget_low_u8(centre),
                   vget_low_u8(two)),
          vmlal_high_u8(vaddl_high_u8(upper, lower), centre, two)};
}

// Sixteen outputs from 32 source columns, de-interleaved on load. `before` holds the odd column sum
// to the left in its last lane and receives this step's. Widest intermediate 16 * 255 = 4080.
inline uint8x16_t down16(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                         uint16x8_t& before) {
  const uint16x8_t two = vdupq_n_u16(2);
  const uint8x16x2_t u = vld2q_u8(upper), c = vld2q_u8(centre), l = vld2q_u8(lower);
  const sums16 even = vertical_sums(u.val[0], c.val[0], l.val[0]);
  const sums16 odd = vertical_sums(u.val[1], c.val[1], l.val[1]);
  const uint16x8_t low = vaddq_u16(odd.low, vextq_u16(before, odd.low, 7));
  const uint16x8_t high = vaddq_u16(odd.high, vextq_u16(odd.low, odd.high, 7));
  before = odd.high;
  return vcombine_u8(vrshrn_n_u16(vmlaq_u16(low, even.low, two), 4),
                     vrshrn_n_u16(vmlaq_u16(high, even.high, two), 4));
}

inline uint16x8_t column_sum(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                             int x) {
  return vdupq_n_u16(static_cast<uint16_t>(upper[x] + 2 * centre[x] + lower[x]));
}

void down_neon(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
               int width) {
  if (width < 16) return plain().down(upper, centre, lower, dst, width);
  uint16x8_t before = column_sum(upper, centre, lower, 0);
  const ptrdiff_t outputs = width;
  ptrdiff_t x = 0;
  for (; x + 16 <= outputs; x += 16)
    vst1q_u8(dst + x, down16(upper + 2 * x, centre + 2 * x, lower + 2 * x, before));
  if (x == outputs) return;
  x = outputs - 16;
  before = column_sum(upper, centre, lower, static_cast<int>(2 * x - 1));
  vst1q_u8(dst + x, down16(upper + 2 * x, centre + 2 * x, lower + 2 * x, before));
}

// A block of 2 x 32 enlarged samples. Bytes all through, each averaging step rounds half-up by
// itself. Zips rather than interleaving stores: compilers keep those in registers.
struct up_block {
  uint8x16_t even[2], odd[2];
};

inline up_block enlarge(const uint8_t* a, const uint8_t* b) {
  const uint8x16_t a0 = vld1q_u8(a), b0 = vld1q_u8(b);
  const uint8x16_t ha = vrhaddq_u8(a0, vld1q_u8(a + 1)), hb = vrhaddq_u8(b0, vld1q_u8(b + 1));
  const uint8x16_t v = vrhaddq_u8(a0, b0), hv = vrhaddq_u8(ha, hb);
  return {{vzip1q_u8(a0, ha), vzip2q_u8(a0, ha)}, {vzip1q_u8(v, hv), vzip2q_u8(v, hv)}};
}

inline void store_block(const up_block& block, uint8_t* even, uint8_t* odd) {
  vst1q_u8(even, block.even[0]);
  vst1q_u8(even + 16, block.even[1]);
  vst1q_u8(odd, block.odd[0]);
  vst1q_u8(odd + 16, block.odd[1]);
}

// 32 columns of two rows per step from 17 coarse samples of two rows.
void up_neon(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width) {
  if (width < 32) return plain().up(a, b, even, odd, width);
  if (width % 2) {  // an even column that no step reaches
    --width;
    even[width] = up_even_row(a, width);
    odd[width] = up_odd_row(a, b, width);
  }
  const ptrdiff_t coarse = width / 2;
  ptrdiff_t i = 0;
  for (; i + 16 <= coarse; i += 16) store_block(enlarge(a + i, b + i), even + 2 * i, odd + 2 * i);
  if (i == coarse) return;
  i = coarse - 16;
  store_block(enlarge(a + i, b + i), even + 2 * i, odd + 2 * i);
}

// Sixteen samples of min(|value + detail - 128|, 255) in bytes: the saturated sum where it is
// positive, its mirror image where it is negative; at least one of the two is zero.
inline uint8x16_t merge16(uint8x16_t value, uint8x16_t detail) {
  const uint8x16_t bias = vdupq_n_u8(kDetailBias);
  const uint8x16_t sum = vsqaddq_u8(value, vreinterpretq_s8_u8(veorq_u8(detail, bias)));
  return vorrq_u8(sum, vqsubq_u8(vqsubq_u8(bias, detail), value));
}

// min(|value - reference + 128|, 255): the same with the complement, whose bias is 127.
inline uint8x16_t detail16(uint8x16_t value, uint8x16_t reference) {
  const uint8x16_t bias = vdupq_n_u8(kDetailBias);
  const uint8x16_t sum =
      vqaddq_u8(vqsubq_u8(value, vqsubq_u8(reference, bias)), vqsubq_u8(bias, reference));
  return vorrq_u8(sum, vqsubq_u8(vqsubq_u8(reference, bias), value));
}

// A block merged with its detail.
inline up_block merged(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                       const uint8_t* detail_odd) {
  const up_block up = enlarge(a, b);
  return {
      {merge16(up.even[0], vld1q_u8(detail_even)), merge16(up.even[1], vld1q_u8(detail_even + 16))},
      {merge16(up.odd[0], vld1q_u8(detail_odd)), merge16(up.odd[1], vld1q_u8(detail_odd + 16))}};
}

// As up_neon, but each row may overwrite the detail it is merged with: the step that ends with the
// row is computed before any is stored.
void up_merge_neon(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                   const uint8_t* detail_odd, uint8_t* out_even, uint8_t* out_odd, int width) {
  if (width < 32) return plain().up_merge(a, b, detail_even, detail_odd, out_even, out_odd, width);
  if (width % 2) {
    --width;
    out_even[width] = merge_detail(up_even_row(a, width), detail_even[width]);
    out_odd[width] = merge_detail(up_odd_row(a, b, width), detail_odd[width]);
  }
  const ptrdiff_t columns = width, end = columns - 32;
  const up_block last = merged(a + end / 2, b + end / 2, detail_even + end, detail_odd + end);
  for (ptrdiff_t x = 0; x + 32 <= columns; x += 32)
    store_block(merged(a + x / 2, b + x / 2, detail_even + x, detail_odd + x), out_even + x,
                out_odd + x);
  store_block(last, out_even + end, out_odd + end);
}

inline void store64(uint8_t* out, const uint8x16x4_t& p) {
#if defined(__aarch64__)
  vst1q_u8_x4(out, p);
#else  // not among SIMDe's
  for (int i = 0; i < 4; ++i) vst1q_u8(out + 16 * i, p.val[i]);
#endif
}

// 64 samples per step, then sixteen. out may be a or b: the vector that ends with the row is
// computed before any is stored.
template <uint8x16_t (*rule)(uint8x16_t, uint8x16_t)>
inline void combine_rows(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t width) {
  const uint8x16_t last = rule(vld1q_u8(a + width - 16), vld1q_u8(b + width - 16));
  ptrdiff_t x = 0;
  for (; x + 64 <= width; x += 64) {
    uint8x16x4_t p = vld1q_u8_x4(a + x);
    const uint8x16x4_t q = vld1q_u8_x4(b + x);
    for (int i = 0; i < 4; ++i) p.val[i] = rule(p.val[i], q.val[i]);
    store64(out + x, p);
  }
  for (; x + 16 <= width; x += 16) vst1q_u8(out + x, rule(vld1q_u8(a + x), vld1q_u8(b + x)));
  vst1q_u8(out + width - 16, last);
}

void subtract_neon(const uint8_t* a, const uint8_t* b, uint8_t* out, int width) {
  if (width < 16) return plain().subtract(a, b, out, width);
  combine_rows<detail16>(a, b, out, width);
}

void add_neon(const uint8_t* a, const uint8_t* d, uint8_t* out, int width) {
  if (width < 16) return plain().add(a, d, out, width);
  combine_rows<merge16>(a, d, out, width);
}

// Eight inner columns per step; the first and the last column by the mirrored rule.
void blur_neon(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
               int width) {
  if (width < 10) return plain().blur(upper, centre, lower, dst, width);
  const auto sums = [&](int x) {
    return vmlal_u8(vaddl_u8(vld1_u8(upper + x), vld1_u8(lower + x)), vld1_u8(centre + x),
                    vdup_n_u8(2));
  };
  const auto sum = [&](int x) { return upper[x] + 2 * centre[x] + lower[x]; };
  for (int x = 1; x < width - 1; x += 8) {
    if (x > width - 9) x = width - 9;
    const uint16x8_t outer = vaddq_u16(sums(x - 1), sums(x + 1));
    vst1_u8(dst + x, vrshrn_n_u16(vaddq_u16(outer, vshlq_n_u16(sums(x), 1)), 4));
  }
  dst[0] = static_cast<uint8_t>((2 * (sum(0) + sum(1)) + 8) >> 4);
  dst[width - 1] = static_cast<uint8_t>((2 * (sum(width - 2) + sum(width - 1)) + 8) >> 4);
}

// 32 pairs per step.
void split_neon(const uint8_t* uv, uint8_t* u, uint8_t* v, int width) {
  int i = 0;
  for (; i + 32 <= width; i += 32) {
    const uint8x16x2_t p = vld2q_u8(uv + 2 * i), q = vld2q_u8(uv + 2 * i + 32);
    vst1q_u8(u + i, p.val[0]);
    vst1q_u8(u + i + 16, q.val[0]);
    vst1q_u8(v + i, p.val[1]);
    vst1q_u8(v + i + 16, q.val[1]);
  }
  plain().split(uv + 2 * i, u + i, v + i, width - i);
}

void interleave_neon(const uint8_t* u, const uint8_t* v, uint8_t* uv, int width) {
  int i = 0;
  for (; i + 16 <= width; i += 16) {
    uint8x16x2_t pair;
    pair.val[0] = vld1q_u8(u + i);
    pair.val[1] = vld1q_u8(v + i);
    vst2q_u8(uv + 2 * i, pair);
  }
  plain().interleave(u + i, v + i, uv + 2 * i, width - i);
}

}  // namespace

extern const pyramid_kernels kPyramidNeon = {down_neon, up_neon,   up_merge_neon, subtract_neon,
                                             add_neon,  blur_neon, split_neon,    interleave_neon};

}  // namespace vorn
