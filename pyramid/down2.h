// Halves a plane in both directions: a 3x3 binomial blur sampled at every second row and column.
//
//          1 2 1
//   D(y,x) 2 4 2  around source sample (2y, 2x), + 8 >> 4; row 2y in place of a missing lower row,
//          1 2 1  row 0 above row 0, column 0 left of column 0
//
// Shape:   any size; the caller chooses the destination's, normally half the source's, rounded
//          down. Strides are bytes; the stage's equal its widths.
// Reads:   source columns 0 .. 2*dst_width-1, rows 2*row_begin-1 .. 2*row_end-1.
// Writes:  columns 0 .. dst_width-1 of the destination rows asked for.
// Rounds:  half-up; exact in every form.
// Errors:  -1 from the stage when a job could not be queued. Pointers and sizes are not checked.
// Threads: the stage cuts the destination into four slices of dst_height / 4 rows, the last one
//          with the remainder.
//
// Below eight outputs a row has no vector block that closes it on the left: its first output then
// takes the byte before the row as its left neighbour (in the plane's first row, column 0).
#pragma once

#include <cstddef>
#include <cstdint>

#include "vorn_ycnr.h"

// One slice of the stage.
struct down2_job {
  unsigned char* dst;
  unsigned char* src;
  int src_width;
  int dst_width;
  int src_height;
  int dst_height;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// The body of one of the stage's jobs (a down2_job).
VORN_API void* gaussin3x3_down2_process(void* job);

namespace vorn {

constexpr int kDownBlock = 8;  // outputs of the first block of a row

// The three source rows of one destination row.
struct source_rows {
  const uint8_t *upper, *centre, *lower;
};

inline source_rows rows_around(const uint8_t* src, int src_height, int src_stride, int y) {
  const uint8_t* centre = src + static_cast<ptrdiff_t>(2 * y) * src_stride;
  return {y > 0 ? centre - src_stride : centre, centre,
          2 * y == src_height - 1 ? centre : centre + src_stride};
}

// Destination rows [row_begin, row_end) of one plane, nothing beside them.
void down2_rows(const uint8_t* src, int src_height, int src_stride, uint8_t* dst, int dst_width,
                int dst_stride, int row_begin, int row_end);

// The stage: a whole plane in four jobs on the pool that the record names; its rows are cut here.
int down2_stage(const down2_job& plane);

}  // namespace vorn
