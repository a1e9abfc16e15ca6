// The row functions of every vector form, written once over the form's vector type V:
//
//   kBytes, kNarrower                    bytes per register; the form that takes shorter rows
//   kOwnDetail, kOwnBlur                 whether it has detail rows and a blur, or the narrower one
//   kUnrolled, load_step, store_step     registers per step of a detail row, all at once
//   load, store, average                 average is half-up
//   merge, detail                        merge_detail() and detail_of() in saturating bytes
//   zip(p, q, out)                       p(0) q(0) p(1) q(1) ... in two registers
//   unzip(uv, out), store_pairs          2 kBytes bytes to and from their even and odd ones
//   down(upper, centre, lower, before)   kBytes outputs of 2 kBytes columns; before is the odd
//   column carry_of(sum)                        sum to the left, and is replaced by this step's
//   sums8, store_blurred                 vertical sums of eight columns; eight bytes of three of
//   them
//
// V is a type of its file's unnamed namespace: every form so gets functions of its own, and none
// compiled for a newer machine can end up in another. All forms are exact. Where a row is no whole
// number of steps, the last step is moved back to end with it and writes some samples twice.
// Positions are ptrdiff_t: with int ones compilers extend the sign at every access.
#pragma once

#include <cstddef>

#include "pyramid/kernels/pyramid_kernels.h"

namespace vorn {

template <typename V>
struct pyramid_rows {
  using reg = typename V::reg;
  static constexpr int kStep = V::kBytes;

  static const pyramid_kernels& narrower() { return pyramid_kernels_of(V::kNarrower); }

  static void down(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
                   int width) {
    if (width < kStep) return narrower().down(upper, centre, lower, dst, width);
    auto before = V::carry_of(column_sum(upper, centre, lower, 0));
    const ptrdiff_t outputs = width;
    const auto step = [&](ptrdiff_t x) {
      V::store(dst + x, V::down(upper + 2 * x, centre + 2 * x, lower + 2 * x, before));
    };
    ptrdiff_t x = 0;
    for (; x + kStep <= outputs; x += kStep) step(x);
    if (x == outputs) return;
    x = outputs - kStep;
    before = V::carry_of(column_sum(upper, centre, lower, 2 * static_cast<int>(x) - 1));
    step(x);
  }

  // 2 kStep columns of two rows: even columns are the coarse samples (or their vertical averages),
  // odd ones the horizontal averages.
  struct block {
    reg even[2], odd[2];
  };

  static inline block enlarge(const uint8_t* a, const uint8_t* b) {
    const reg a0 = V::load(a), b0 = V::load(b);
    const reg ha = V::average(a0, V::load(a + 1)), hb = V::average(b0, V::load(b + 1));
    block k;
    V::zip(a0, ha, k.even);
    V::zip(V::average(a0, b0), V::average(ha, hb), k.odd);
    return k;
  }

  static inline void write(const block& k, uint8_t* even, uint8_t* odd) {
    for (int i = 0; i < 2; ++i) {
      V::store(even + i * kStep, k.even[i]);
      V::store(odd + i * kStep, k.odd[i]);
    }
  }

  // Whether rows shorter than a step are worth one of their own: in the forms with the smallest
  // steps, for what takes longer sample by sample.
  static bool takes_short(int width) { return V::kNarrower == kernel_form::scalar && width >= 4; }

  // A pair of such rows, in a step of its own; without details the enlarged ones.
  static void up_short(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                       const uint8_t* detail_odd, uint8_t* out_even, uint8_t* out_odd, int width) {
    const size_t samples = static_cast<size_t>(width), coarse = samples / 2 + 1;
    uint8_t upper[2 * kStep] = {}, lower[2 * kStep] = {}, even[2 * kStep] = {}, odd[2 * kStep] = {};
    __builtin_memcpy(upper, a, coarse);
    __builtin_memcpy(lower, b, coarse);
    block k = enlarge(upper, lower);
    if (detail_even) {
      __builtin_memcpy(even, detail_even, samples);
      __builtin_memcpy(odd, detail_odd, samples);
      for (int i = 0; i < 2; ++i) {
        k.even[i] = V::merge(k.even[i], V::load(even + i * kStep));
        k.odd[i] = V::merge(k.odd[i], V::load(odd + i * kStep));
      }
    }
    write(k, even, odd);
    __builtin_memcpy(out_even, even, samples);
    __builtin_memcpy(out_odd, odd, samples);
  }
  static void up(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width) {
    if (width < 2 * kStep) {
      if (takes_short(width)) return up_short(a, b, nullptr, nullptr, even, odd, width);
      return narrower().up(a, b, even, odd, width);
    }
    if (width % 2) {  // an even column that no step reaches
      --width;
      even[width] = up_even_row(a, width);
      odd[width] = up_odd_row(a, b, width);
    }
    const ptrdiff_t coarse = width / 2;
    const auto step = [&](ptrdiff_t i) { write(enlarge(a + i, b + i), even + 2 * i, odd + 2 * i); };
    ptrdiff_t i = 0;
    for (; i + kStep <= coarse; i += kStep) step(i);
    if (i < coarse) step(coarse - kStep);
  }

