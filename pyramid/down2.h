// Halves a plane in both directions: a 3x3 binomial blur sampled at every second row and column.
//
//          1 2 1
//   D(y,x) 2 4 2  around source sample (2y, 2x), + 8 >> 4; row 2y in place of a missing lower row,
//          1 2 1  row 0 above row 0, column 0 left of column 0
//
// Shape:   any size; the caller chooses the destination's, normally half the source's, rounded
//          down. Strides are bytes; where none is passed it equals the width.
// Reads:   source columns 0 .. 2*dst_width-1, rows 2*row_begin-1 .. 2*row_end-1.
//          The `_pro` and raw forms also read columns up to 15 when dst_width is below 8.
// Writes:  columns 0 .. dst_width-1 of the destination rows asked for.
//          The `_pro` and raw forms write eight samples per row even when dst_width is below 8.
//          Kept on purpose (Down2.NarrowRowsWriteTheirFirstBlock); the stages never do.
// Rounds:  half-up; exact in every form.
// Errors:  -1 from the stages when a job could not be queued. Pointers and sizes are not checked.
// Threads: the `_thread` forms cut the destination into four slices of dst_height / 4 rows, the
//          last one with the remainder. `gaussin3x3_down2_ynr` runs on the caller's thread.
//
// Below eight outputs a row has no vector block that closes it on the left: its first output then
// takes the byte before the row as its left neighbour (in the plane's first row, column 0).
#pragma once

#include <cstdint>

#include "cnr/cnr_handle.h"
#include "ynr/ynr_handle.h"

// One slice of gaussin3x3_down2_thread.
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

// One slice of gaussin3x3_down2_ynr_thread.
struct down2_ynr_job {
  unsigned char* dst;
  unsigned char* src;
  int src_width;
  int dst_width;
  int src_height;
  int dst_height;
  int src_stride;
  int dst_stride;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// Destination rows [row_begin, row_end). Returns 0.
VORN_API int gaussin3x3_down2_pro(unsigned char* src, int src_width, int src_height,
                                  unsigned char* dst, int dst_width, int dst_height, int row_begin,
                                  int row_end);

// The same with explicit strides.
VORN_API int gaussin3x3_down2_ynr_pro(unsigned char* src, int src_width, int src_height,
                                      int src_stride, unsigned char* dst, int dst_width,
                                      int dst_height, int dst_stride, int row_begin, int row_end);

// All rows, on the calling thread. Returns 0.
VORN_API int gaussin3x3_down2(unsigned char* src, int src_width, int src_height, int src_stride,
                              unsigned char* dst, int dst_width, int dst_height, int dst_stride);

// First planes of two images, on the chroma pool; rows lie width bytes apart.
VORN_API int gaussin3x3_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);

// The chroma stage from raw planes, and the body of one of its jobs (a down2_job).
VORN_API int gaussin3x3_down2_thread(cnr_handle_t* handle, unsigned char* src, int src_width,
                                     int src_height, unsigned char* dst, int dst_width,
                                     int dst_height);
VORN_API void* gaussin3x3_down2_process(void* job);

// First planes of two images with their strides: one luma level from the one above. Returns 0.
VORN_API int gaussin3x3_down2_ynr(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);

// The same on the luma pool, and the body of one of its jobs (a down2_ynr_job).
VORN_API int gaussin3x3_down2_ynr_thread(ynr_handle_t* handle, unsigned char* src, int src_width,
                                         int src_height, int src_stride, unsigned char* dst,
                                         int dst_width, int dst_height, int dst_stride);
VORN_API void* gaussin3x3_down2_ynr_process(void* job);

// The chroma pyramid's name for the stage.
VORN_API int pyramid_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst);

// Does nothing, returns 0: an exported placeholder.
VORN_API int pyramid_down2(unsigned char* src, int src_width, int src_height, unsigned char* dst,
                           int dst_width, int dst_height);

namespace vorn {

// Destination rows [row_begin, row_end) of one plane, nothing beside them: what every stage runs.
void down2_rows(const uint8_t* src, int src_height, int src_stride, uint8_t* dst, int dst_width,
                int dst_stride, int row_begin, int row_end);

// The same as the raw forms do it: eight samples per row at least.
void down2_rows_in_blocks(const uint8_t* src, int src_height, int src_stride, uint8_t* dst,
                          int dst_width, int dst_stride, int row_begin, int row_end);

}  // namespace vorn
