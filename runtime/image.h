// The image record: wrapping and copy. See _tag_uni_image in vorn_ycnr.h.
#pragma once

#include "vorn_ycnr.h"

// Describes buffer, which the caller owns, as a width x height image. Returns 0, or -2.
VORN_API int create_uni_image(_tag_uni_image* img, unsigned char* buffer, int width, int height,
                              int type);

// Copies the first plane: stride * height bytes in one block when the strides agree (whatever
// stands beyond the width included), row by row otherwise. dst's size governs.
VORN_API void copy_uni_image(_tag_uni_image* dst, _tag_uni_image* src);
