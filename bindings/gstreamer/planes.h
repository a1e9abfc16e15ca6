/*
 * GStreamer's frames as the library takes them, and the padding of sizes whose edges it would
 * spoil.
 */
#ifndef VORN_GST_PLANES_H
#define VORN_GST_PLANES_H

#include <gst/video/video.h>

#include "vorn_noise.h"
#include "vorn_ycnr_ext.h"

/* Size that frames of this size are filtered at. Levels of the luma pyramid whose width is odd or
 * below 8 lose their last columns, which shows at the frame's right edge: a width that is a
 * multiple of 16 has none such on any of five levels. Chroma's two levels ask the same of heights
 * and 4. */
static inline gint padded_width(gint width) {
  return width <= 128 ? 128 : (width + 15) & ~15;
}
static inline gint padded_height(gint height) {
  return (height + 3) & ~3;
}

/* The planes of a mapped NV12, NV21 or I420 frame, where they lie. */
vorn_ycnr_planes planes_of(const GstVideoFrame* frame);

/* Planes of this layout and even size one after the other in memory: width * height * 3 / 2 bytes.
 */
vorn_ycnr_planes planes_in(guint8* memory, gint layout, gint width, gint height);

/* Copies the smaller frame into the larger one of the same layout and repeats its last column and
 * row to fill it. */
void planes_pad(const vorn_ycnr_planes* from, const vorn_ycnr_planes* into);

/* Copies as much of a frame as the other one has. */
void planes_crop(const vorn_ycnr_planes* from, const vorn_ycnr_planes* into);

/* The frame as the noise meter takes it. */
vorn_noise_frame planes_to_measure(const vorn_ycnr_planes* frame);

#endif
