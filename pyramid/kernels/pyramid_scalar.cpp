// The plain form of the row functions, which is their definition.
#include "pyramid/kernels/pyramid_kernels.h"

namespace vorn {

namespace {

void down_scalar(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
                 int width) {
  for (int x = 0; x < width; ++x) {
    const int left = column_sum(upper, centre, lower, x > 0 ? 2 * x - 1 : 0);
    const int middle = column_sum(upper, centre, lower, 2 * x);
    const int right = column_sum(upper, centre, lower, 2 * x + 1);
    dst[x] = static_cast<uint8_t>((left + 2 * middle + right + kHalfUp16) >> 4);
  }
}

void up_scalar(const uint8_t* a, const uint8_t* b, uint8_t* even, uint8_t* odd, int width) {
  for (int x = 0; x < width; ++x) {
    even[x] = up_even_row(a, x);
    odd[x] = up_odd_row(a, b, x);
  }
}

void up_merge_scalar(const uint8_t* a, const uint8_t* b, const uint8_t* detail_even,
                     const uint8_t* detail_odd, uint8_t* out_even, uint8_t* out_odd, int width) {
  for (int x = 0; x < width; ++x) {
    out_even[x] = merge_detail(up_even_row(a, x), detail_even[x]);
    out_odd[x] = merge_detail(up_odd_row(a, b, x), detail_odd[x]);
  }
}

void subtract_scalar(const uint8_t* a, const uint8_t* b, uint8_t* out, int width) {
  for (int x = 0; x < width; ++x) out[x] = detail_of(a[x], b[x]);
}

void add_scalar(const uint8_t* a, const uint8_t* d, uint8_t* out, int width) {
  for (int x = 0; x < width; ++x) out[x] = merge_detail(a[x], d[x]);
}

void blur_scalar(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower, uint8_t* dst,
                 int width) {
  for (int x = 0; x < width; ++x) {
    const int left = column_sum(upper, centre, lower, x > 0 ? x - 1 : 1);
    const int middle = column_sum(upper, centre, lower, x);
    const int right = column_sum(upper, centre, lower, x < width - 1 ? x + 1 : width - 2);
    dst[x] = static_cast<uint8_t>((left + 2 * middle + right + kHalfUp16) >> 4);
  }
}

void split_scalar(const uint8_t* uv, uint8_t* u, uint8_t* v, int width) {
  for (int i = 0; i < width; ++i) {
    u[i] = uv[2 * i];
    v[i] = uv[2 * i + 1];
  }
}

void interleave_scalar(const uint8_t* u, const uint8_t* v, uint8_t* uv, int width) {
  for (int i = 0; i < width; ++i) {
    uv[2 * i] = u[i];
    uv[2 * i + 1] = v[i];
  }
}

constexpr pyramid_kernels kPyramidScalar = {down_scalar,     up_scalar,        up_merge_scalar,
                                            subtract_scalar, add_scalar,       blur_scalar,
                                            split_scalar,    interleave_scalar};

}  // namespace

const pyramid_kernels& pyramid_kernels_of(kernel_form form) {
  switch (form) {
    case kernel_form::neon:
    case kernel_form::neon_dot:  // no dot products in these filters
      return kPyramidNeon;
#if defined(__x86_64__)
    case kernel_form::sse2:
      return kPyramidSse2;
    case kernel_form::avx2:
      return kPyramidAvx2;
    case kernel_form::avx512:
      return kPyramidAvx512;
#endif
    default:
      return kPyramidScalar;
  }
}

}  // namespace vorn
