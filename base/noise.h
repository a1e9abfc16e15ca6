// Seeded random integers: tables for the chroma filter's dither, and noise for evaluation.
#pragma once

#include "vorn_ycnr.h"

// Fills table[0..count-1] with integers uniform in [low, high], both inclusive, from a Mersenne
// Twister seeded with seed. The same seed gives the same table on every machine and every
// standard library.
VORN_API void GetRandomTable(short* table, int count, unsigned seed, short low, short high);

// Adds uniform noise in [low, high] to the first plane of img, saturating at 0 and 255. Widths up
// to 10922. Returns 0.
VORN_API int addNoiseToImage(_tag_uni_image* img, unsigned seed, int low, int high);
