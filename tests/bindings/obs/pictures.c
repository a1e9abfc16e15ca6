#include "pictures.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static bool is_422(enum video_format format) {
  return format == VIDEO_FORMAT_YUY2 || format == VIDEO_FORMAT_UYVY;
}

static picture empty_picture(int width, int height, int rows) {
  picture p = {width, height, (width + 1) / 2, rows, NULL, NULL, NULL};
  p.y = malloc((size_t)(width * height));
  p.u = malloc((size_t)(p.columns * rows));
  p.v = malloc((size_t)(p.columns * rows));
  return p;
}

picture picture_new(enum video_format format, int width, int height, uint32_t seed, int noise) {
  picture p = empty_picture(width, height, is_422(format) ? height : (height + 1) / 2);
  uint32_t state = seed * 2654435761u + 1;
  for (int i = 0; i < width * height + 2 * p.columns * p.rows; ++i) {
    int grain = 0;
    for (int n = 0; n < 4; ++n) {
      state = state * 1664525u + 1013904223u;
      grain += (int)(state >> 24) - 127;
    }
    grain = grain * noise / 148; /* four even draws have a deviation of 148 */
    const int chroma = i - width * height;
    if (chroma < 0)
      p.y[i] = (uint8_t)(60 + i % width * 100 / width + grain);
    else if (chroma < p.columns * p.rows)
      p.u[chroma] = (uint8_t)(110 + grain);
    else
      p.v[chroma - p.columns * p.rows] = (uint8_t)(140 + grain);
  }
  return p;
}

void picture_free(picture* p) {
  free(p->y);
  free(p->u);
  free(p->v);
}

bool picture_same(const picture* a, const picture* b) {
  const size_t chroma = (size_t)(a->columns * a->rows);
  return a->width == b->width && a->height == b->height && a->rows == b->rows &&
         memcmp(a->y, b->y, (size_t)(a->width * a->height)) == 0 &&
         memcmp(a->u, b->u, chroma) == 0 && memcmp(a->v, b->v, chroma) == 0;
}

static int least(int a, int b) {
  return a < b ? a : b;
}

/* Chroma rows first, first + every, ... of `in` with its luma, into the same rows of `out`. */
static void denoise_rows(const picture* in, int first, int every, ycnr_ynr_tuning_param luma,
                         ycnr_cnr_tuning_param chroma, bool fine, picture* out) {
  const int w = in->width <= 128 ? 128 : (in->width + 15) / 16 * 16;
  /* A pixel on the coarsest level at least. */
  const int least_height = luma.enable ? 1 << (luma.layer - 1) : 4;
  const int h = in->height < least_height ? least_height : (in->height + 3) / 4 * 4;
  const int rows = (in->rows - first + every - 1) / every;
  uint8_t* src = malloc((size_t)(w * h * 3 / 2));
  uint8_t* dst = malloc((size_t)(w * h * 3 / 2));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      src[y * w + x] = in->y[least(y, in->height - 1) * in->width + least(x, in->width - 1)];
  for (int y = 0; y < h / 2; ++y)
    for (int x = 0; x < w / 2; ++x) {
      /* Of an odd height, the second half has a row less, and the last of the first again. */
      const int row = least(y, (in->height + 1) / 2 - 1);
      const int from = row < rows ? first + row * every : in->rows - 1;
      const int at = from * in->columns + least(x, in->columns - 1);
      src[w * h + y * w + 2 * x] = in->u[at];
      src[w * h + y * w + 2 * x + 1] = in->v[at];
    }
  ycnr_init_param size = {w, h};
  denoise_handle_t* handle = vorn_ycnr_init(&size);
  _tag_uni_image source = {.width = w, .height = h, .plane = {src}};
  _tag_uni_image result = {.width = w, .height = h, .plane = {dst}};
  Denoise_Parameters_t parameters = {0, &luma, &chroma};
  CHECK((fine ? vorn_ycnr_process_fine : vorn_ycnr_process)(handle, &source, &result,
                                                            &parameters) == VORN_OK);
  vorn_ycnr_deinit(handle);
  for (int y = 0; y < in->height; ++y)
    memcpy(out->y + y * in->width, dst + y * w, (size_t)in->width);
  for (int y = 0; y < rows; ++y)
    for (int x = 0; x < in->columns; ++x) {
      out->u[(first + y * every) * in->columns + x] = dst[w * h + y * w + 2 * x];
      out->v[(first + y * every) * in->columns + x] = dst[w * h + y * w + 2 * x + 1];
    }
  free(src);
  free(dst);
}

