// Doubles the U and V planes together, into two planes or into one plane of U,V pairs. The
// interpolation is that of up2.h; the forms differ in which rows they produce.
//
// Shape:   coarse height sh from small_u, fine W x H from out_u; rows lie as far apart as they are
//          wide (pairs: 2*W bytes). V planes have the size of the U planes.
// Reads:   coarse columns 0 .. (W-1)/2, and for the pair of fine rows y, y+1 coarse rows y/2 and
//          y/2 + 1: one row past the coarse plane where the text of a form does not exclude it.
// Writes:  the rows named at each form; column W-1 (or its pair) repeats column W-2.
//          gaussin3x3_up_pro leaves the last two rows of its slice alone: kept on purpose
//          (UpChroma.SlicesLeaveTheirLastTwoRows).
// Rounds:  as up2.h; exact in every form.
// Errors:  -1 when a job could not be queued. Pointers and sizes are not checked; planes without a
//          row H-2 are left alone.
// Threads: the stages cut rows 0 .. H-2 into four slices of ((H-1) / 4, rounded down to even) rows;
//          the last slice ends at H-1.
#pragma once

#include "cnr/cnr_handle.h"

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

// Two planes, on the pool: rows of every slice but its last two, and rows H-2 and H-1, which one
// job writes.
VORN_API int pyramid_up2(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                         _tag_uni_image* small_v, _tag_uni_image* out_v);
VORN_API int gaussin3x3_up_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                  _tag_uni_image* out_u, _tag_uni_image* small_v,
                                  _tag_uni_image* out_v);

// gaussin3x3_up_pro on the slice of an up_job.
VORN_API void* gaussin3x3_up_process(void* job);

// Rows row_begin .. row_end-3, in pairs, and always rows H-2 and H-1 (a copy of H-2). Returns 0.
VORN_API int gaussin3x3_up_pro(_tag_uni_image* small_u, _tag_uni_image* out_u,
                               _tag_uni_image* small_v, _tag_uni_image* out_v, int row_begin,
                               int row_end);

// Two planes without reading past the last coarse row: rows 0 .. 2*sh-3 interpolated, row 2*sh-2
// from coarse row sh-1 alone, all further rows a copy of it. Calling thread; returns 0.
VORN_API int gaussin3x3_up_odd(_tag_uni_image* small_u, _tag_uni_image* out_u,
                               _tag_uni_image* small_v, _tag_uni_image* out_v);

// Pairs, on the pool, all rows; row H-1 is a copy of row H-2.
VORN_API int pyramid_up_uv(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                           _tag_uni_image* small_v, _tag_uni_image* out_v, unsigned char* dst_uv);
VORN_API int gaussin3x3_up_uv_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                     _tag_uni_image* out_u, _tag_uni_image* small_v,
                                     _tag_uni_image* out_v, unsigned char* dst_uv);

// gaussin3x3_up_uv_pro on the slice of an up_uv_job.
VORN_API void* gaussin3x3_up_uv_process(void* job);

// Pairs of rows from row_begin while below row_end (an odd slice ends one row later). Returns 0.
VORN_API int gaussin3x3_up_uv_pro(_tag_uni_image* small_u, _tag_uni_image* out_u,
                                  _tag_uni_image* small_v, _tag_uni_image* out_v,
                                  unsigned char* dst_uv, int row_begin, int row_end);

// gaussin3x3_up_uv_thread's result on the calling thread. Returns 0.
VORN_API int gaussin3x3_up(_tag_uni_image* small_u, _tag_uni_image* out_u, _tag_uni_image* small_v,
                           _tag_uni_image* out_v, unsigned char* dst_uv);
