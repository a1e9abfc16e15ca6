/*
 * Pictures, OBS's frames of them, and what the library makes of them, worked out here once more.
 */
#ifndef VORN_TEST_OBS_PICTURES_H
#define VORN_TEST_OBS_PICTURES_H

#include <obs.h>
#include <stdbool.h>
#include <stdint.h>

#include "vorn_ycnr_ext.h"

#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      abort();                                                                \
    }                                                                         \
  } while (0)

/* Planes without padding. Chroma has half the columns, and half or all of the rows. */
typedef struct {
  int width, height, columns, rows;
  uint8_t *y, *u, *v;
} picture;

/* Shades under noise of about `noise` grey levels, for a format's number of chroma rows. */
picture picture_new(enum video_format format, int width, int height, uint32_t seed, int noise);
void picture_free(picture* p);
bool picture_same(const picture* a, const picture* b);

/* What a tuning makes of it: padded by hand to a size that no level halves to an odd one, through
 * the call for contiguous frames; a picture with all chroma rows in two halves. */
picture picture_denoised(const picture* p, ycnr_ynr_tuning_param luma, ycnr_cnr_tuning_param chroma,
                         bool fine);

/* A frame of the picture whose rows lie `gap` bytes apart, the gaps 0xee. */
struct obs_source_frame* frame_of(const picture* p, enum video_format format, int gap);

/* Takes the picture out of a frame; checks the gaps. */
picture picture_of(const struct obs_source_frame* frame);
void frame_free(struct obs_source_frame* frame);

#endif
