#include "pyramid/down_yuv.h"

#include "pyramid/down2.h"
#include "runtime/stage.h"

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

int vorn::down_yuv_stage(const down_yuv_job& planes) {
  down_yuv_job jobs[kSlices];
  cut_rows(jobs, planes, planes.dst_height / kSlices, planes.dst_height);
  return run_jobs(planes.pool, gaussin3x3_down2_yuv_process, jobs);
}
