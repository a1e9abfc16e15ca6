/*
 * The size of the denoiser for frames that people look at. The filters spoil the right edge or the
 * last rows of chroma where a level's width or height is odd: these sizes have no such level.
 */
#ifndef VORN_PADDED_SIZE_H
#define VORN_PADDED_SIZE_H

#include <stdint.h>

static inline int32_t padded_width(int32_t width) {
  return width <= 128 ? 128 : (width + 15) & ~15;
}

static inline int32_t padded_height(int32_t height) {
  return (height + 3) & ~3;
}

#endif
