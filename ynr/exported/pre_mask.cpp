#include "ynr/exported/pre_mask.h"

#include <cstddef>
#include <cstdlib>

#include "base/log.h"
#include "runtime/stage.h"
#include "ynr/pre_mask.h"

int pre_mask_pro(_tag_uni_image* /*src*/, _tag_uni_image* mask, int width, int height,
                 int row_start, int row_end) {
  constexpr int kFixedStrength = 256;
  const vorn::mask_grid g(width, height);
  for (int y = row_start; y < row_end; ++y) {
    unsigned char* row = mask->plane[0] + static_cast<ptrdiff_t>(y) * mask->stride[0];
    const int dy = std::abs(y - g.centre_y);
    for (int x = 0; x < g.columns; ++x)
      row[x] = vorn::mask_sample(kFixedStrength, std::abs(x - g.centre_x) + dy, g.normaliser);
  }
  return 0;
}

void* pre_mask_process(void* job) {
  const pre_mask_job* j = static_cast<pre_mask_job*>(job);
  const double start = getTime();
  pre_mask_pro(nullptr, j->mask, j->width, j->height, j->row_begin, j->row_end);
  VORN_LOGD("        pre_mask   %.3f  \n", getTime() - start);
  one_thread_done(j->pool);
  return nullptr;
}

int pre_mask_thread(ynr_handle_t* handle, _tag_uni_image* /*src*/, _tag_uni_image* mask, int width,
                    int height) {
  const pre_mask_job prototype{mask, width, height, 0, 0, handle->pool};
  pre_mask_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, height / 16, height / 4);
  return vorn::run_jobs(handle->pool, pre_mask_process, jobs);
}
