/*
 * Moves video frames between GStreamer's layouts and the one the library works on.
 *
 * The library's layout is one contiguous buffer: height rows of width luma bytes, then height / 2
 * rows of width interleaved chroma bytes, U first; width and height are even.
 */
#ifndef VORN_GST_FRAME_COPY_H
#define VORN_GST_FRAME_COPY_H

#include <gst/video/video.h>

/* Size of the buffer for frames of this size. Levels of the luma pyramid whose width is odd or
 * below 8 lose their last columns, which shows at the frame's right edge: a width that is a
 * multiple of 16 has none such on any of five levels. Chroma's two levels ask the same of heights
 * and 4. */
static inline gint padded_width(gint width) {
  return width <= 128 ? 128 : (width + 15) & ~15;
}
static inline gint padded_height(gint height) {
  return (height + 3) & ~3;
}

/* Copies an NV12, NV21 or I420 frame of any stride into packed, which has the padded size; the last
 * column and row are repeated to fill it. */
void frame_pack(const GstVideoFrame* frame, guint8* packed);

/* The way back; the padding is left out. */
void frame_unpack(const guint8* packed, GstVideoFrame* frame);

/* The frame's own memory when it has the library's layout already, NULL otherwise. */
guint8* frame_as_packed(const GstVideoFrame* frame);

#endif
