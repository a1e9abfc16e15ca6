// Owns the luma denoiser's memory for frames of one size.
//
// Shape:   one scratch block; every working image has a border of 8 pixels and the row stride
//          width + 16, and the images lie back to back in it without gaps.
// Errors:  a size below 1x1 or a block beyond 31 bits is refused like a failed allocation.
// Threads: creation and release belong to the caller of the library; a frame uses the handle alone.
#pragma once

#include "base/handle.h"
#include "ynr/kernels/luma_kernels.h"

namespace vorn {
constexpr int kLevels = 5;  // pyramid levels, 0 is full resolution
constexpr int kBorder = 8;  // pixels around every working image, on all four sides
constexpr int kBlock = 4;   // pixels per block side: the last blocks of a level may overhang it
}  // namespace vorn

// Nine arrays of views into one scratch block that starts at gauss_whole[1].plane[0]. "whole"
// records include the border of kBorder pixels, the others begin at the first inner pixel of the
// same buffer. Level 0 of most arrays stays unset: the driver puts the caller's frames there.
struct ynr_handle_t {
  int height;  // luma rows of the frame
  int width;   // luma columns of the frame
  int reserved;
  int thread_num;                 // 4
  struct pool* pool;              // borrowed from the top-level handle
  _tag_uni_image gauss_whole[5];  // Gaussian pyramid, levels 1..4
  _tag_uni_image gauss[5];        // its inner part; level 0 is the source frame
  _tag_uni_image spare_whole[5];  // a second working image per level; no stage uses it
  _tag_uni_image spare[5];
  _tag_uni_image work_whole[5];  // a level before denoising, then its detail
  _tag_uni_image work[5];        // its inner part; level 0 is the destination frame
  _tag_uni_image out_whole[5];   // a level after denoising; level 0: before
  _tag_uni_image out[5];
  _tag_uni_image quarter_map[5];  // one byte per 4x4 block, levels 1..4; no stage uses it
  int memory_mb;                  // scratch block in MiB, rounded down
};

// Creates the handle of width x height frames on the pool of `owner`. Returns null, with an ERROR
// line, when the size is unusable or there is no memory.
VORN_API ynr_handle_t* ynr_init(int width, int height, denoise_handle_t* owner);

// Allocates the scratch block for handle->width x handle->height and fills in all image records
// and memory_mb. The block is zeroed. Returns 0, or -1 with an ERROR line.
VORN_API int ynr_Allocate_slice_memory(ynr_handle_t* handle);

// Frees the scratch block and the handle. Returns 0, or -1 for null.
VORN_API int ynr_deinit(void* handle);

// Name, build stamps, version and scratch size. Returns 0, or -1 when either pointer is null.
VORN_API int ynr_capability(void* handle, __ynr_capability_param* capability);

namespace vorn {

// A full-size plane with room for whole 4x4 blocks, in the scratch block behind the level-0 image;
// not part of memory_mb. Its plane is null where width and height are multiples of 4. Elsewhere the
// finest level is filtered into it: blocks that overhang the caller's frame would reach the next
// row, the chroma plane or memory behind the frame.
_tag_uni_image block_destination(const ynr_handle_t& handle);

// The weight map of an intensity (kMapSize entries), kept from frame to frame behind the scratch
// block's images: a tuning has one intensity per level. Made when it is not there, in the place of
// the oldest; so it stays until kLevels others were asked for. 23 KB, not part of memory_mb. Null
// for a handle without the block.
int* kept_weight_map(const ynr_handle_t& handle, int intensity);

// The kernels' table of a map that kept_weight_map gave; null for any other map, or when the map
// fits no table.
const weight_table* kept_weight_table(const ynr_handle_t& handle, const int* map);

}  // namespace vorn
