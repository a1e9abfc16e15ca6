// The x86-64 forms of the chroma kernels, written once over a form's vector type V:
//
// clang-format off
//   kBytes, kNarrower              bytes per register; the form that takes shorter spans
//   reg, load, store               a register, and any kBytes of memory
//   load_halves(p, low, high)      kBytes 16-bit numbers in the pixel order of unpacked bytes
//   from_eights                    a register from its bytes, eight to a number, the first lowest
//   words(n)                       n in every 16-bit lane
//   unpack_low, unpack_high        interleave bytes within 128-bit lanes;
//     (_low_words, _high_words)    the same for words
//   pack, pack_words               words to bytes and 32-bit lanes to words, their way back
//   in_order(r)                    the pixel order of what pack makes of two consecutive registers
//   and_, or_                      of all bits
//   minus_8 (saturating), plus_8   of unsigned bytes
//   plus_16, times_16              of 16-bit lanes, wrapping
//   high_16                        upper halves of unsigned 16-bit products
//   smaller_16                     of signed 16-bit lanes
//   right_16<n>, signed_right_16<n>  shifts of 16-bit lanes
//   pair_products(bytes, factors)  products of unsigned bytes and positive ones, added in pairs
//   rounded_product(d2, radial)    the index of a distance: (d2 * radial + 2^14) >> 15, or any
//                                  number from kRangeWeights on
//   sums                           weighted sums of kTaps taps at a time; see madd_sums
// clang-format on
//
// V is a type of its file's unnamed namespace: every form so gets functions of its own, and none
// compiled for a newer machine can end up in another.
//
// Of a register's pixels, unpacking makes a low and a high half of 16-bit lanes (pixels 0-7 and
// 8-15 of every sixteen) and four quarters of 32-bit lanes; packing undoes both.
#pragma once

#include "cnr/kernels/chroma_kernels.h"

namespace vorn {

template <typename V>
struct chroma_x86 {
  using reg = typename V::reg;

  struct halves {
    reg low, high;
  };
  static inline halves unpack(reg a, reg b) { return {V::unpack_low(a, b), V::unpack_high(a, b)}; }
  static inline halves widen(reg a) { return unpack(a, V::words(0)); }
  static inline reg distance(reg a, reg b) { return V::or_(V::minus_8(a, b), V::minus_8(b, a)); }
  static inline void quarters_of(halves a, reg (&q)[4]) {
    const reg zero = V::words(0);
    q[0] = V::unpack_low_words(a.low, zero);
    q[1] = V::unpack_high_words(a.low, zero);
    q[2] = V::unpack_low_words(a.high, zero);
    q[3] = V::unpack_high_words(a.high, zero);
  }

  // (U - 128)^2 + (V - 128)^2 + 2048, at most 34816, from the magnitudes.
  static inline reg grey_distance(reg du, reg dv) {
    return V::plus_16(V::plus_16(V::times_16(du, du), V::times_16(dv, dv)), V::words(2048));
  }

  // Weights by single look-ups, for any table.
  struct table_in_memory {
    const uint8_t* weight;
    explicit table_in_memory(const chroma_weights& weights) : weight(weights.weight) {}
    reg operator()(reg low, reg high) const {
      alignas(64) uint16_t index[2][V::kBytes / 2];
      V::store(index[0], V::smaller_16(low, V::words(kRangeWeights - 1)));
      V::store(index[1], V::smaller_16(high, V::words(kRangeWeights - 1)));
      alignas(64) uint64_t eight[V::kBytes / 8];
      for (int i = 0; i < V::kBytes / 8; ++i) {
        const uint16_t* of = index[i % 2] + i / 2 * 8;
        eight[i] = 0;
        for (int k = 0; k < 8; ++k) eight[i] |= static_cast<uint64_t>(weight[of[k]]) << 8 * k;
      }
      return V::from_eights(eight);
    }
  };

  // kBytes pixels per step. Exact.
  //
  // clang-format off
  //     d32   = 32 * d, at most 61632; the multiplication by edge_a goes together with the luma
  //             difference, whose multiple of 32 the mask leaves alone
  //     d2    = d32 * (grey + 2048) >> 16
  //     index = d2 * radial * 256, rounded at bit 15; the radial factor 128 stands as 32767 and
  //             gives d2 itself up to 16384, far past the last weight
  // clang-format on
  template <typename Table>
  static void filter_span(const chroma_span& s, const chroma_weights& weights) {
    constexpr int kTaps = V::sums::kTaps;
    const Table table(weights);
    const reg zero = V::words(0), mid = V::words(static_cast<int16_t>(0x8080));
    const reg edge_a_luma = V::words(static_cast<int16_t>(4 * weights.edge_a | 32 << 8));
    const reg edge_b = V::words(static_cast<int16_t>(4 * weights.edge_b));
    const reg whole = V::words(~31);
    for (int x = 0; x < s.count; x += V::kBytes) {
      if (x > s.count - V::kBytes) x = s.count - V::kBytes;
      const uint8_t* const guide = s.guide + x;
      const uint8_t* const src_a = s.src_a + x;
      const uint8_t* const src_b = s.src_b + x;
      const reg y0 = V::load(guide), a0 = V::load(src_a), b0 = V::load(src_b);
      const halves da0 = widen(distance(a0, mid)), db0 = widen(distance(b0, mid));
      const halves grey = {grey_distance(da0.low, db0.low), grey_distance(da0.high, db0.high)};
      halves radial;
      V::load_halves(s.radial + x, &radial.low, &radial.high);
      typename V::sums sums(a0, b0);
      const auto index = [&](reg ay, reg b, reg g, reg r) {
        const reg d_ay = V::and_(V::pair_products(ay, edge_a_luma), whole);
        const reg d_b = V::and_(V::times_16(b, edge_b), whole);
        return V::rounded_product(V::high_16(V::plus_16(d_ay, d_b), g), r);
      };
      const auto weigh = [&](ptrdiff_t tap, reg* a, reg* b) {
        *a = V::load(src_a + tap);
        *b = V::load(src_b + tap);
        const halves ay = unpack(distance(a0, *a), distance(y0, V::load(guide + tap)));
        const halves db = widen(distance(b0, *b));
        return table(index(ay.low, db.low, grey.low, radial.low),
                     index(ay.high, db.high, grey.high, radial.high));
      };
      int k = 0;
      for (; k + kTaps <= s.tap_count; k += kTaps) {
        reg w[kTaps], a[kTaps], b[kTaps];
        for (int i = 0; i < kTaps; ++i) w[i] = weigh(s.taps[k + i], &a[i], &b[i]);
        sums.add(w, a, b);
      }
      if (k < s.tap_count) {  // the rest weighs nothing
        reg w[kTaps], a[kTaps], b[kTaps];
        for (int i = 0; i < kTaps; ++i) {
          w[i] = a[i] = b[i] = zero;
          if (k + i < s.tap_count) w[i] = weigh(s.taps[k + i], &a[i], &b[i]);
        }
        sums.add(w, a, b);
      }
      const reg quarters = V::plus_8(V::load(s.dither + x),
                                     V::words(static_cast<int16_t>(s.quarters | s.quarters << 8)));
      sums.quotients(widen(quarters), s.dst_a + x, s.dst_b + x);
    }
  }

