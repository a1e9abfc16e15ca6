#include "frame_copy.h"

#include <string.h>

/* One chroma row of U/V pairs out of, or into, the three layouts. */

static void interleave(const guint8* first, const guint8* second, guint8* pairs, gint count) {
  for (gint i = 0; i < count; ++i) {
    pairs[2 * i] = first[i];
    pairs[2 * i + 1] = second[i];
  }
}

static void deinterleave(const guint8* pairs, guint8* first, guint8* second, gint count) {
  for (gint i = 0; i < count; ++i) {
    first[i] = pairs[2 * i];
    second[i] = pairs[2 * i + 1];
  }
}

static void swap_pairs(const guint8* from, guint8* to, gint count) {
  for (gint i = 0; i < count; ++i) {
    const guint8 first = from[2 * i];
    to[2 * i] = from[2 * i + 1];
    to[2 * i + 1] = first;
  }
}

static guint8* row_of(const GstVideoFrame* frame, gint plane, gint row) {
  return (guint8*)GST_VIDEO_FRAME_PLANE_DATA(frame, plane) +
         (gssize)row * GST_VIDEO_FRAME_PLANE_STRIDE(frame, plane);
}

void frame_pack(const GstVideoFrame* frame, guint8* packed) {
  const gint width = GST_VIDEO_FRAME_WIDTH(frame);
  const gint height = GST_VIDEO_FRAME_HEIGHT(frame);
  const gint pairs = (width + 1) / 2;
  const gint chroma_rows = (height + 1) / 2;
  const gint packed_width = padded_width(width);
  const gint packed_height = padded_height(height);

  for (gint y = 0; y < packed_height; ++y, packed += packed_width) {
    const guint8* row = row_of(frame, 0, MIN(y, height - 1));
    memcpy(packed, row, width);
    memset(packed + width, row[width - 1], packed_width - width);
  }
  for (gint y = 0; y < packed_height / 2; ++y, packed += packed_width) {
    const gint from = MIN(y, chroma_rows - 1);
    switch (GST_VIDEO_FRAME_FORMAT(frame)) {
      case GST_VIDEO_FORMAT_I420:
        interleave(row_of(frame, 1, from), row_of(frame, 2, from), packed, pairs);
        break;
      case GST_VIDEO_FORMAT_NV21:
        swap_pairs(row_of(frame, 1, from), packed, pairs);
        break;
      default:
        memcpy(packed, row_of(frame, 1, from), 2 * pairs);
    }
    for (gint x = 2 * pairs; x < packed_width; ++x) packed[x] = packed[x - 2];
  }
}

void frame_unpack(const guint8* packed, GstVideoFrame* frame) {
  const gint width = GST_VIDEO_FRAME_WIDTH(frame);
  const gint height = GST_VIDEO_FRAME_HEIGHT(frame);
  const gint pairs = (width + 1) / 2;
  const gint packed_width = padded_width(width);
  const gint packed_height = padded_height(height);

  for (gint y = 0; y < height; ++y)
    memcpy(row_of(frame, 0, y), packed + (gssize)y * packed_width, width);
  packed += (gssize)packed_height * packed_width;
  for (gint y = 0; y < (height + 1) / 2; ++y, packed += packed_width) {
    switch (GST_VIDEO_FRAME_FORMAT(frame)) {
      case GST_VIDEO_FORMAT_I420:
        deinterleave(packed, row_of(frame, 1, y), row_of(frame, 2, y), pairs);
        break;
      case GST_VIDEO_FORMAT_NV21:
        swap_pairs(packed, row_of(frame, 1, y), pairs);
        break;
      default:
        memcpy(row_of(frame, 1, y), packed, 2 * pairs);
    }
  }
}

guint8* frame_as_packed(const GstVideoFrame* frame) {
  const gint width = GST_VIDEO_FRAME_WIDTH(frame);
  const gint height = GST_VIDEO_FRAME_HEIGHT(frame);
  if (GST_VIDEO_FRAME_FORMAT(frame) != GST_VIDEO_FORMAT_NV12 || padded_width(width) != width ||
      padded_height(height) != height || GST_VIDEO_FRAME_PLANE_STRIDE(frame, 0) != width ||
      GST_VIDEO_FRAME_PLANE_STRIDE(frame, 1) != width ||
      row_of(frame, 0, height) != row_of(frame, 1, 0))
    return NULL;
  return row_of(frame, 0, 0);
}
