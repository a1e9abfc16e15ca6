#include "pyramid/down2.h"

#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/stage.h"

namespace vorn {
namespace {

// First output of a row narrower than a block: the left neighbour is the byte before the row, which
// ends the row above; before the plane there is none, and column 0 stands in.
uint8_t narrow_first(const source_rows& rows, const uint8_t* plane) {
  const auto column = [&](int x) {
    const auto at = [&](const uint8_t* row) { return row + x < plane ? row[0] : row[x]; };
    return at(rows.upper) + 2 * at(rows.centre) + at(rows.lower);
  };
  return static_cast<uint8_t>((column(-1) + 2 * column(0) + column(1) + 8) >> 4);
}

}  // namespace

void down2_rows(const uint8_t* src, int src_height, int src_stride, uint8_t* dst, int dst_width,
                int dst_stride, int row_begin, int row_end) {
  const pyramid_kernels& kernels = active_pyramid_kernels();
  for (int y = row_begin; y < row_end; ++y) {
    const source_rows rows = rows_around(src, src_height, src_stride, y);
    uint8_t* row = dst + static_cast<ptrdiff_t>(y) * dst_stride;
    kernels.down(rows.upper, rows.centre, rows.lower, row, dst_width);
    if (dst_width > 0 && dst_width < kDownBlock) row[0] = narrow_first(rows, src);
  }
}

int down2_stage(const down2_job& plane) {
  down2_job jobs[kSlices];
  cut_rows(jobs, plane, plane.dst_height / kSlices, plane.dst_height);
  return run_jobs(plane.pool, gaussin3x3_down2_process, jobs);
}

}  // namespace vorn

// A slice writes its own rows and no sample beside them, so that narrow planes neither race with
// the next slice nor run past their end.
void* gaussin3x3_down2_process(void* argument) {
  const auto* job = static_cast<const down2_job*>(argument);
  vorn::down2_rows(job->src, job->src_height, job->src_width, job->dst, job->dst_width,
                   job->dst_width, job->row_begin, job->row_end);
  one_thread_done(job->pool);
  return nullptr;
}
