// Frames in planes of any layout and stride, and the contiguous frame that the drivers work on:
// height rows of width luma bytes, then height / 2 rows of width / 2 U V pairs. Row by row on the
// pool, or on the calling thread where there is little.
#pragma once

#include <cstddef>

#include "runtime/pool.h"
#include "vorn_ycnr_ext.h"

namespace vorn {

// Of a count that is not negative, for sizes that leave 31 bits.
constexpr size_t bytes_of(int count) {
  return static_cast<size_t>(count);
}

// Whether the record describes a frame: a known layout, a size, planes, strides of a row or more.
bool usable_planes(const vorn_ycnr_planes& frame);

// Whether both are usable, with one layout and size.
bool matching_planes(const vorn_ycnr_planes& a, const vorn_ycnr_planes& b);

// Copies matching frames from plane `first` on. A plane may lie where the other's does, with the
// same or another stride.
void copy_planes(const vorn_ycnr_planes& src, const vorn_ycnr_planes& dst, int first);

// One plane of the frame into width x height of the contiguous frame (chroma: width / 2 pairs by
// height), its last column and row repeated where the frame is smaller.
void pack_luma(pool* workers, const vorn_ycnr_planes& frame, unsigned char* luma, int width,
               int height);
void pack_chroma(pool* workers, const vorn_ycnr_planes& frame, unsigned char* pairs, int width,
                 int height);

// The way back from rows of width bytes; what lies beyond the frame is left out. Of chroma, the
// first `height` rows.
void unpack_luma(pool* workers, const unsigned char* luma, const vorn_ycnr_planes& frame,
                 int width);
void unpack_chroma(pool* workers, const unsigned char* pairs, const vorn_ycnr_planes& frame,
                   int width, int height);

// Whether the frame's own memory is the contiguous frame of its size.
bool is_packed(const vorn_ycnr_planes& frame);

}  // namespace vorn
