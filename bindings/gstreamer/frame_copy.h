/*
 * Moves video frames between GStreamer's layouts and the one the library works on.
 *
 * The library's layout is one contiguous buffer: height rows of width luma bytes, then height / 2
 * rows of width interleaved chroma bytes, U first; width and height are even.
 */
#ifndef VORN_GST_FRAME_COPY_H
#define VORN_GST_FRAME_COPY_H

#include <gst/video/video.h>

/* Even size of the buffer for frames of this size. */
static inline gint padded_size(gint size) {
  return (size + 1) & ~1;
}

/* Copies an NV12, NV21 or I420 frame of any stride into packed, which is padded_size() of the frame
 * on either axis; an odd last column or row of luma is repeated once to fill it. */
void frame_pack(const GstVideoFrame* frame, guint8* packed);

/* The way back; the padding is left out. */
void frame_unpack(const guint8* packed, GstVideoFrame* frame);

/* The frame's own memory when it has the library's layout already, NULL otherwise. */
guint8* frame_as_packed(const GstVideoFrame* frame);

#endif