  // Weighted sums of two taps at a time: 16-bit sums of the weights, 32-bit sums of the products.
  // Further members of V: weight_sum (pairs of bytes added up), products (of words, added in
  // pairs), plus_32, scale (kQuotientScale over 32-bit lanes), quotient (numbers times scale,
  // truncated).
  struct madd_sums {
    static constexpr int kTaps = 2;
    halves total;
    reg a[4], b[4];

    madd_sums(reg a0, reg b0) : total{V::words(256), V::words(256)} {  // 256 times the centre
      quarters_of(unpack(V::words(0), a0), a);
      quarters_of(unpack(V::words(0), b0), b);
    }
    static void add_products(const reg (&w)[4], reg first, reg second, reg (&sum)[4]) {
      const halves pair = unpack(first, second);
      const halves l = widen(pair.low), h = widen(pair.high);
      sum[0] = V::plus_32(sum[0], V::products(w[0], l.low));
      sum[1] = V::plus_32(sum[1], V::products(w[1], l.high));
      sum[2] = V::plus_32(sum[2], V::products(w[2], h.low));
      sum[3] = V::plus_32(sum[3], V::products(w[3], h.high));
    }
    void add(const reg (&w)[2], const reg (&of_a)[2], const reg (&of_b)[2]) {
      const halves pair = unpack(w[0], w[1]);
      total.low = V::plus_16(total.low, V::weight_sum(pair.low));
      total.high = V::plus_16(total.high, V::weight_sum(pair.high));
      const halves l = widen(pair.low), h = widen(pair.high);
      const reg words[4] = {l.low, l.high, h.low, h.high};
      add_products(words, of_a[0], of_a[1], a);
      add_products(words, of_b[0], of_b[1], b);
    }
    void quotients(halves quarters, uint8_t* dst_a, uint8_t* dst_b) const {
      reg divisor[4], bias[4], out_a[4], out_b[4];
      quarters_of(total, divisor);
      quarters_of({V::times_16(V::template right_16<2>(total.low), quarters.low),
                   V::times_16(V::template right_16<2>(total.high), quarters.high)},
                  bias);
      for (int i = 0; i < 4; ++i) {
        const auto scale = V::scale(divisor[i]);
        out_a[i] = V::quotient(V::plus_32(a[i], bias[i]), scale);
        out_b[i] = V::quotient(V::plus_32(b[i], bias[i]), scale);
      }
      V::store(dst_a, pack_quarters(out_a));
      V::store(dst_b, pack_quarters(out_b));
    }
  };

  static inline reg pack_quarters(const reg (&q)[4]) {
    return V::pack(V::pack_words(q[0], q[1]), V::pack_words(q[2], q[3]));
  }

  static const chroma_kernels& narrower() { return chroma_kernels_of(V::kNarrower); }

  // kBytes pairs per step. As words: a difference times the gain and its rounding, 16384 + 8, fit.
  // Exact.
  static void split_gain(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs,
                         int8_t gain) {
    const reg low = V::words(0xFF), g = V::words(gain);
    const auto gained = [&](reg x) {
      const reg product = V::times_16(V::plus_16(x, V::words(-128)), g);
      return V::plus_16(x, V::template signed_right_16<4>(V::plus_16(product, V::words(8))));
    };
    size_t i = 0;
    for (; i + V::kBytes <= pairs; i += V::kBytes) {
      const reg p = V::load(src_uv + 2 * i), q = V::load(src_uv + 2 * i + V::kBytes);
      V::store(dst_u + i, V::in_order(V::pack(gained(V::and_(p, low)), gained(V::and_(q, low)))));
      V::store(dst_v + i, V::in_order(V::pack(gained(V::template right_16<8>(p)),
                                              gained(V::template right_16<8>(q)))));
    }
    if (i < pairs) narrower().split_gain(src_uv + 2 * i, dst_u + i, dst_v + i, pairs - i, gain);
  }
};

}  // namespace vorn
