#include "pyramid/down2.h"

#include <cstddef>

#include "base/log.h"
#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/stage.h"

namespace vorn {
namespace {

constexpr int kBlock = 8;  // outputs of the first block of a row

// The three source rows of one destination row.
struct source_rows {
  const uint8_t *upper, *centre, *lower;
};

source_rows rows_around(const uint8_t* src, int src_height, int src_stride, int y) {
  const uint8_t* centre = src + static_cast<ptrdiff_t>(2 * y) * src_stride;
  return {y > 0 ? centre - src_stride : centre, centre,
          2 * y == src_height - 1 ? centre : centre + src_stride};
}

// First output of a row narrower than a block: the left neighbour is the byte before the row, which
// ends the row above; before the plane there is none, and column 0 stands in.
uint8_t narrow_first(const source_rows& rows, const uint8_t* plane) {
  const auto column = [&](int x) {
    const auto at = [&](const uint8_t* row) { return row + x < plane ? row[0] : row[x]; };
    return at(rows.upper) + 2 * at(rows.centre) + at(rows.lower);
  };
  return static_cast<uint8_t>((column(-1) + 2 * column(0) + column(1) + 8) >> 4);
}

void down_row(const pyramid_kernels& kernels, const source_rows& rows, const uint8_t* plane,
              uint8_t* dst, int width) {
  kernels.down(rows.upper, rows.centre, rows.lower, dst, width);
  if (width > 0 && width < kBlock) dst[0] = narrow_first(rows, plane);
}

}  // namespace

void down2_rows(const uint8_t* src, int src_height, int src_stride, uint8_t* dst, int dst_width,
                int dst_stride, int row_begin, int row_end) {
  const pyramid_kernels& kernels = active_pyramid_kernels();
  for (int y = row_begin; y < row_end; ++y)
    down_row(kernels, rows_around(src, src_height, src_stride, y), src,
             dst + static_cast<ptrdiff_t>(y) * dst_stride, dst_width);
}

void down2_rows_in_blocks(const uint8_t* src, int src_height, int src_stride, uint8_t* dst,
                          int dst_width, int dst_stride, int row_begin, int row_end) {
  if (dst_width >= kBlock)
    return down2_rows(src, src_height, src_stride, dst, dst_width, dst_stride, row_begin, row_end);
  const pyramid_kernels& kernels = active_pyramid_kernels();
  for (int y = row_begin; y < row_end; ++y) {
    const source_rows rows = rows_around(src, src_height, src_stride, y);
    uint8_t* row = dst + static_cast<ptrdiff_t>(y) * dst_stride;
    kernels.down(rows.upper, rows.centre, rows.lower, row, kBlock);
    down_row(kernels, rows, src, row, dst_width);
  }
}

}  // namespace vorn

int gaussin3x3_down2_pro(unsigned char* src, int src_width, int src_height, unsigned char* dst,
                         int dst_width, int /*dst_height*/, int row_begin, int row_end) {
  vorn::down2_rows_in_blocks(src, src_height, src_width, dst, dst_width, dst_width, row_begin,
                             row_end);
  return 0;
}

int gaussin3x3_down2_ynr_pro(unsigned char* src, int /*src_width*/, int src_height, int src_stride,
                             unsigned char* dst, int dst_width, int /*dst_height*/, int dst_stride,
                             int row_begin, int row_end) {
  vorn::down2_rows_in_blocks(src, src_height, src_stride, dst, dst_width, dst_stride, row_begin,
                             row_end);
  return 0;
}

int gaussin3x3_down2(unsigned char* src, int /*src_width*/, int src_height, int src_stride,
                     unsigned char* dst, int dst_width, int dst_height, int dst_stride) {
  vorn::down2_rows_in_blocks(src, src_height, src_stride, dst, dst_width, dst_stride, 0,
                             dst_height);
  return 0;
}

// A slice writes its own rows and no sample beside them, so that narrow planes neither race with
// the next slice nor run past their end.
void* gaussin3x3_down2_process(void* argument) {
  const auto* job = static_cast<const down2_job*>(argument);
  vorn::down2_rows(job->src, job->src_height, job->src_width, job->dst, job->dst_width,
                   job->dst_width, job->row_begin, job->row_end);
  one_thread_done(job->pool);
  return nullptr;
}

int gaussin3x3_down2_thread(cnr_handle_t* handle, unsigned char* src, int src_width, int src_height,
                            unsigned char* dst, int dst_width, int dst_height) {
  const down2_job prototype = {dst,        src, src_width, dst_width,   src_height,
                               dst_height, 0,   0,         handle->pool};
  down2_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, dst_height / vorn::kSlices, dst_height);
  return vorn::run_jobs(handle->pool, gaussin3x3_down2_process, jobs);
}

int gaussin3x3_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst) {
  return gaussin3x3_down2_thread(handle, src->plane[0], src->width, src->height, dst->plane[0],
                                 dst->width, dst->height);
}

int gaussin3x3_down2_ynr(ynr_handle_t* /*handle*/, _tag_uni_image* src, _tag_uni_image* dst) {
  // src may be the caller's frame: nothing is read past its rows.
  vorn::down2_rows(src->plane[0], src->height, src->stride[0], dst->plane[0], dst->width,
                   dst->stride[0], 0, dst->height);
  return 0;
}

void* gaussin3x3_down2_ynr_process(void* argument) {
  const auto* job = static_cast<const down2_ynr_job*>(argument);
  const double start = getTime();
  vorn::down2_rows(job->src, job->src_height, job->src_stride, job->dst, job->dst_width,
                   job->dst_stride, job->row_begin, job->row_end);
  VORN_LOG_AT(vorn::kLogDebug, 314, "        ynr gaussian   %.3f  \n", getTime() - start);
  one_thread_done(job->pool);
  return nullptr;
}

int gaussin3x3_down2_ynr_thread(ynr_handle_t* handle, unsigned char* src, int src_width,
                                int src_height, int src_stride, unsigned char* dst, int dst_width,
                                int dst_height, int dst_stride) {
  const down2_ynr_job prototype = {dst,        src,        src_width,   dst_width,
                                   src_height, dst_height, src_stride,  dst_stride,
                                   0,          0,          handle->pool};
  down2_ynr_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, dst_height / vorn::kSlices, dst_height);
  return vorn::run_jobs(handle->pool, gaussin3x3_down2_ynr_process, jobs);
}

int pyramid_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst) {
  return gaussin3x3_down2(handle, src, dst);
}

int pyramid_down2(unsigned char* /*src*/, int /*src_width*/, int /*src_height*/,
                  unsigned char* /*dst*/, int /*dst_width*/, int /*dst_height*/) {
  return 0;
}
