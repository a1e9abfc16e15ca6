#include "planes.h"

#include <string.h>

vorn_ycnr_planes planes_of(const GstVideoFrame* frame) {
  const GstVideoFormat format = GST_VIDEO_FRAME_FORMAT(frame);
  vorn_ycnr_planes planes = {.layout = format == GST_VIDEO_FORMAT_I420   ? VORN_LAYOUT_I420
                                       : format == GST_VIDEO_FORMAT_NV21 ? VORN_LAYOUT_NV21
                                                                         : VORN_LAYOUT_NV12,
                             .width = GST_VIDEO_FRAME_WIDTH(frame),
                             .height = GST_VIDEO_FRAME_HEIGHT(frame)};
  for (guint i = 0; i < GST_VIDEO_FRAME_N_PLANES(frame); ++i) {
    planes.plane[i] = GST_VIDEO_FRAME_PLANE_DATA(frame, i);
    planes.stride[i] = GST_VIDEO_FRAME_PLANE_STRIDE(frame, i);
  }
  return planes;
}

static gint plane_count(const vorn_ycnr_planes* frame) {
  return frame->layout == VORN_LAYOUT_I420 ? 3 : 2;
}

/* Bytes of one step to the right in a plane, columns and rows of it. */
static gint step_of(const vorn_ycnr_planes* frame, gint plane) {
  return plane > 0 && frame->layout != VORN_LAYOUT_I420 ? 2 : 1;
}
static gint columns_of(const vorn_ycnr_planes* frame, gint plane) {
  return plane > 0 ? (frame->width + 1) / 2 : frame->width;
}
static gint rows_of(const vorn_ycnr_planes* frame, gint plane) {
  return plane > 0 ? (frame->height + 1) / 2 : frame->height;
}

vorn_ycnr_planes planes_in(guint8* memory, gint layout, gint width, gint height) {
  vorn_ycnr_planes planes = {.layout = layout, .width = width, .height = height};
  for (gint i = 0; i < plane_count(&planes); ++i) {
    planes.plane[i] = memory;
    planes.stride[i] = columns_of(&planes, i) * step_of(&planes, i);
    memory += (gsize)planes.stride[i] * rows_of(&planes, i);
  }
  return planes;
}

void planes_pad(const vorn_ycnr_planes* from, const vorn_ycnr_planes* into) {
  for (gint i = 0; i < plane_count(from); ++i) {
    const gint step = step_of(from, i);
    const gint bytes = columns_of(from, i) * step, wide = columns_of(into, i) * step;
    const gint rows = rows_of(from, i);
    for (gint y = 0; y < rows_of(into, i); ++y) {
      guint8* const row = into->plane[i] + (gssize)y * into->stride[i];
      memcpy(row, from->plane[i] + (gssize)MIN(y, rows - 1) * from->stride[i], bytes);
      for (gint x = bytes; x < wide; ++x) row[x] = row[x - step];
    }
  }
}

void planes_crop(const vorn_ycnr_planes* from, const vorn_ycnr_planes* into) {
  for (gint i = 0; i < plane_count(into); ++i)
    for (gint y = 0; y < rows_of(into, i); ++y)
      memcpy(into->plane[i] + (gssize)y * into->stride[i],
             from->plane[i] + (gssize)y * from->stride[i], columns_of(into, i) * step_of(into, i));
}

vorn_noise_frame planes_to_measure(const vorn_ycnr_planes* frame) {
  const gboolean three = frame->layout == VORN_LAYOUT_I420;
  const gint v_first = frame->layout == VORN_LAYOUT_NV21;
  vorn_noise_frame noise = {.luma = frame->plane[0],
                            .u = frame->plane[1] + v_first,
                            .v = three ? frame->plane[2] : frame->plane[1] + 1 - v_first,
                            .width = frame->width,
                            .height = frame->height,
                            .luma_stride = frame->stride[0],
                            .chroma_stride = frame->stride[1],
                            .chroma_step = three ? 1 : 2};
  if (three && frame->stride[1] != frame->stride[2]) noise.u = noise.v = NULL;
  return noise;
}
