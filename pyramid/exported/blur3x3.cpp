#include "pyramid/exported/blur3x3.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/log.h"
#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/pool.h"

namespace {

// The rows around row y, mirrored about the first and the last one.
struct mirrored_rows {
  const uint8_t *upper, *centre, *lower;
};

mirrored_rows rows_around(const uint8_t* plane, int stride, int height, int y) {
  const uint8_t* centre = plane + static_cast<ptrdiff_t>(y) * stride;
  if (height < 2) return {centre, centre, centre};
  return {y > 0 ? centre - stride : centre + stride, centre,
          y < height - 1 ? centre + stride : centre - stride};
}

void blur_row(const mirrored_rows& rows, uint8_t* dst, int width) {
  if (width > 1)
    vorn::active_pyramid_kernels().blur(rows.upper, rows.centre, rows.lower, dst, width);
  else if (width == 1)  // both neighbours are the column itself
    dst[0] =
        static_cast<uint8_t>((4 * (rows.upper[0] + 2 * rows.centre[0] + rows.lower[0]) + 8) >> 4);
}

void blur_rows(const uint8_t* src, int src_stride, int src_height, uint8_t* dst, int dst_stride,
               int width, int row_begin, int row_end) {
  for (int y = row_begin; y < row_end; ++y)
    blur_row(rows_around(src, src_stride, src_height, y),
             dst + static_cast<ptrdiff_t>(y) * dst_stride, width);
}

}  // namespace

int GaussianBlur3x3(_tag_uni_image* src, _tag_uni_image* dst) {
  if (!src || !dst) return -1;
  VORN_LOG_AT(vorn::kLogDebug, __func__, 19, "%s++", __func__);
  // A row is whole before it is written, so that dst may be src.
  const size_t width = src->width > 0 ? static_cast<size_t>(src->width) : 0;
  uint8_t* row = static_cast<uint8_t*>(std::malloc(width + 1));
  if (!row) {
    VORN_LOGE("malloc failed\n");
    return -1;
  }
  for (int y = 0; y < src->height; ++y) {
    const mirrored_rows rows = rows_around(src->plane[0], src->stride[0], src->height, y);
    if (width == 1)  // the mirrored neighbours lie outside the plane and count as zero
      row[0] =
          static_cast<uint8_t>((2 * (rows.upper[0] + 2 * rows.centre[0] + rows.lower[0]) + 8) >> 4);
    else
      blur_row(rows, row, src->width);
    std::memcpy(dst->plane[0] + static_cast<ptrdiff_t>(y) * dst->stride[0], row, width);
  }
  std::free(row);
  VORN_LOG_AT(vorn::kLogDebug, __func__, 83, "%s--", __func__);
  return 0;
}

int gaussin3x3_uv_pro(int src_width, int src_height, int dst_width, int /*dst_height*/,
                      unsigned char* src_u, unsigned char* src_v, unsigned char* dst_u,
                      unsigned char* dst_v, int row_begin, int row_end) {
  const int width = std::min(src_width, dst_width);
  blur_rows(src_u, src_width, src_height, dst_u, dst_width, width, row_begin, row_end);
  blur_rows(src_v, src_width, src_height, dst_v, dst_width, width, row_begin, row_end);
  return 0;
}

void* gaussin3x3_uv_process(void* argument) {
  const auto* job = static_cast<const blur_uv_job*>(argument);
  gaussin3x3_uv_pro(job->src_width, job->src_height, job->dst_width, job->dst_height, job->src_u,
                    job->src_v, job->dst_u, job->dst_v, job->row_begin, job->row_end);
  one_thread_done(job->pool);
  return nullptr;
}
