// The enlargements of up2.h and up_chroma.h in the forms that only callers from outside take.
// Shape, reads, rounding and errors are those of the two; the pairs' rows are 2*W bytes.
#pragma once

#include "vorn_ycnr.h"

struct pool;

// out = merge(enlarged small, detail).
VORN_API int gaussin3x3_up2_merge(_tag_uni_image* small, _tag_uni_image* detail,
                                  _tag_uni_image* out);

// detail = merge(enlarged small, detail), in place; up is scratch of the same geometry.
VORN_API int gaussin3x3_up2_merge1(_tag_uni_image* small, _tag_uni_image* up,
                                   _tag_uni_image* detail);

struct up2_merge1_job {
  _tag_uni_image* small;
  _tag_uni_image* up;      // scratch: enlarged samples where no vector step runs
  _tag_uni_image* detail;  // detail in, merged plane out
  struct pool* pool;
};

// gaussin3x3_up2_merge1 of an up2_merge1_job.
VORN_API void* gaussin3x3_up2_merge1_process(void* job);

// One slice of gaussin3x3_up_thread.
struct up_job {
  _tag_uni_image* out_u;
  _tag_uni_image* small_u;
  _tag_uni_image* out_v;
  _tag_uni_image* small_v;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// gaussin3x3_up_pro on the slice of an up_job.
VORN_API void* gaussin3x3_up_process(void* job);

// Rows row_begin .. row_end-3, in pairs, and always rows H-2 and H-1 (a copy of H-2). Returns 0.
VORN_API int gaussin3x3_up_pro(_tag_uni_image* small_u, _tag_uni_image* out_u,
                               _tag_uni_image* small_v, _tag_uni_image* out_v, int row_begin,
                               int row_end);

// One slice of gaussin3x3_up_uv_thread.
struct up_uv_job {
  unsigned char* dst_uv;
  _tag_uni_image* out_u;  // geometry only
  _tag_uni_image* small_u;
  _tag_uni_image* out_v;
  _tag_uni_image* small_v;
  int row_begin;
  int row_end;
  struct pool* pool;
};

// gaussin3x3_up_uv_pro on the slice of an up_uv_job.
VORN_API void* gaussin3x3_up_uv_process(void* job);

// Pairs of rows from row_begin while below row_end (an odd slice ends one row later). Returns 0.
VORN_API int gaussin3x3_up_uv_pro(_tag_uni_image* small_u, _tag_uni_image* out_u,
                                  _tag_uni_image* small_v, _tag_uni_image* out_v,
                                  unsigned char* dst_uv, int row_begin, int row_end);

// gaussin3x3_up_uv_thread's result on the calling thread. Returns 0.
VORN_API int gaussin3x3_up(_tag_uni_image* small_u, _tag_uni_image* out_u, _tag_uni_image* small_v,
                           _tag_uni_image* out_v, unsigned char* dst_uv);

namespace vorn {

// U,V pairs on the pool, all rows; row H-1 is a copy of row H-2.
int up_pairs_stage(pool* workers, _tag_uni_image* small_u, _tag_uni_image* out_u,
                   _tag_uni_image* small_v, _tag_uni_image* out_v, unsigned char* dst_uv);

}  // namespace vorn
