// Detail planes: the difference of two planes stored with a bias of 128, and its way back.
#pragma once

#include "api/vorn_ycnr.h"

// out = min(|a - b + 128|, 255) per pixel. A negative value is reflected, not clipped: kept on
// purpose. Size from a, each image its own stride; out may be a.
VORN_API void ImgSubImg_add128_u8(_tag_uni_image* a, _tag_uni_image* b, _tag_uni_image* out);

// out = min(|a + d - 128|, 255) per pixel, reflecting likewise. Size from a; out may be a.
VORN_API void ImgAddDiff_sub128_u8(_tag_uni_image* a, _tag_uni_image* d, _tag_uni_image* out);
