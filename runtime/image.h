// The image record: creation, wrapping, copy and release. See _tag_uni_image in vorn_ycnr.h.
#pragma once

#include "vorn_ycnr.h"

// Allocates zeroed planes for a width x height image of a layout and describes them in img.
// Returns 0, -1 when img is null, -2 for an unknown type (type and size are stored all the same).
// Throws std::bad_alloc when there is no memory.
VORN_API int create_uni_image(_tag_uni_image* img, int width, int height, int type);

// Describes buffer, which the caller owns, as a width x height image. Returns 0, or -2.
VORN_API int create_uni_image(_tag_uni_image* img, unsigned char* buffer, int width, int height,
                              int type);

// Copies the first plane: stride * height bytes in one block when the strides agree (whatever
// stands beyond the width included), row by row otherwise. dst's size governs.
VORN_API void copy_uni_image(_tag_uni_image* dst, _tag_uni_image* src);

// Releases the planes of an image made by the allocating create_uni_image. Safe to call twice.
VORN_API void destroy_uni_image(_tag_uni_image* img);
