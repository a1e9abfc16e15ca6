#include "cnr/chroma_kernels.h"

namespace vorn {
namespace {

void split_scalar(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs) {
  for (size_t i = 0; i < pairs; ++i) {
    dst_u[i] = src_uv[2 * i];
    dst_v[i] = src_uv[2 * i + 1];
  }
}

uint8_t with_gain(uint8_t x, int8_t gain) {
  const int y = x + (((x - 128) * gain + 8) >> 4);
  return static_cast<uint8_t>(y < 0 ? 0 : y > 255 ? 255 : y);
}

void split_gain_scalar(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t pairs,
                       int8_t gain) {
  for (size_t i = 0; i < pairs; ++i) {
    dst_u[i] = with_gain(src_uv[2 * i], gain);
    dst_v[i] = with_gain(src_uv[2 * i + 1], gain);
  }
}

void merge_scalar(const uint8_t* src_u, const uint8_t* src_v, uint8_t* dst_uv, size_t pairs) {
  for (size_t i = 0; i < pairs; ++i) {
    dst_uv[2 * i] = src_u[i];
    dst_uv[2 * i + 1] = src_v[i];
  }
}

constexpr chroma_kernels kScalar = {split_scalar, split_gain_scalar, merge_scalar};

}  // namespace

const chroma_kernels& chroma_kernels_of(kernel_form) {
  return kScalar;
}

}  // namespace vorn
