// The top-level handle: what one denoiser owns, and the frame's tuning as the algorithms read it.
#pragma once

#include "vorn_ycnr.h"

struct pool;
struct ynr_handle_t;
struct cnr_handle_t;

// Luma tuning of the current frame. Same values as ycnr_ynr_tuning_param in another order.
struct _tag_ynr_param_output {
  int pIntensity[5];
  int pRadius[5];
  int layer;
  int param0;
  int param1;
  int param2;
};

// Chroma tuning of the current frame. Same values as ycnr_cnr_tuning_param in another order.
struct _tag_cnr_param_output {
  int range_factor;
  int smooth_radius;
  int saturation;
  int scale;
  int step;  // twice the tuning's step: distance between taps in pixels
  int color_edge_u;
  int color_edge_v;
  int param0;
  int param1;
  int param2;
};

// Callers of the drivers may have a record of their own that ends with cnr_param: what stands
// behind it is for the public calls alone.
struct denoise_handle_t {
  ynr_handle_t* ynr;  // luma scratch, created last
  cnr_handle_t* cnr;  // chroma scratch
  char* dump_path;    // 256 bytes, owned; informative only, dumps go elsewhere
  struct pool* pool;  // workers, owned; both algorithms borrow it, so it is created first
  _tag_ynr_param_output ynr_param;  // rewritten by every process call
  _tag_cnr_param_output cnr_param;  // rewritten by every process call
  unsigned char* packed;            // two frames for frames in planes, or null
  int busy;                         // 1 while a thread is in a call that uses the handle
  denoise_handle_t* enlarged;       // for frames too small for their tuning, or null; same pool
  ynr_handle_t* plane;              // of the size of a chroma plane, for fine mode, or null
  unsigned char* grids;             // scratch of the fine mode's luma grids, or null
  bool fine;                        // the frame under way is to be denoised in fine mode
  bool keep_src;                    // the frame under way has a source that stays as it is
};
