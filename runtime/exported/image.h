// Image records with planes of their own. See runtime/image.h.
#pragma once

#include "vorn_ycnr.h"

// Allocates zeroed planes for a width x height image of a layout and describes them in img.
// Returns 0, -1 when img is null, -2 for an unknown type (type and size are stored all the same).
// Throws std::bad_alloc when there is no memory.
VORN_API int create_uni_image(_tag_uni_image* img, int width, int height, int type);

// Releases the planes of an image made by the allocating create_uni_image. Safe to call twice.
VORN_API void destroy_uni_image(_tag_uni_image* img);
