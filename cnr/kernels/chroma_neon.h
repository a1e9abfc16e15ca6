// What the NEON forms of v8.0 and v8.2 share. Distances and indices in 16-bit lanes, weights as
// bytes, sums in 32-bit lanes (at most 255.75 times 20656, which single precision holds). Exact.
#pragma once

#include "cnr/kernels/chroma_kernels.h"
#include "runtime/neon.h"

namespace vorn {
namespace chroma_neon {

static inline float32x4_t divide(float a, float32x4_t b) {
#if defined(__aarch64__)
  return vdivq_f32(vdupq_n_f32(a), b);
#else
  float lanes[4];
  vst1q_f32(lanes, b);
  for (float& lane : lanes) lane = a / lane;
  return vld1q_f32(lanes);
#endif
}

// scale / total for a scale just above 1, from the 8-bit estimate e in one step of third order:
// with h = scale - total e it is e (1 + h + h^2), to about the last bit of single precision.
static inline float32x4_t raised_reciprocal(float scale, float32x4_t total) {
#if defined(__aarch64__)
  const float32x4_t e = vrecpeq_f32(total);
  float32x4_t h = vfmsq_f32(vdupq_n_f32(scale), total, e);
  h = vfmaq_f32(h, h, h);
  return vfmaq_f32(e, e, h);
#else
  return divide(scale, total);
#endif
}

// Sixteen 16-bit lanes as bytes, saturated.
static inline uint8x16_t narrow(int16x8_t low, int16x8_t high) {
#if defined(__aarch64__)
  return vqmovun_high_s16(vqmovun_s16(low), high);
#else
  return vcombine_u8(vqmovun_s16(low), vqmovun_s16(high));
#endif
}

// Weights of sixteen indices. kTables: how many tables of 64 entries hold the support, and whatever
// stands past the last one is 0; 0: look-ups in memory. The indices of 16 bits are not negative.
template <int kTables>
struct weight_table {
  uint8x16x4_t part[kTables];

  explicit weight_table(const uint8_t* weight) {
    for (int k = 0; k < kTables; ++k) part[k] = vld1q_u8_x4(weight + 64 * k);
  }
  uint8x16_t operator()(int16x8_t low, int16x8_t high) const {
    const uint8x16_t index = narrow(low, high);
    uint8x16_t w = vqtbl4q_u8(part[0], index);
    for (int k = 1; k < kTables; ++k)
      w = vqtbx4q_u8(w, part[k], vsubq_u8(index, vdupq_n_u8(static_cast<uint8_t>(64 * k))));
    return w;
  }
};

template <>
struct weight_table<0> {
  const uint8_t* weight;

  explicit weight_table(const uint8_t* w) : weight(w) {}
  uint8x16_t operator()(int16x8_t low, int16x8_t high) const {
    const int16x8_t top = vdupq_n_s16(kRangeWeights - 1);
    int16_t index[16];
    uint8_t w[16];
    vst1q_s16(index, vminq_s16(low, top));
    vst1q_s16(index + 8, vminq_s16(high, top));
    for (int i = 0; i < 16; ++i) w[i] = weight[index[i]];
    return vld1q_u8(w);
  }
};

// (U - 128)^2 + (V - 128)^2 - 2048 for sixteen pixels, -2048..30720.
static inline void grey_distance(uint8x16_t u, uint8x16_t v, int16x8_t (&grey)[2]) {
  const uint8x16_t mid = vdupq_n_u8(128);
  const uint8x16_t du = vabdq_u8(u, mid), dv = vabdq_u8(v, mid);
  uint16x8_t low = vmull_u8(vget_low_u8(du), vget_low_u8(du)), high = vmull_high_u8(du, du);
  low = vmlal_u8(low, vget_low_u8(dv), vget_low_u8(dv));  // 32768 at most
  high = vmlal_high_u8(high, dv, dv);
  grey[0] = vreinterpretq_s16_u16(vsubq_u16(low, vdupq_n_u16(2048)));
  grey[1] = vreinterpretq_s16_u16(vsubq_u16(high, vdupq_n_u16(2048)));
}

// Upper halves of twice the products, rounded down; no operand pair reaches 2^31.
static inline int16x8_t doubled_high_product(int16x8_t a, int16x8_t b) {
#if defined(__aarch64__)
  return vqdmulhq_s16(a, b);
#else  // SIMDe shifts negative products to the left, which the sanitizers object to
  return vcombine_s16(vshrn_n_s32(vmull_s16(vget_low_s16(a), vget_low_s16(b)), 15),
                      vshrn_n_s32(vmull_s16(vget_high_s16(a), vget_high_s16(b)), 15));
#endif
}

// Index of the range weights for eight pixels of distance d = d16 / 16, 0..32767.
// 16 * d * (grey - 2048) doubled and halved sixteen times is d * grey / 2048 - d, rounded down;
// with 2 * d on top it is d2. Twice d2 * radial * 256 in the upper half, rounded, is the index; the
// radial factor 128 stands as 32767 and gives d2 itself up to 16384, far past the last weight.
static inline int16x8_t range_index(int16x8_t d16, int16x8_t grey, int16x8_t radial) {
  const int16x8_t d2 = vsraq_n_s16(doubled_high_product(d16, grey), d16, 3);
  return vqrdmulhq_s16(d2, radial);
}

// Sixteen sums of 32 bits.
struct sums {
  uint32x4_t q[4];

