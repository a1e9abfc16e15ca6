/*
 * GStreamer's frames as the library takes them, and the padding of sizes whose edges it would
 * spoil.
 */
#ifndef VORN_GST_PLANES_H
#define VORN_GST_PLANES_H

#include <gst/video/video.h>

#include "vorn_noise.h"
#include "vorn_ycnr_ext.h"

/* Size of the denoiser for frames of this size. The filters spoil the right edge or the last rows
 * of chroma where a level's width or height is odd: these sizes have no such level. */
static inline gint padded_width(gint width) {
  return width <= 128 ? 128 : (width + 15) & ~15;
}
static inline gint padded_height(gint height) {
  return (height + 3) & ~3;
}

/* The planes of a mapped NV12, NV21 or I420 frame, where they lie. */
vorn_ycnr_planes planes_of(const GstVideoFrame* frame);

/* The frame as the noise meter takes it. */
vorn_noise_frame planes_to_measure(const vorn_ycnr_planes* frame);

#endif
