// NEON: 16 bytes per register; outputs per step 16 (down, split, interleave), 2 x 32 (up,
// up_merge), 64 then 16 (subtract, add), 8 (blur). Widest intermediate 16 bits: at most 16 * 255 in
// down and blur. Exact.
#include "pyramid/kernels/pyramid_rows.h"
#include "runtime/neon.h"

namespace vorn {
namespace {

struct vector {
  using reg = uint8x16_t;
  static constexpr int kBytes = 16;
  static constexpr int kUnrolled = 4;
  static constexpr bool kOwnDetail = true, kOwnBlur = true;
  static constexpr kernel_form kNarrower = kernel_form::scalar;

  static reg load(const uint8_t* p) { return vld1q_u8(p); }
  static void store(uint8_t* p, reg v) { vst1q_u8(p, v); }
  static void load_step(const uint8_t* p, reg (&v)[kUnrolled]) {
    const uint8x16x4_t all = vld1q_u8_x4(p);
    for (int k = 0; k < kUnrolled; ++k) v[k] = all.val[k];
  }
  static void store_step(uint8_t* p, const reg (&v)[kUnrolled]) {
#if defined(__aarch64__)
    const uint8x16x4_t all = {{v[0], v[1], v[2], v[3]}};
    vst1q_u8_x4(p, all);
#else  // not among SIMDe's
    for (int k = 0; k < kUnrolled; ++k) store(p + k * kBytes, v[k]);
#endif
  }
  static reg average(reg a, reg b) {
    return vrhaddq_u8(a, b);
  }

  // The saturated sum where it is positive, its mirror image where it is negative; at least one of
  // the two is zero.
  static reg merge(reg value, reg detail) {
    const reg bias = vdupq_n_u8(kDetailBias);
    const reg sum = vsqaddq_u8(value, vreinterpretq_s8_u8(veorq_u8(detail, bias)));
    return vorrq_u8(sum, vqsubq_u8(vqsubq_u8(bias, detail), value));
  }
  // The same with the complement, whose bias is 127.
  static reg detail(reg value, reg reference) {
    const reg bias = vdupq_n_u8(kDetailBias);
    const reg sum =
        vqaddq_u8(vqsubq_u8(value, vqsubq_u8(reference, bias)), vqsubq_u8(bias, reference));
    return vorrq_u8(sum, vqsubq_u8(vqsubq_u8(reference, bias), value));
  }

  static void zip(reg p, reg q, reg (&out)[2]) {
    out[0] = vzip1q_u8(p, q);
    out[1] = vzip2q_u8(p, q);
  }
  static void unzip(const uint8_t* uv, reg (&out)[2]) {
    const uint8x16x2_t pair = vld2q_u8(uv);
    out[0] = pair.val[0];
    out[1] = pair.val[1];
  }

  static void store_pairs(uint8_t* uv, reg u, reg v) {
    uint8x16x2_t pair;
    pair.val[0] = u;
    pair.val[1] = v;
    vst2q_u8(uv, pair);
  }

  // Sixteen vertical sums of 8-bit columns, at most 4 * 255 = 1020.
  struct sums {
    uint16x8_t low, high;
  };
  static sums vertical_sums(reg upper, reg centre, reg lower) {
    const reg two = vdupq_n_u8(2);
    return {vmlal_u8(vaddl_u8(vget_low_u8(upper), vget_low_u8(lower)), vget_low_u8(centre),
                     vget_low_u8(two)),
            vmlal_high_u8(vaddl_high_u8(upper, lower), centre, two)};
  }
  static uint16x8_t carry_of(int sum) {
    return vdupq_n_u16(static_cast<uint16_t>(sum));
  }
  // De-interleaved on load. Widest intermediate 16 * 255 = 4080.
  static reg down(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                  uint16x8_t& before) {
    const uint16x8_t two = vdupq_n_u16(2);
    const uint8x16x2_t u = vld2q_u8(upper), c = vld2q_u8(centre), l = vld2q_u8(lower);
    const sums even = vertical_sums(u.val[0], c.val[0], l.val[0]);
    const sums odd = vertical_sums(u.val[1], c.val[1], l.val[1]);
    const uint16x8_t low = vaddq_u16(odd.low, vextq_u16(before, odd.low, 7));
    const uint16x8_t high = vaddq_u16(odd.high, vextq_u16(odd.low, odd.high, 7));
    before = odd.high;
    return vcombine_u8(vrshrn_n_u16(vmlaq_u16(low, even.low, two), 4),
                       vrshrn_n_u16(vmlaq_u16(high, even.high, two), 4));
  }

  using wide = uint16x8_t;
  static wide sums8(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower) {
    return vmlal_u8(vaddl_u8(vld1_u8(upper), vld1_u8(lower)), vld1_u8(centre), vdup_n_u8(2));
  }
  static void store_blurred(uint8_t* p, wide left, wide middle, wide right) {
    const wide outer = vaddq_u16(left, right);
    vst1_u8(p, vrshrn_n_u16(vaddq_u16(outer, vshlq_n_u16(middle, 1)), 4));
  }
};

}  // namespace

const pyramid_kernels kPyramidNeon = pyramid_rows<vector>::table();

}  // namespace vorn
