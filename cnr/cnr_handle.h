// What the chroma denoiser owns for one frame size, and the record its stages read per call.
#pragma once

#include "base/handle.h"

// Fourteen planes at two chroma levels, views into one scratch block that starts at
// images[0].plane[0]. Even records are level 0, (width >> 1) x (height >> 1); odd records are
// level 1, (width >> 2) x (height >> 2); strides equal widths.
struct cnr_handle_t {
  int cnr_version;    // 4
  int height;         // luma rows of the frame
  int width;          // luma columns of the frame
  struct pool* pool;  // borrowed from the top-level handle
  _tag_uni_image images[14];
  int memory_size_mb;  // scratch block in MiB, rounded down
};

// Built per call from _tag_cnr_param_output; the driver rewrites some fields between levels.
struct _tag_cnr_param {
  float range_coef[3];  // all equal: 1 / range_factor^2, halved for the masked filters
  int range_factor_sq;
  int reserved0;      // written as 0
  int smooth_radius;  // half-length of the window in pixels, a multiple of smooth_step
  int smooth_step;    // distance between taps in pixels
  int scale;          // pyramid mode 0, 1 or 2
  int saturation;     // 0: split without saturation
  int reserved1;      // written as 0
  int color_edge_u;
  int color_edge_v;
  int level_mode;  // -1 or 0, set by the driver before each pass
};

// Creates the chroma handle of a width x height frame on owner's pool. Returns null, with ERROR
// lines, when the size is below 1x1 or too large for 32-bit sizes, or without memory.
VORN_API cnr_handle_t* cnr_init(int width, int height, denoise_handle_t* owner);
// Allocates the scratch block for the handle's size and lays the images out in it. Returns 0 or -1.
VORN_API int cnr_Allocate_slice_memory(cnr_handle_t* handle);
// Frees the block and the handle. Returns 0, or -1 for null.
VORN_API int cnr_deinit(void* handle);
// Fills in name, build stamps, version and scratch size. Returns 0, or -1 for a null pointer.
VORN_API int cnr_capability(void* handle, __cnr_capability_param* capability);
