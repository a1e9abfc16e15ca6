// Splits the frame's interleaved chroma plane into a U and a V plane, with or without a gain on the
// distance from neutral grey (128), and joins them again.
//
// Shape   planes are contiguous: byte i of the interleaved plane belongs to sample i / 2. width is
//         the interleaved row in bytes.
// Rounds  gain: x + ((x - 128) * saturation + 8 >> 4), clamped to 0..255.
// Errors  the _thread functions return -1 when a slice could not be queued.
// Threads four slices over disjoint rows; each _process signals its pool last.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cnr/cnr_handle.h"

// [start, end) are byte offsets into the interleaved plane, start even.
struct split_uv_job {
  unsigned char* dst_u;
  unsigned char* dst_v;
  unsigned char* src_uv;
  int saturation;
  int start;
  int end;
  struct pool* pool;
};

struct merge_uv_job {
  unsigned char* src_u;
  unsigned char* src_v;
  unsigned char* dst_uv;
  int start;
  int end;
  struct pool* pool;
};

VORN_API void* split_UV_process(void* job);
VORN_API void* split_UV_saturation_process(void* job);
VORN_API void* mergeUV_process(void* job);
VORN_API int split_UV_thread(cnr_handle_t* handle, unsigned char* src_uv, unsigned char* dst_u,
                             unsigned char* dst_v, int width, int rows);
VORN_API int split_UV_saturation_thread(cnr_handle_t* handle, unsigned char* src_uv,
                                        unsigned char* dst_u, unsigned char* dst_v, int saturation,
                                        int width, int rows);
VORN_API int mergeUV_thread(cnr_handle_t* handle, unsigned char* dst_uv, unsigned char* src_u,
                            unsigned char* src_v, int width, int rows);

namespace vorn {

// Splits the pairs that begin in `bytes` bytes with a gain: the one rule of all splits with
// saturation. Whole steps of 32 bytes take the low 8 bits of the gain as a signed number, the pairs
// after them the full value.
void split_with_gain(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t bytes, int gain);

}  // namespace vorn
