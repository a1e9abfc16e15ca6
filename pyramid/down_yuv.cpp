#include "pyramid/down_yuv.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "pyramid/down2.h"
#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/stage.h"

int gaussin3x3_down_yuv_pro(unsigned char* src, int w, int h, unsigned char* dst, int dw,
                            int /*dh*/, unsigned char* src_u, unsigned char* src_v,
                            unsigned char* dst_u, unsigned char* dst_v, int row_begin,
                            int row_end) {
  vorn::down2_rows_in_blocks(src, h, w, dst, dw, dw, row_begin, row_end);
  vorn::down2_rows_in_blocks(src_u, h, w, dst_u, dw, dw, row_begin, row_end);
  vorn::down2_rows_in_blocks(src_v, h, w, dst_v, dw, dw, row_begin, row_end);
  return 0;
}

int gaussin3x3_down_yuv(unsigned char* src, int w, int h, unsigned char* dst, int dw, int dh,
                        unsigned char* src_u, unsigned char* src_v, unsigned char* dst_u,
                        unsigned char* dst_v) {
  return gaussin3x3_down_yuv_pro(src, w, h, dst, dw, dh, src_u, src_v, dst_u, dst_v, 0, dh);
}

// As in down2.cpp, a slice writes no sample beside its own rows.
void* gaussin3x3_down2_yuv_process(void* argument) {
  const auto* job = static_cast<const down_yuv_job*>(argument);
  const auto reduce = [job](const unsigned char* src, unsigned char* dst) {
    vorn::down2_rows(src, job->src_height, job->src_width, dst, job->dst_width, job->dst_width,
                     job->row_begin, job->row_end);
  };
  reduce(job->src, job->dst);
  reduce(job->src_u, job->dst_u);
  reduce(job->src_v, job->dst_v);
  one_thread_done(job->pool);
  return nullptr;
}

int gaussin3x3_down2_yuv_thread(cnr_handle_t* handle, unsigned char* src, int w, int h,
                                unsigned char* dst, int dw, int dh, unsigned char* src_u,
                                unsigned char* src_v, unsigned char* dst_u, unsigned char* dst_v) {
  const down_yuv_job prototype = {dst, src, dst_u, src_u, dst_v, src_v,       w,
                                  dw,  h,   dh,    0,     0,     handle->pool};
  down_yuv_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, dh / vorn::kSlices, dh);
  return vorn::run_jobs(handle->pool, gaussin3x3_down2_yuv_process, jobs);
}

int gaussin3x3_down_yuv(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                        _tag_uni_image* src_u, _tag_uni_image* dst_u, _tag_uni_image* src_v,
                        _tag_uni_image* dst_v) {
  return gaussin3x3_down2_yuv_thread(handle, src->plane[0], src->width, src->height, dst->plane[0],
                                     dst->width, dst->height, src_u->plane[0], src_v->plane[0],
                                     dst_u->plane[0], dst_v->plane[0]);
}

int pyramid_down_yuv(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                     _tag_uni_image* src_u, _tag_uni_image* dst_u, _tag_uni_image* src_v,
                     _tag_uni_image* dst_v) {
  return gaussin3x3_down_yuv(handle, src, dst, src_u, dst_u, src_v, dst_v);
}

namespace {

// Whether a plane of `bytes` bytes meets the `uv_bytes` bytes from uv on.
bool overlaps(const uint8_t* plane, ptrdiff_t bytes, const uint8_t* uv, ptrdiff_t uv_bytes) {
  return plane < uv + uv_bytes && uv < plane + bytes;
}

void split_rows(const splituv_down_job& job) {
  const ptrdiff_t rows = job.row_end - job.row_begin;
  const uint8_t* uv = job.uv + static_cast<ptrdiff_t>(job.row_begin) * job.y_width;
  uint8_t* u = job.u + static_cast<ptrdiff_t>(job.row_begin) * job.dst_width;
  uint8_t* v = job.v + static_cast<ptrdiff_t>(job.row_begin) * job.dst_width;
  const ptrdiff_t uv_bytes = (rows - 1) * job.y_width + 2 * job.dst_width;
  const bool in_place = overlaps(u, rows * job.dst_width, uv, uv_bytes) ||
                        overlaps(v, rows * job.dst_width, uv, uv_bytes);
  const vorn::pyramid_kernels& kernels = vorn::active_pyramid_kernels();
  for (ptrdiff_t y = 0; y < rows; ++y, uv += job.y_width, u += job.dst_width, v += job.dst_width) {
    if (!in_place) {
      kernels.split(uv, u, v, job.dst_width);
      continue;
    }
    for (int i = 0; i < job.dst_width; ++i) {
      u[i] = uv[2 * i];
      v[i] = uv[2 * i + 1];
    }
  }
}

// Columns past the last one repeat it; the first output needs no other rule, because the halving
// kernel repeats column 0 by itself.
void reduce_rows(const splituv_down_job& job) {
  const vorn::pyramid_kernels& kernels = vorn::active_pyramid_kernels();
  const int inside = std::min(job.dst_width, job.y_width / 2);
  for (int y = job.row_begin; y < job.row_end; ++y) {
    const uint8_t* centre = job.y + static_cast<ptrdiff_t>(2 * y) * job.y_stride;
    const uint8_t* upper = y > 0 ? centre - job.y_stride : centre;
    const uint8_t* lower = 2 * y == job.y_height - 1 ? centre : centre + job.y_stride;
    uint8_t* dst = job.y_dst + static_cast<ptrdiff_t>(y) * job.dst_stride;
    kernels.down(upper, centre, lower, dst, inside);
    const auto column = [&](int x) {
      const int c = std::clamp(x, 0, job.y_width - 1);
      return upper[c] + 2 * centre[c] + lower[c];
    };
    for (int x = inside; x < job.dst_width; ++x)
      dst[x] = static_cast<uint8_t>(
          (column(2 * x - 1) + 2 * column(2 * x) + column(2 * x + 1) + 8) >> 4);
  }
}

}  // namespace

int splituv_gaussin3x3_down(unsigned char* uv, unsigned char* u, unsigned char* v, unsigned char* y,
                            int y_width, int y_height, int y_stride, unsigned char* y_dst,
                            int dst_width, int dst_height, int dst_stride) {
  if (dst_height < 1 || y_width < 1) return 0;
  const splituv_down_job whole = {uv,         u,        v,          y,         y_width,
                                  y_height,   y_stride, y_dst,      dst_width, dst_height,
                                  dst_stride, 0,        dst_height, nullptr};
  split_rows(whole);
  reduce_rows(whole);
  return 0;
}

void* splituv_gaussin3x3_down_process(void* argument) {
  const auto* job = static_cast<const splituv_down_job*>(argument);
  if (job->row_begin < job->row_end && job->y_width > 0) {
    split_rows(*job);
    reduce_rows(*job);
  }
  one_thread_done(job->pool);
  return nullptr;
}

int splituv_gaussin3x3_down_thread(cnr_handle_t* handle, unsigned char* uv, unsigned char* u,
                                   unsigned char* v, unsigned char* y, int y_width, int y_height,
                                   int y_stride, unsigned char* y_dst, int dst_width,
                                   int dst_height, int dst_stride) {
  const splituv_down_job prototype = {uv,         u,        v,     y,           y_width,
                                      y_height,   y_stride, y_dst, dst_width,   dst_height,
                                      dst_stride, 0,        0,     handle->pool};
  splituv_down_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, dst_height / vorn::kSlices, dst_height);
  return vorn::run_jobs(handle->pool, splituv_gaussin3x3_down_process, jobs);
}
