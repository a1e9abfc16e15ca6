#include "ynr/exported/pyramid_stages.h"

#include "pyramid/down2.h"
#include "pyramid/exported/down.h"
#include "runtime/stage.h"

int gaussin3x3_down2_ynr(ynr_handle_t* /*handle*/, _tag_uni_image* src, _tag_uni_image* dst) {
  // src may be the caller's frame: nothing is read past its rows.
  vorn::down2_rows(src->plane[0], src->height, src->stride[0], dst->plane[0], dst->width,
                   dst->stride[0], 0, dst->height);
  return 0;
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