  // 256 times the centre
  explicit sums(uint8x16_t centre) {
    const uint16x8_t low = vreinterpretq_u16_u8(vzip1q_u8(vdupq_n_u8(0), centre));
    const uint16x8_t high = vreinterpretq_u16_u8(vzip2q_u8(vdupq_n_u8(0), centre));
    q[0] = vmovl_u16(vget_low_u16(low));
    q[1] = vmovl_high_u16(low);
    q[2] = vmovl_u16(vget_low_u16(high));
    q[3] = vmovl_high_u16(high);
  }
  void add(uint8x16_t weight, uint8x16_t sample) {
    const uint16x8_t low = vmull_u8(vget_low_u8(weight), vget_low_u8(sample));
    const uint16x8_t high = vmull_high_u8(weight, sample);
    q[0] = vaddw_u16(q[0], vget_low_u16(low));
    q[1] = vaddw_high_u16(q[1], low);
    q[2] = vaddw_u16(q[2], vget_low_u16(high));
    q[3] = vaddw_high_u16(q[3], high);
  }
  // (sum + quarter * quarters) * scale, truncated: at most 255.
  uint8x16_t quotient(const uint16x8_t (&quarter)[2], const uint16x8_t (&quarters)[2],
                      const float32x4_t (&scale)[4]) const {
    uint32x4_t n[4];
    n[0] = vmlal_u16(q[0], vget_low_u16(quarter[0]), vget_low_u16(quarters[0]));
    n[1] = vmlal_high_u16(q[1], quarter[0], quarters[0]);
    n[2] = vmlal_u16(q[2], vget_low_u16(quarter[1]), vget_low_u16(quarters[1]));
    n[3] = vmlal_high_u16(q[3], quarter[1], quarters[1]);
    uint16x8_t half[4];
    for (int i = 0; i < 4; ++i)
      half[i] = vreinterpretq_u16_u32(vcvtq_u32_f32(vmulq_f32(vcvtq_f32_u32(n[i]), scale[i])));
    return vuzp1q_u8(vreinterpretq_u8_u16(vuzp1q_u16(half[0], half[1])),
                     vreinterpretq_u8_u16(vuzp1q_u16(half[2], half[3])));
  }
};

// Up to this many taps, that is for sums up to 20401, the raised reciprocal gives the same
// quotients as a division (HorVer.RaisedReciprocalIsExactToo).
constexpr int kMaxRaisedTaps = 79;

// Sixteen pixels and what their taps' weights need of them.
struct centre_pixels {
  uint8x16_t y, a, b;
  int16x8_t grey[2], radial[2];

  centre_pixels(const chroma_span& s, ptrdiff_t x)
      : y(vld1q_u8(s.guide + x)), a(vld1q_u8(s.src_a + x)), b(vld1q_u8(s.src_b + x)) {
    grey_distance(a, b, grey);
    radial[0] = vld1q_s16(s.radial + x);
    radial[1] = vld1q_s16(s.radial + x + 8);
  }
};

// The colour edges as bytes.
struct edges {
  uint8x16_t a, b;
  explicit edges(const chroma_weights& w)
      : a(vdupq_n_u8(static_cast<uint8_t>(w.edge_a))),
        b(vdupq_n_u8(static_cast<uint8_t>(w.edge_b))) {
#if defined(__aarch64__)
    asm("" : "+w"(a), "+w"(b));  // or clang keeps the lower halves once more
#endif
  }
};

// 16 times the distances of sixteen pixels to their taps at guide, a and b: at most 30816.
struct distances {
  int16x8_t low, high;

