#include "pyramid/detail.h"

#include <cstddef>

#include "pyramid/kernels/pyramid_kernels.h"

namespace {

using row_function = void (*)(const uint8_t*, const uint8_t*, uint8_t*, int);

void combine(row_function rule, const _tag_uni_image& a, const _tag_uni_image& b,
             const _tag_uni_image& out, int row_begin, int row_end) {
  for (int y = row_begin; y < row_end; ++y) {
    const ptrdiff_t row = y;
    rule(a.plane[0] + row * a.stride[0], b.plane[0] + row * b.stride[0],
         out.plane[0] + row * out.stride[0], a.width);
  }
}

}  // namespace

void vorn::subtract_rows(const _tag_uni_image& a, const _tag_uni_image& b,
                         const _tag_uni_image& out, int row_begin, int row_end) {
  combine(active_pyramid_kernels().subtract, a, b, out, row_begin, row_end);
}

void ImgSubImg_add128_u8(_tag_uni_image* a, _tag_uni_image* b, _tag_uni_image* out) {
  vorn::subtract_rows(*a, *b, *out, 0, a->height);
}

void ImgAddDiff_sub128_u8(_tag_uni_image* a, _tag_uni_image* d, _tag_uni_image* out) {
  combine(vorn::active_pyramid_kernels().add, *a, *d, *out, 0, a->height);
}
