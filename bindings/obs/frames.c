#include "frames.h"

#include <string.h>

static int32_t pairs_of(const struct obs_source_frame* frame) {
  return ((int32_t)frame->width + 1) / 2;
}

bool frame_is_422(const struct obs_source_frame* frame) {
  return frame->format == VIDEO_FORMAT_YUY2 || frame->format == VIDEO_FORMAT_UYVY;
}

static bool has_rows(const struct obs_source_frame* frame, int plane, int32_t bytes) {
  return frame->data[plane] && frame->linesize[plane] >= (uint32_t)bytes &&
         frame->linesize[plane] <= INT32_MAX / 2;
}

bool frame_is_taken(const struct obs_source_frame* frame) {
  if (frame->width < 1 || frame->height < 1 || frame->width > FRAME_MOST_SIDE ||
      frame->height > FRAME_MOST_SIDE)
    return false;
  const int32_t width = (int32_t)frame->width, pairs = pairs_of(frame);
  switch (frame->format) {
    case VIDEO_FORMAT_I420:
      return has_rows(frame, 0, width) && has_rows(frame, 1, pairs) && has_rows(frame, 2, pairs);
    case VIDEO_FORMAT_NV12:
      return has_rows(frame, 0, width) && has_rows(frame, 1, 2 * pairs);
    case VIDEO_FORMAT_YUY2:
    case VIDEO_FORMAT_UYVY:
      return has_rows(frame, 0, 4 * pairs);
    default:
      return false;
  }
}

vorn_ycnr_planes frame_planes(const struct obs_source_frame* frame) {
  vorn_ycnr_planes planes = {
      .layout = frame->format == VIDEO_FORMAT_I420 ? VORN_LAYOUT_I420 : VORN_LAYOUT_NV12,
      .width = (int32_t)frame->width,
      .height = (int32_t)frame->height};
  for (int i = 0; i < (frame->format == VIDEO_FORMAT_I420 ? 3 : 2); ++i) {
    planes.plane[i] = frame->data[i];
    planes.stride[i] = (int32_t)frame->linesize[i];
  }
  return planes;
}

/* Luma rows are as long as chroma rows, which are whole pairs. */
size_t frame_scratch_bytes(int32_t width, int32_t height) {
  const size_t row = (size_t)(width + 1) / 2 * 2, half = (size_t)(height + 1) / 2;
  return row * ((size_t)height + 2 * half);
}

static uint8_t* chroma_row(const vorn_ycnr_planes* even, const vorn_ycnr_planes* odd, int32_t y) {
  const vorn_ycnr_planes* of = y % 2 ? odd : even;
  return of->plane[1] + (size_t)(y / 2) * (size_t)of->stride[1];
}

void frame_split(const struct obs_source_frame* frame, uint8_t* scratch, vorn_ycnr_planes* even,
                 vorn_ycnr_planes* odd) {
  const int32_t width = (int32_t)frame->width, height = (int32_t)frame->height;
  const int32_t row = 2 * pairs_of(frame), half = (height + 1) / 2;
  *even = (vorn_ycnr_planes){VORN_LAYOUT_NV12, width, height, {scratch}, {row, row}};
  even->plane[1] = scratch + (size_t)row * (size_t)height;
  *odd = *even;
  odd->plane[1] = even->plane[1] + (size_t)row * (size_t)half;

  const int luma_first = frame->format == VIDEO_FORMAT_YUY2;
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* from = frame->data[0] + (size_t)y * frame->linesize[0];
    uint8_t* luma = scratch + (size_t)y * (size_t)row;
    uint8_t* chroma = chroma_row(even, odd, y);
    for (int32_t x = 0; x < row; ++x) {
      luma[x] = from[2 * x + 1 - luma_first];
      chroma[x] = from[2 * x + luma_first];
    }
  }
  if (height % 2)
    memcpy(odd->plane[1] + (size_t)(half - 1) * (size_t)row, chroma_row(even, odd, height - 1),
           (size_t)row);
}

void frame_join(const vorn_ycnr_planes* even, const vorn_ycnr_planes* odd,
                const struct obs_source_frame* frame) {
  const int32_t row = even->stride[0];
  const int luma_first = frame->format == VIDEO_FORMAT_YUY2;
  for (int32_t y = 0; y < even->height; ++y) {
    uint8_t* to = frame->data[0] + (size_t)y * frame->linesize[0];
    const uint8_t* luma = even->plane[0] + (size_t)y * (size_t)row;
    const uint8_t* chroma = chroma_row(even, odd, y);
    for (int32_t x = 0; x < row; ++x) {
      to[2 * x + 1 - luma_first] = luma[x];
      to[2 * x + luma_first] = chroma[x];
    }
  }
}

vorn_noise_frame frame_to_measure(const vorn_ycnr_planes* planes) {
  const int32_t most_rows = 640 * 480 / planes->width / 2 * 2;
  const int32_t rows = most_rows < 2 ? 2 : most_rows < planes->height ? most_rows : planes->height;
  const int32_t height = rows < planes->height ? rows : planes->height;
  const int32_t first = (planes->height - height) / 4 * 2; /* even */
  const bool three = planes->layout == VORN_LAYOUT_I420;
  const ptrdiff_t chroma = (ptrdiff_t)(first / 2) * planes->stride[1];
  vorn_noise_frame noise = {.luma = planes->plane[0] + (ptrdiff_t)first * planes->stride[0],
                            .u = planes->plane[1] + chroma,
                            .v = three ? planes->plane[2] + chroma : planes->plane[1] + chroma + 1,
                            .width = planes->width,
                            .height = height,
                            .luma_stride = planes->stride[0],
                            .chroma_stride = planes->stride[1],
                            .chroma_step = three ? 1 : 2};
  /* The meter takes one stride for both. */
  if (three && planes->stride[1] != planes->stride[2]) noise.u = noise.v = NULL;
  return noise;
}