  distances(int16x8_t l, int16x8_t h) : low(l), high(h) {}
  distances(const centre_pixels& c, const uint8_t* guide, uint8x16_t a, uint8x16_t b,
            const edges& edge) {
    const uint8x16_t dy = vabdq_u8(c.y, vld1q_u8(guide));
    const uint8x16_t da = vabdq_u8(c.a, a), db = vabdq_u8(c.b, b);
    uint16x8_t l = vmovl_u8(vget_low_u8(dy)), h = vmovl_high_u8(dy);
    l = vsraq_n_u16(l, vmull_u8(vget_low_u8(da), vget_low_u8(edge.a)), 3);
    h = vsraq_n_u16(h, vmull_high_u8(da, edge.a), 3);
    l = vsraq_n_u16(l, vmull_u8(vget_low_u8(db), vget_low_u8(edge.b)), 3);
    h = vsraq_n_u16(h, vmull_high_u8(db, edge.b), 3);
    low = vreinterpretq_s16_u16(vshlq_n_u16(l, 4));
    high = vreinterpretq_s16_u16(vshlq_n_u16(h, 4));
  }
};

template <typename Table>
static inline uint8x16_t weigh(const distances& d, const centre_pixels& c, const Table& table) {
  return table(range_index(d.low, c.grey[0], c.radial[0]),
               range_index(d.high, c.grey[1], c.radial[1]));
}

// Sixteen pixels per step.
template <int kTables>
static void filter_span(const chroma_span& s, const chroma_weights& weights) {
  const weight_table<kTables> table(weights.weight);
  const edges edge(weights);
  for (int x = 0; x < s.count; x += 16) {
    if (x > s.count - 16) x = s.count - 16;
    const centre_pixels centre(s, x);
    uint16x8_t sum_low = vdupq_n_u16(256);
    uint16x8_t sum_high = sum_low;
    sums sum_a(centre.a);
    sums sum_b(centre.b);
    for (int k = 0; k < s.tap_count; ++k) {
      const ptrdiff_t at = x + s.taps[k];
      const uint8x16_t a = vld1q_u8(s.src_a + at), b = vld1q_u8(s.src_b + at);
      const uint8x16_t w = weigh(distances(centre, s.guide + at, a, b, edge), centre, table);
      sum_low = vaddw_u8(sum_low, vget_low_u8(w));
      sum_high = vaddw_high_u8(sum_high, w);
      sum_a.add(w, a);
      sum_b.add(w, b);
    }
    float32x4_t scale[4] = {
        vcvtq_f32_u32(vmovl_u16(vget_low_u16(sum_low))), vcvtq_f32_u32(vmovl_high_u16(sum_low)),
        vcvtq_f32_u32(vmovl_u16(vget_low_u16(sum_high))), vcvtq_f32_u32(vmovl_high_u16(sum_high))};
    if (s.tap_count <= kMaxRaisedTaps)
      for (float32x4_t& x4 : scale) x4 = raised_reciprocal(kQuotientScale, x4);
    else
      for (float32x4_t& x4 : scale) x4 = divide(kQuotientScale, x4);
    const uint8x16_t quarters8 =
        vreinterpretq_u8_s8(vaddq_s8(vld1q_s8(s.dither + x), vdupq_n_s8(s.quarters)));
    const uint16x8_t quarters[2] = {vmovl_u8(vget_low_u8(quarters8)), vmovl_high_u8(quarters8)};
    const uint16x8_t quarter[2] = {vshrq_n_u16(sum_low, 2), vshrq_n_u16(sum_high, 2)};
    vst1q_u8(s.dst_a + x, sum_a.quotient(quarter, quarters, scale));
    vst1q_u8(s.dst_b + x, sum_b.quotient(quarter, quarters, scale));
  }
}

}  // namespace chroma_neon
}  // namespace vorn
