// Doubles the U and V planes together. The interpolation is that of up2.h.
//
// Shape:   coarse height sh from small_u, fine W x H from out_u; rows lie as far apart as they are
//          wide. V planes have the size of the U planes.
// Reads:   coarse columns 0 .. (W-1)/2, and for the pair of fine rows y, y+1 coarse rows y/2 and
//          y/2 + 1: one row past the coarse plane where the text of a form does not exclude it.
// Writes:  the rows named at each form; column W-1 repeats column W-2. The stage leaves the last
// two
//          rows of its slices but the last alone: kept on purpose
//          (UpChroma.SlicesLeaveTheirLastTwoRows).
// Rounds:  as up2.h; exact in every form.
// Errors:  -1 when a job could not be queued. Pointers and sizes are not checked; planes without a
//          row H-2 are left alone.
// Threads: the stage cuts rows 0 .. H-2 into four slices of ((H-1) / 4, rounded down to even) rows;
//          the last slice ends at H-1.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vorn_ycnr.h"

struct pool;

// Two planes without reading past the last coarse row: rows 0 .. 2*sh-3 interpolated, row 2*sh-2
// from coarse row sh-1 alone, all further rows a copy of it. Calling thread; returns 0.
VORN_API int gaussin3x3_up_odd(_tag_uni_image* small_u, _tag_uni_image* out_u,
                               _tag_uni_image* small_v, _tag_uni_image* out_v);

namespace vorn {

// The stage: rows of every slice but its last two, and rows H-2 and H-1, which one job writes.
int up_stage(pool* workers, const _tag_uni_image& small_u, const _tag_uni_image& out_u,
             const _tag_uni_image& small_v, const _tag_uni_image& out_v);

// Rows per slice of the stage.
int up_slice_rows(int height);

// One chroma plane and its enlargement; rows lie as far apart as they are wide.
struct enlargement {
  const uint8_t* small;
  int small_width;
  uint8_t* fine;
  int width, height;

  const uint8_t* coarse(int r) const { return small + static_cast<ptrdiff_t>(r) * small_width; }
  uint8_t* row(int y) const { return fine + static_cast<ptrdiff_t>(y) * width; }
};

// The enlargement of small into out's plane, of geometry's size.
enlargement plane_of(const _tag_uni_image& small, const _tag_uni_image& out,
                     const _tag_uni_image& geometry);

// Rows [row_begin, row_end - 2), rounded up to pairs; and rows H-2 and H-1, alike.
void enlarge_slice(const enlargement& p, int row_begin, int row_end);
void close_bottom(const enlargement& p);

}  // namespace vorn
