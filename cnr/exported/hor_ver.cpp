#include "cnr/exported/hor_ver.h"

#include "cnr/chroma_pass.h"
#include "runtime/stage.h"

namespace {

template <typename Job>
vorn::chroma_pass describe(const Job& job) {
  return vorn::describe_pass(*job.guide, *job.src_u, *job.src_v, *job.dst_u, *job.dst_v,
                             *job.param);
}

void* filter_process(void* job, vorn::direction dir) {
  const auto& slice = *static_cast<const hor_ver_job*>(job);
  if (slice.row_begin < slice.row_end)
    vorn::filter_rows(describe(slice), dir, slice.row_begin, slice.row_end);
  one_thread_done(slice.pool);
  return nullptr;
}

}  // namespace

void* reduce_color_noise_hor_process(void* job) {
  return filter_process(job, vorn::direction::horizontal);
}

void* reduce_color_noise_ver_process(void* job) {
  return filter_process(job, vorn::direction::vertical);
}

void* reduce_color_noise_vermerge_process(void* job) {
  const auto& slice = *static_cast<const vermerge_job*>(job);
  if (slice.row_begin < slice.row_end) {
    const vorn::chroma_pass pass = describe(slice);
    const bool swapped = pass.src_a != slice.src_u->plane[0];
    for (int y = slice.row_begin; y < slice.row_end; ++y) {
      uint8_t* out = slice.dst_uv + static_cast<ptrdiff_t>(y) * pass.width * 2;
      for (int x = 0; x < pass.width; ++x) {
        const auto sums =
            vorn::sums_at(pass, vorn::direction::vertical, x, y, vorn::kFineCentreWeight);
        out[2 * x + swapped] = vorn::fine_quotient(sums.a, sums.weight);
        out[2 * x + !swapped] = vorn::fine_quotient(sums.b, sums.weight);
      }
    }
  }
  one_thread_done(slice.pool);
  return nullptr;
}

int reduce_color_noise_vermerge_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                       _tag_uni_image* src_u, _tag_uni_image* src_v,
                                       _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                       _tag_cnr_param* param, unsigned char* dst_uv) {
  const vermerge_job prototype{guide, src_u, src_v,        dst_u, dst_v, param,
                               0,     0,     handle->pool, 0,     dst_uv};
  vermerge_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, dst_u->height / vorn::kSlices, dst_u->height);
  for (int i = 0; i < vorn::kSlices; ++i) jobs[i].job_index = i;
  return vorn::run_jobs(handle->pool, reduce_color_noise_vermerge_process, jobs);
}