picture picture_denoised(const picture* p, ycnr_ynr_tuning_param luma, ycnr_cnr_tuning_param chroma,
                         bool fine) {
  picture out = empty_picture(p->width, p->height, p->rows);
  const int halves = p->rows == p->height && p->height > 1 ? 2 : 1;
  denoise_rows(p, 0, halves, luma, chroma, fine, &out);
  if (halves == 1) return out;
  picture second = *p; /* with the luma that came out */
  second.y = malloc((size_t)(p->width * p->height));
  memcpy(second.y, out.y, (size_t)(p->width * p->height));
  luma.enable = 0;
  denoise_rows(&second, 1, 2, luma, chroma, fine, &out);
  free(second.y);
  return out;
}

/* Where a sample stands in a frame: plane 0 is luma, 1 is U, 2 is V. */
static uint8_t* sample(const struct obs_source_frame* f, int plane, int x, int y) {
  size_t in = 0, at = (size_t)x;
  if (is_422(f->format)) {
    at = plane == 0 ? 2 * at : 4 * at + (plane == 2 ? 2 : 0);
    at += (f->format == VIDEO_FORMAT_UYVY) == (plane == 0);
  } else if (f->format == VIDEO_FORMAT_NV12 && plane > 0) {
    in = 1;
    at = 2 * at + (plane == 2);
  } else {
    in = (size_t)plane;
  }
  return f->data[in] + (size_t)y * f->linesize[in] + at;
}

static int row_bytes(enum video_format format, int width, int plane) {
  const int pairs = (width + 1) / 2;
  if (is_422(format)) return plane == 0 ? 4 * pairs : 0;
  if (plane == 0) return width;
  if (format == VIDEO_FORMAT_NV12) return plane == 1 ? 2 * pairs : 0;
  return pairs;
}

struct obs_source_frame* frame_of(const picture* p, enum video_format format, int gap) {
  struct obs_source_frame* frame = calloc(1, sizeof *frame);
  frame->format = format;
  frame->width = (uint32_t)p->width;
  frame->height = (uint32_t)p->height;
  for (int plane = 0; plane < 3; ++plane) {
    const int row = row_bytes(format, p->width, plane);
    if (row == 0) continue;
    frame->linesize[plane] = (uint32_t)(row + gap);
    frame->data[plane] = malloc((size_t)((row + gap) * p->height));
    memset(frame->data[plane], 0xee, (size_t)((row + gap) * p->height));
  }
  for (int y = 0; y < p->height; ++y)
    for (int x = 0; x < p->width; ++x) *sample(frame, 0, x, y) = p->y[y * p->width + x];
  for (int y = 0; y < p->rows; ++y)
    for (int x = 0; x < p->columns; ++x) {
      *sample(frame, 1, x, y) = p->u[y * p->columns + x];
      *sample(frame, 2, x, y) = p->v[y * p->columns + x];
    }
  return frame;
}

picture picture_of(const struct obs_source_frame* f) {
  const int height = (int)f->height;
  picture p = empty_picture((int)f->width, height, is_422(f->format) ? height : (height + 1) / 2);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < p.width; ++x) p.y[y * p.width + x] = *sample(f, 0, x, y);
  for (int y = 0; y < p.rows; ++y)
    for (int x = 0; x < p.columns; ++x) {
      p.u[y * p.columns + x] = *sample(f, 1, x, y);
      p.v[y * p.columns + x] = *sample(f, 2, x, y);
    }
  for (int plane = 0; plane < 3; ++plane)
    for (int y = 0; f->data[plane] && y < (plane ? p.rows : height); ++y)
      for (uint32_t x = (uint32_t)row_bytes(f->format, p.width, plane); x < f->linesize[plane]; ++x)
        CHECK(f->data[plane][(size_t)y * f->linesize[plane] + x] == 0xee);
  return p;
}

void frame_free(struct obs_source_frame* frame) {
  for (int plane = 0; plane < 3; ++plane) free(frame->data[plane]);
  free(frame);
}
