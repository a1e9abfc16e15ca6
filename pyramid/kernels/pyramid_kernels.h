// The row functions that every pyramid stage is made of, once per kernel form: a stage walks rows
// and closes borders, a row function turns whole rows of samples into rows of samples.
//
// Shape:   one row (or one pair of rows) per call; lengths are pixels of the row that is written.
// Reads:   exactly the samples named at each function, never one more.
// Writes:  exactly the samples named at each function.
// Rounds:  every average and every division by 16 is half-up; all forms give the same bytes.
// Threads: no state; callable from any thread.
#pragma once

#include <cstdint>

#include "runtime/kernel_form.h"

namespace vorn {

// Bias of a detail plane: 128 stands for "no difference".
constexpr int kDetailBias = 128;

constexpr int kHalfUp16 = 8;  // rounds a division by 16 half-up

struct pyramid_kernels {
  // 2:1 down, one row: dst[x] = (1 2 1 / 2 4 2 / 1 2 1) around column 2x, + 8 >> 4, for
  // 0 <= x < width. Column -1 is column 0. Reads columns 0 .. 2*width-1 of the three rows.
  void (*down)(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
               int width);

  // 1:2 up, a pair of rows between coarse rows a (above) and b, columns 0 .. width-1:
  //   even row   a(i)            avg(a(i), a(i+1))
  //   odd row    avg(a(i), b(i)) avg(avg(a(i), a(i+1)), avg(b(i), b(i+1)))
  // Reads columns 0 .. width/2 of a and b. With b == a both rows are the even row, and even == odd
  // is then allowed.
  void (*up)(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width);

  // The same pair merged with the same columns of two detail rows (or details merged with two
  // image rows, the rule is symmetric): min(|up + detail - 128|, 255), never stored unmerged.
  // The outputs may be the detail rows.
  void (*up_merge)(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                   const uint8_t* detail_odd, uint8_t* out_even, uint8_t* out_odd, int width);

  // out = min(|a - b + 128|, 255): a detail row. out may be a or b.
  void (*subtract)(const uint8_t* a, const uint8_t* b, uint8_t* out, int width);

  // out = min(|a + d - 128|, 255): its way back. out may be a or d.
  void (*add)(const uint8_t* a, const uint8_t* d, uint8_t* out, int width);

  // 3x3 binomial blur of one row, mirrored about the first and last column. width >= 2.
  void (*blur)(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
               int width);

  // Pairs to planes and back: u(i), v(i) = uv(2i), uv(2i+1). No overlap between the rows.
  void (*split)(const uint8_t* uv, uint8_t* u, uint8_t* v, int width);
  void (*interleave)(const uint8_t* u, const uint8_t* v, uint8_t* uv, int width);
};

// The table of a form; the plain one where the form is not part of this build.
const pyramid_kernels& pyramid_kernels_of(kernel_form form);

// The forms' own tables, in pyramid_<form>.cpp.
extern const pyramid_kernels kPyramidNeon;
#if defined(__x86_64__)
extern const pyramid_kernels kPyramidSse2;
extern const pyramid_kernels kPyramidAvx2;
extern const pyramid_kernels kPyramidAvx512;
#endif

// Those of the form in force.
static inline const pyramid_kernels& active_pyramid_kernels() {
  return pyramid_kernels_of(active_kernel_form());
}

// The rules, one sample at a time: what every row function computes. Static, so that a file
// compiled for a newer machine keeps its own copy.
static inline int average(int a, int b) {
  return (a + b + 1) >> 1;
}

// Vertical 1 2 1 of one column.
static inline int column_sum(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                             int x) {
  return upper[x] + 2 * centre[x] + lower[x];
}

static inline uint8_t up_even_row(const uint8_t* a, int x) {
  const int i = x / 2;
  return static_cast<uint8_t>(x % 2 ? average(a[i], a[i + 1]) : a[i]);
}

static inline uint8_t up_odd_row(const uint8_t* a, const uint8_t* b, int x) {
  return static_cast<uint8_t>(average(up_even_row(a, x), up_even_row(b, x)));
}

// A negative sum is reflected, not clipped: kept on purpose (Detail.ReflectsNegativeSums).
static inline uint8_t merge_detail(int value, int detail) {
  const int sum = value + detail - kDetailBias;
  const int magnitude = sum < 0 ? -sum : sum;
  return static_cast<uint8_t>(magnitude > 255 ? 255 : magnitude);
}

static inline uint8_t detail_of(int value, int reference) {
  const int difference = value - reference + kDetailBias;
  const int magnitude = difference < 0 ? -difference : difference;
  return static_cast<uint8_t>(magnitude > 255 ? 255 : magnitude);
}

}  // namespace vorn
