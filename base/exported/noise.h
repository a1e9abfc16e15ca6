// Noise for evaluation.
#pragma once

#include "vorn_ycnr.h"

// Adds uniform noise in [low, high] to the first plane of img, saturating at 0 and 255. Widths up
// to 10922. Returns 0.
VORN_API int addNoiseToImage(_tag_uni_image* img, unsigned seed, int low, int high);
