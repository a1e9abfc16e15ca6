// Halves three planes of one size together: the chroma pyramid's guide, U and V.
//
// Shape:   three sources of src_width x src_height, three destinations, rows as far apart as they
//          are wide.
// Reads, writes, rounding, errors and threads are those of down2.h for each plane.
#pragma once

#include "vorn_ycnr.h"

// One slice of the stage.
struct down_yuv_job {
  unsigned char* dst;
  unsigned char* src;
  unsigned char* dst_u;
  unsigned char* src_u;
  unsigned char* dst_v;
  unsigned char* src_v;
  int src_width;
  int dst_width;
  int src_height;
  int dst_height;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// The body of one of the stage's jobs (a down_yuv_job).
VORN_API void* gaussin3x3_down2_yuv_process(void* job);

namespace vorn {

// The stage: whole planes in four jobs on the pool that the record names; its rows are cut here.
int down_yuv_stage(const down_yuv_job& planes);

}  // namespace vorn
