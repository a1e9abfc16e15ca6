// Doubles a plane in both directions by bilinear interpolation, by itself or merged with a detail
// plane stored with a bias of 128.
//
//   y even   s(r, i)                     avg(s(r, i), s(r, i+1))         x = 2i, 2i + 1
//   y odd    avg(s(r, i), s(r+1, i))     avg(avg of row r, avg of row r+1)
//   merge(u, d) = min(|u + d - 128|, 255): a negative sum is reflected, not clipped
//
// Shape:   fine size W x H and stride from the output (`out`, or `up` for merge1), which the detail
//          shares; the coarse plane has its own stride.
// Reads:   coarse columns 0 .. (W-1)/2, rows 0 .. (H-1)/2, and no row past the coarse plane of an
//          even H. An odd W or H may need one column or row more than half the fine plane has:
//          whatever stands there.
// Writes:  the fine plane, with these exceptions, kept on purpose:
//          - column W-1 repeats the enlarged column W-2 (Up2.LastColumnRepeatsItsNeighbour);
//          - merges leave column W-1 of rows 0 .. H-3 alone when W-1 is a multiple of 16
//            (Up2.MergeLeavesLastColumnOfMultiplesOf16);
//          - in place with an odd H it merges row H-2 twice (Up2.MergeInPlaceTwiceForOddHeights);
//          - gaussin3x3_up2 closes the bottom by copying whole strides, padding included.
// Rounds:  avg is half-up at each of its three steps; exact in every form.
// Errors:  -1 when a merge is asked of a plane lower than two rows, or a job could not be queued.
// Threads: the stage runs two jobs per chroma plane, the others the caller's thread.
#pragma once

#include <cstdint>

#include "vorn_ycnr.h"

struct pool;

// out = enlarged small. Rows from 2*sh-1 on repeat row 2*sh-2, sh being small's height. Returns 0.
VORN_API int gaussin3x3_up2(_tag_uni_image* small, _tag_uni_image* out);

namespace vorn {

// The stage: both planes merged in place, detail = merge(enlarged small, detail), by two jobs each.
int up2_merge_stage(pool* workers, _tag_uni_image& small_u, _tag_uni_image& up_u,
                    _tag_uni_image& detail_u, _tag_uni_image& small_v, _tag_uni_image& up_v,
                    _tag_uni_image& detail_v);

// result = merge(enlarged small, detail). fine receives the enlarged samples where no vector step
// runs and names the geometry; result may be fine or detail. Returns 0.
int up2_merge(const _tag_uni_image& small, const _tag_uni_image& fine, const _tag_uni_image& detail,
              const _tag_uni_image& result);

// A pair of fine rows of `width` samples, last column included, from coarse rows a and b.
// With b == a, even == odd is allowed.
void up2_pair(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width);

// The fine row of either parity alone: an even one for b == nullptr.
void up2_row(const uint8_t* a, const uint8_t* b, uint8_t* fine, int width);

// Fine rows [row_begin, row_end) of
//   gaussin3x3_up2(detail, fine); ImgAddDiff_sub128_u8(image, fine, out);
// in one pass, without the fine plane ever reaching memory: same bytes in out. row_begin is even;
// disjoint ranges may run on several threads. out may be image. Size from image, which has two
// columns at least.
void up2_add_rows(const _tag_uni_image& detail, const _tag_uni_image& image,
                  const _tag_uni_image& out, int row_begin, int row_end);

}  // namespace vorn
