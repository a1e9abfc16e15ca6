// Smooths a plane at full resolution: 3x3 binomial weights 1 2 1 / 2 4 2 / 1 2 1, divided by 16.
// Every border is mirrored about its edge sample: row -1 is row 1, column W is column W-2.
//
// Shape:   any size; a plane of one row is its own neighbour. Sources and destinations of the U,V
//          forms have rows as far apart as they are wide.
// Reads:   rows row_begin-1 .. row_end, mirrored; columns 0 .. W-1.
// Writes:  columns 0 .. W-1 of the rows asked for.
// Rounds:  half-up; exact in every form.
// Errors:  -1 from GaussianBlur3x3 for a null image or without memory for a row, and from the
//          stage when a job could not be queued.
// Threads: the U,V stage cuts the height into four equal slices, the last with the remainder;
//          GaussianBlur3x3 runs on the caller's thread.
#pragma once

#include "vorn_ycnr.h"

// One slice of gaussin3x3_uv_thread.
struct blur_uv_job {
  unsigned char* src_u;
  unsigned char* src_v;
  unsigned char* dst_u;
  unsigned char* dst_v;
  int src_width;
  int src_height;
  int dst_width;
  int dst_height;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// First plane of src into that of dst; size from src, each image its own stride.
// A plane of one column is halved instead of blurred: kept on purpose
// (Blur.SingleColumnLosesItsNeighbours). dst may be src; a row is then blurred with the result of
// the row above it.
VORN_API int GaussianBlur3x3(_tag_uni_image* src, _tag_uni_image* dst);

// The body of one slice of a U and a V plane (a blur_uv_job).
VORN_API void* gaussin3x3_uv_process(void* job);

// Rows [row_begin, row_end) of both planes. Returns 0.
VORN_API int gaussin3x3_uv_pro(int src_width, int src_height, int dst_width, int dst_height,
                               unsigned char* src_u, unsigned char* src_v, unsigned char* dst_u,
                               unsigned char* dst_v, int row_begin, int row_end);
