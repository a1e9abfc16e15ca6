// Detail planes: the difference of two planes stored with a bias of 128, and its way back.
//
// Shape:   size from the first image, each image its own stride; first planes only.
// Reads, Writes: the pixels of that size. out may be the same image as the first argument.
// Rounds:  exact in every form. A sum below zero is reflected, not clipped: kept on purpose
//          (Detail.ReflectsNegativeSums).
#pragma once

#include "vorn_ycnr.h"

// out = min(|a - b + 128|, 255) per pixel.
VORN_API void ImgSubImg_add128_u8(_tag_uni_image* a, _tag_uni_image* b, _tag_uni_image* out);

// out = min(|a + d - 128|, 255) per pixel.
VORN_API void ImgAddDiff_sub128_u8(_tag_uni_image* a, _tag_uni_image* d, _tag_uni_image* out);

namespace vorn {

// Rows [row_begin, row_end) of ImgSubImg_add128_u8(a, b, out). Disjoint ranges may run on several
// threads.
void subtract_rows(const _tag_uni_image& a, const _tag_uni_image& b, const _tag_uni_image& out,
                   int row_begin, int row_end);

}  // namespace vorn