  // As up, but each row may overwrite the detail it is merged with: the step that ends with the row
  // is computed before any is stored.
  static void up_merge(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                       const uint8_t* detail_odd, uint8_t* out_even, uint8_t* out_odd, int width) {
    if (width < 2 * kStep) {
      if (takes_short(width))
        return up_short(a, b, detail_even, detail_odd, out_even, out_odd, width);
      return narrower().up_merge(a, b, detail_even, detail_odd, out_even, out_odd, width);
    }
    if (width % 2) {
      --width;
      out_even[width] = merge_detail(up_even_row(a, width), detail_even[width]);
      out_odd[width] = merge_detail(up_odd_row(a, b, width), detail_odd[width]);
    }
    const auto merged = [&](ptrdiff_t x) {
      block k = enlarge(a + x / 2, b + x / 2);
      for (int i = 0; i < 2; ++i) {
        k.even[i] = V::merge(k.even[i], V::load(detail_even + x + i * kStep));
        k.odd[i] = V::merge(k.odd[i], V::load(detail_odd + x + i * kStep));
      }
      return k;
    };
    const ptrdiff_t end = width - 2 * kStep;
    const block last = merged(end);
    for (ptrdiff_t x = 0; x <= end; x += 2 * kStep) write(merged(x), out_even + x, out_odd + x);
    write(last, out_even + end, out_odd + end);
  }

  // out may be a or b: the vector that ends with the row is computed before any is stored.
  template <reg (*Rule)(reg, reg)>
  static inline void combine(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t width) {
    constexpr int kUnrolled = V::kUnrolled;
    const auto at = [&](ptrdiff_t x) { return Rule(V::load(a + x), V::load(b + x)); };
    const reg last = at(width - kStep);
    ptrdiff_t x = 0;
    for (; x + kUnrolled * kStep <= width; x += kUnrolled * kStep) {
      reg p[kUnrolled], q[kUnrolled];
      V::load_step(a + x, p);
      V::load_step(b + x, q);
      for (int k = 0; k < kUnrolled; ++k) p[k] = Rule(p[k], q[k]);
      V::store_step(out + x, p);
    }
    for (; x + kStep <= width; x += kStep) V::store(out + x, at(x));
    V::store(out + width - kStep, last);
  }

  template <reg (*Rule)(reg, reg)>
  static void combine_short(const uint8_t* a, const uint8_t* b, uint8_t* out, int width) {
    const size_t samples = static_cast<size_t>(width);
    uint8_t p[kStep] = {}, q[kStep] = {};
    __builtin_memcpy(p, a, samples);
    __builtin_memcpy(q, b, samples);
    V::store(p, Rule(V::load(p), V::load(q)));
    __builtin_memcpy(out, p, samples);
  }

  static void subtract(const uint8_t* a, const uint8_t* b, uint8_t* out, int width) {
    if (V::kOwnDetail && width >= kStep) return combine<V::detail>(a, b, out, width);
    if (takes_short(width)) return combine_short<V::detail>(a, b, out, width);
    narrower().subtract(a, b, out, width);
  }

  static void add(const uint8_t* a, const uint8_t* d, uint8_t* out, int width) {
    if (V::kOwnDetail && width >= kStep) return combine<V::merge>(a, d, out, width);
    if (takes_short(width)) return combine_short<V::merge>(a, d, out, width);
    narrower().add(a, d, out, width);
  }

  // Eight inner columns per step; the first and the last column by the mirrored rule.
  static void blur(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
                   int width) {
    if constexpr (!V::kOwnBlur) {
      narrower().blur(upper, centre, lower, dst, width);
    } else {
      if (width < 10) return narrower().blur(upper, centre, lower, dst, width);
      const ptrdiff_t last = width - 1;
      const auto sums = [&](ptrdiff_t x) { return V::sums8(upper + x, centre + x, lower + x); };
      for (ptrdiff_t x = 1; x < last; x += 8) {
        if (x > last - 8) x = last - 8;
        V::store_blurred(dst + x, sums(x - 1), sums(x), sums(x + 1));
      }
      const auto edge = [&](int outer, int inner) {
        const int sum =
            column_sum(upper, centre, lower, outer) + column_sum(upper, centre, lower, inner);
        return static_cast<uint8_t>((2 * sum + kHalfUp16) >> 4);
      };
      dst[0] = edge(0, 1);
      dst[last] = edge(width - 1, width - 2);
    }
  }

  static void split(const uint8_t* uv, uint8_t* u, uint8_t* v, int width) {
    const ptrdiff_t pairs = width;
    ptrdiff_t i = 0;
    for (; i + kStep <= pairs; i += kStep) {
      reg planes[2];
      V::unzip(uv + 2 * i, planes);
      V::store(u + i, planes[0]);
      V::store(v + i, planes[1]);
    }
    narrower().split(uv + 2 * i, u + i, v + i, static_cast<int>(pairs - i));
  }

  static void interleave(const uint8_t* u, const uint8_t* v, uint8_t* uv, int width) {
    const ptrdiff_t pairs = width;
    ptrdiff_t i = 0;
    for (; i + kStep <= pairs; i += kStep)
      V::store_pairs(uv + 2 * i, V::load(u + i), V::load(v + i));
    narrower().interleave(u + i, v + i, uv + 2 * i, static_cast<int>(pairs - i));
  }

  static constexpr pyramid_kernels table() {
    return {down, up, up_merge, subtract, add, blur, split, interleave};
  }
};

}  // namespace vorn
