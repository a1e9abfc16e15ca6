#include "planes.h"

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
