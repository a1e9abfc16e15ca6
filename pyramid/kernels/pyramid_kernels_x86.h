// Shared by the x86-64 forms: what a wider form takes over from the narrower one.
#pragma once

#include "pyramid/kernels/pyramid_kernels.h"

namespace vorn {

// Off the hot path; every x86-64 form uses it.
void blur_row_sse2(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
                   int width);

// Detail rows of the AVX2 form, which the AVX-512 form uses too: they wait for memory, and on
// planes larger than the caches 64-byte accesses that straddle lines measured 1.3 times the time of
// these.
void subtract_row_avx2(const uint8_t* a, const uint8_t* b, uint8_t* out, int width);
void add_row_avx2(const uint8_t* a, const uint8_t* d, uint8_t* out, int width);

// Remainders of rows.
static inline const pyramid_kernels& plain() {
  return pyramid_kernels_of(kernel_form::scalar);
}

// Vertical 1 2 1 of one column.
static inline int column_sum(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                             int x) {
  return upper[x] + 2 * centre[x] + lower[x];
}

// Last columns of an enlarged pair of odd width: the even column that no step reaches.
static inline void up_last_column(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd,
                                  int x) {
  even[x] = up_even_row(a, x);
  odd[x] = up_odd_row(a, b, x);
}

static inline void up_merge_last_column(const uint8_t* a, const uint8_t* b,
                                        const uint8_t* detail_even, const uint8_t* detail_odd,
                                        uint8_t* out_even, uint8_t* out_odd, int x) {
  out_even[x] = merge_detail(up_even_row(a, x), detail_even[x]);
  out_odd[x] = merge_detail(up_odd_row(a, b, x), detail_odd[x]);
}

}  // namespace vorn
