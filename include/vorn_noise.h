/*
 * vorn_noise.h - how noisy is a picture, and which gain of a tuning set does that call for.
 *
 * Part of libvorn_tuning, beside vorn_tuning.h. No clean reference is needed:
 *
 *     vorn_noise_frame frame = {luma, uv, uv + 1, width, height, stride, stride, 2};
 *     vorn_noise noise;
 *     if (vorn_tuning_measure(&frame, 1, VORN_NOISE_ANY, &noise) == VORN_TUNING_OK &&
 *         noise.found) {
 *       double luma_gain, chroma_gain;
 *       vorn_tuning_gain_for(&noise, NULL, &luma_gain, &chroma_gain);
 *       ...
 *     }
 *
 * A single picture cannot always tell fine texture from noise. Where nothing in it is flat, `doubt`
 * says so and the figures are bounds from above.
 *
 * Threads: the calls keep no state; any number may run at the same time. 12 megapixels take a fifth
 * of a second and 150 MB while the call runs.
 *
 * The header is plain C99.
 */
#ifndef VORN_NOISE_H
#define VORN_NOISE_H

#include <stdint.h>

#include "vorn_tuning.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One 8-bit 4:2:0 picture; chroma is (width + 1) / 2 by (height + 1) / 2 samples. Strides are
 * bytes. chroma_step is 2 for U V pairs (NV12: u at even, v at odd bytes) and 1 for planes of their
 * own. u and v may both be null: luma alone is measured. */
typedef struct vorn_noise_frame {
  const uint8_t* luma;
  const uint8_t* u;
  const uint8_t* v;
  int32_t width, height;
  int32_t luma_stride, chroma_stride, chroma_step;
} vorn_noise_frame;

/* What the pictures show. */
enum {
  VORN_NOISE_ANY = 0,  /* anything: noise is looked for where it is not covered by the scene */
  VORN_NOISE_FLAT = 1, /* each an evenly lit surface, shading allowed: all of it counts */
  VORN_NOISE_BURST = 2 /* frames of one still scene: differences from frame to frame count */
};

/* Why not to trust a measurement. */
enum {
  VORN_NOISE_SURE = 0,
  VORN_NOISE_TEXTURE = 1, /* hardly anything is flat: fine texture may count as noise */
  VORN_NOISE_FEW = 2      /* too small a picture, or too much of it black, white or one value */
};

/* One class of brightness: standard deviations in grey levels; below 0: not measured. */
typedef struct vorn_noise_class {
  float brightness; /* mean luma, 0..255 */
  float luma, u, v;
  int32_t blocks; /* blocks of 8x8 luma samples that counted */
} vorn_noise_class;

enum { VORN_NOISE_CLASSES = 16, VORN_NOISE_LEVELS = 5 };

typedef struct vorn_noise {
  int32_t found;     /* 0: no noise, or less than counts (0.7 grey levels in every plane) */
  int32_t doubt;     /* VORN_NOISE_SURE, ... */
  double confidence; /* 0..1: the share of the picture that shows the noise and nothing else */
  double luma, u, v; /* root mean square over the picture, grey levels */
  double luma_correlation, chroma_correlation; /* of neighbouring samples, 0 = white */
  /* Standard deviations on the levels of the luma pyramid (level 0 is the picture) and on chroma's
   * two levels. Beyond level 0 they follow from the correlation. */
  double luma_levels[VORN_NOISE_LEVELS];
  double chroma_levels[2];
  int32_t classes; /* of brightness, from dark to bright */
  vorn_noise_class class_at[VORN_NOISE_CLASSES];
} vorn_noise;

/* Measures count pictures together; for VORN_NOISE_BURST two or more of one size. Returns a code of
 * vorn_tuning.h: VORN_TUNING_ARGUMENT for a null pointer, a size below 1 or a stride too small. */
VORN_API int32_t vorn_tuning_measure(const vorn_noise_frame* frames, int32_t count, int32_t scene,
                                     vorn_noise* result);

/* A sensor: what its noise is at gain 1. */
typedef struct vorn_noise_sensor {
  double full_well;  /* electrons at white */
  double read_noise; /* electrons */
} vorn_noise_sensor;

/* Gains at which a sensor with sRGB tone curve makes as much luma and as much chroma noise as was
 * measured, at least 0.25 and at most 256; the two differ where a camera filters them differently.
 * A sensor of null is the one that the default set was made for, so that its entries can be picked
 * by the result. Where the measurement is doubted the gains are taken lower, by one and a half
 * stops: too little filtering leaves noise, too much takes texture away. Returns VORN_TUNING_OK;
 * VORN_TUNING_ARGUMENT for null pointers or a sensor that is none; VORN_TUNING_INVALID, both gains
 * 0, where no noise was found.
 */
VORN_API int32_t vorn_tuning_gain_for(const vorn_noise* noise, const vorn_noise_sensor* sensor,
                                      double* luma_gain, double* chroma_gain);

/* Gain and tuning of a stream of frames, measured on the way. Begin with all zeros. */
typedef struct vorn_noise_follower {
  double luma_gain, chroma_gain; /* now, smoothed; 0 before the first frame */
  /* Gains of the set's entries in use; 0: that plane stays as it is. */
  double luma_entry, chroma_entry;
  int32_t frames;   /* so far */
  int32_t measured; /* 1: the last frame was measured, noise is its */
  int32_t changed;  /* 1: the last frame changed an entry */
  int32_t leapt;    /* own use */
  vorn_noise noise; /* last measurement */
} vorn_noise_follower;

/* Takes the next frame of a stream (or the only one) and fills the tuning to filter it with: the
 * entries of the set for the gains so far, with enable 0 where there is no noise to take. The first
 * four frames and then every 30th are measured; gains follow over seconds, at once at a cut, and an
 * entry changes only when the gain is well past the middle between two. Returns a code. */
VORN_API int32_t vorn_tuning_follow(vorn_noise_follower* follower, const vorn_tuning_set* set,
                                    const vorn_noise_sensor* sensor, const vorn_noise_frame* frame,
                                    ycnr_ynr_tuning_param* luma, ycnr_cnr_tuning_param* chroma);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VORN_NOISE_H */
