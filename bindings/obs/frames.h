/*
 * OBS's frames as the library takes them.
 */
#ifndef VORN_OBS_FRAMES_H
#define VORN_OBS_FRAMES_H

#include <obs-module.h>

#include "vorn_noise.h"
#include "vorn_ycnr_ext.h"

/* Larger sides than OBS has textures for are not taken. */
enum { FRAME_MOST_SIDE = 16384 };

/* Whether a frame is I420, NV12, YUY2 or UYVY of a size and with strides that can be filtered. */
bool frame_is_taken(const struct obs_source_frame* frame);

/* Whether its chroma has a row for every luma row (YUY2, UYVY), so that it goes through scratch. */
bool frame_is_422(const struct obs_source_frame* frame);

/* Bytes of scratch for a 4:2:2 frame of this size. */
size_t frame_scratch_bytes(int32_t width, int32_t height);

/* The planes of an I420 or NV12 frame, where they lie. */
vorn_ycnr_planes frame_planes(const struct obs_source_frame* frame);

/* A 4:2:2 frame as two NV12 frames in scratch, which share their luma: the first has the chroma of
 * rows 0, 2, 4 ..., the second of rows 1, 3, 5 ... (of an odd height, the last one twice). */
void frame_split(const struct obs_source_frame* frame, uint8_t* scratch, vorn_ycnr_planes* even,
                 vorn_ycnr_planes* odd);

/* The way back. */
void frame_join(const vorn_ycnr_planes* even, const vorn_ycnr_planes* odd,
                const struct obs_source_frame* frame);

/* The part of a frame that its noise is measured on: all of its width, and as many rows from its
 * middle as 640x480 has pixels, which takes a few milliseconds at most. */
vorn_noise_frame frame_to_measure(const vorn_ycnr_planes* planes);

#endif
