#include "pyramid/exported/down.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/log.h"
#include "pyramid/down2.h"
#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/pool.h"

namespace {

// vorn::down2_rows, but never less than a block per row.
void rows_in_blocks(const uint8_t* src, int src_height, int src_stride, uint8_t* dst, int dst_width,
                    int dst_stride, int row_begin, int row_end) {
  if (dst_width >= vorn::kDownBlock)
    return vorn::down2_rows(src, src_height, src_stride, dst, dst_width, dst_stride, row_begin,
                            row_end);
  for (int y = row_begin; y < row_end; ++y) {
    const vorn::source_rows rows = vorn::rows_around(src, src_height, src_stride, y);
    vorn::active_pyramid_kernels().down(rows.upper, rows.centre, rows.lower,
                                        dst + static_cast<ptrdiff_t>(y) * dst_stride,
                                        vorn::kDownBlock);
    vorn::down2_rows(src, src_height, src_stride, dst, dst_width, dst_stride, y, y + 1);
  }
}

}  // namespace

int gaussin3x3_down2_pro(unsigned char* src, int src_width, int src_height, unsigned char* dst,
                         int dst_width, int /*dst_height*/, int row_begin, int row_end) {
  rows_in_blocks(src, src_height, src_width, dst, dst_width, dst_width, row_begin, row_end);
  return 0;
}

int gaussin3x3_down2_ynr_pro(unsigned char* src, int /*src_width*/, int src_height, int src_stride,
                             unsigned char* dst, int dst_width, int /*dst_height*/, int dst_stride,
                             int row_begin, int row_end) {
  rows_in_blocks(src, src_height, src_stride, dst, dst_width, dst_stride, row_begin, row_end);
  return 0;
}

int gaussin3x3_down2(unsigned char* src, int /*src_width*/, int src_height, int src_stride,
                     unsigned char* dst, int dst_width, int dst_height, int dst_stride) {
  rows_in_blocks(src, src_height, src_stride, dst, dst_width, dst_stride, 0, dst_height);
  return 0;
}

void* gaussin3x3_down2_ynr_process(void* argument) {
  const auto* job = static_cast<const down2_ynr_job*>(argument);
  const double start = getTime();
  vorn::down2_rows(job->src, job->src_height, job->src_stride, job->dst, job->dst_width,
                   job->dst_stride, job->row_begin, job->row_end);
  VORN_LOG_AT(vorn::kLogDebug, __func__, 314, "        ynr gaussian   %.3f  \n", getTime() - start);
  one_thread_done(job->pool);
  return nullptr;
}

int pyramid_down2(unsigned char* /*src*/, int /*src_width*/, int /*src_height*/,
                  unsigned char* /*dst*/, int /*dst_width*/, int /*dst_height*/) {
  return 0;
}

int gaussin3x3_down_yuv_pro(unsigned char* src, int w, int h, unsigned char* dst, int dw,
                            int /*dh*/, unsigned char* src_u, unsigned char* src_v,
                            unsigned char* dst_u, unsigned char* dst_v, int row_begin,
                            int row_end) {
  rows_in_blocks(src, h, w, dst, dw, dw, row_begin, row_end);
  rows_in_blocks(src_u, h, w, dst_u, dw, dw, row_begin, row_end);
  rows_in_blocks(src_v, h, w, dst_v, dw, dw, row_begin, row_end);
  return 0;
}

int gaussin3x3_down_yuv(unsigned char* src, int w, int h, unsigned char* dst, int dw, int dh,
                        unsigned char* src_u, unsigned char* src_v, unsigned char* dst_u,
                        unsigned char* dst_v) {
  return gaussin3x3_down_yuv_pro(src, w, h, dst, dw, dh, src_u, src_v, dst_u, dst_v, 0, dh);
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
    const vorn::source_rows rows = vorn::rows_around(job.y, job.y_height, job.y_stride, y);
    uint8_t* dst = job.y_dst + static_cast<ptrdiff_t>(y) * job.dst_stride;
    kernels.down(rows.upper, rows.centre, rows.lower, dst, inside);
    const auto column = [&](int x) {
      const int c = std::clamp(x, 0, job.y_width - 1);
      return rows.upper[c] + 2 * rows.centre[c] + rows.lower[c];
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
