// The leaf kernels of the chroma denoiser, one table per kernel form. Walks, borders, tails, factor
// rows and tables are shared and stand in hor_ver.cpp and uv_split.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

#include "runtime/kernels.h"

namespace vorn {

constexpr int kPairsPerStep = 16;  // a whole step of the split and merge kernels: 32 bytes

struct chroma_kernels {
  // De-interleaves `pairs` U,V pairs. Any count.
  void (*split)(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs);
  // The same with the distance from 128 scaled by (16 + gain) / 16. pairs is a multiple of
  // kPairsPerStep.
  void (*split_gain)(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs,
                     int8_t gain);
  // Interleaves `pairs` samples of two planes. Any count.
  void (*merge)(const uint8_t* src_u, const uint8_t* src_v, uint8_t* dst_uv, size_t pairs);
};

// The table of a form; the plain one where a form has none of its own in this build.
const chroma_kernels& chroma_kernels_of(kernel_form form);

inline const chroma_kernels& active_chroma_kernels() {
  return chroma_kernels_of(active_kernel_form());
}

}  // namespace vorn
