#include "cnr/uv_split.h"

#include "cnr/kernels/chroma_kernels.h"
#include "cnr/kernels/chroma_rule.h"
#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/stage.h"

namespace {

template <typename Job>
int pair_count(const Job& job) {
  return job.end > job.start ? (job.end - job.start) / 2 + (job.end - job.start) % 2 : 0;
}

// Byte ranges of the four slices: whole rows, the last slice takes what remains.
template <typename Job>
void cut_bytes(Job (&jobs)[vorn::kSlices], const Job& prototype, int width, int rows) {
  const int quarter = rows / vorn::kSlices * width;
  for (int i = 0; i < vorn::kSlices; ++i) {
    jobs[i] = prototype;
    jobs[i].start = i * quarter;
    jobs[i].end = i + 1 < vorn::kSlices ? (i + 1) * quarter : rows * width;
  }
}

}  // namespace

void* split_UV_process(void* job) {
  const auto& slice = *static_cast<split_uv_job*>(job);
  vorn::active_pyramid_kernels().split(slice.src_uv + slice.start, slice.dst_u + slice.start / 2,
                                       slice.dst_v + slice.start / 2, pair_count(slice));
  one_thread_done(slice.pool);
  return nullptr;
}

void* split_UV_saturation_process(void* job) {
  const auto& slice = *static_cast<split_uv_job*>(job);
  if (slice.end > slice.start)
    vorn::split_with_gain(slice.src_uv + slice.start, slice.dst_u + slice.start / 2,
                          slice.dst_v + slice.start / 2,
                          static_cast<size_t>(slice.end) - slice.start, slice.saturation);
  one_thread_done(slice.pool);
  return nullptr;
}

void* mergeUV_process(void* job) {
  const auto& slice = *static_cast<merge_uv_job*>(job);
  vorn::active_pyramid_kernels().interleave(slice.src_u + slice.start / 2,
                                            slice.src_v + slice.start / 2,
                                            slice.dst_uv + slice.start, pair_count(slice));
  one_thread_done(slice.pool);
  return nullptr;
}

int split_UV_thread(cnr_handle_t* handle, unsigned char* src_uv, unsigned char* dst_u,
                    unsigned char* dst_v, int width, int rows) {
  const split_uv_job prototype{dst_u, dst_v, src_uv, 0, 0, 0, handle->pool};
  split_uv_job jobs[vorn::kSlices];
  cut_bytes(jobs, prototype, width, rows);
  return vorn::run_jobs(handle->pool, split_UV_process, jobs);
}

int split_UV_saturation_thread(cnr_handle_t* handle, unsigned char* src_uv, unsigned char* dst_u,
                               unsigned char* dst_v, int saturation, int width, int rows) {
  const split_uv_job prototype{dst_u, dst_v, src_uv, saturation, 0, 0, handle->pool};
  split_uv_job jobs[vorn::kSlices];
  cut_bytes(jobs, prototype, width, rows);
  return vorn::run_jobs(handle->pool, split_UV_saturation_process, jobs);
}

int mergeUV_thread(cnr_handle_t* handle, unsigned char* dst_uv, unsigned char* src_u,
                   unsigned char* src_v, int width, int rows) {
  const merge_uv_job prototype{src_u, src_v, dst_uv, 0, 0, handle->pool};
  merge_uv_job jobs[vorn::kSlices];
  cut_bytes(jobs, prototype, width, rows);
  return vorn::run_jobs(handle->pool, mergeUV_process, jobs);
}

namespace vorn {

void split_with_gain(const uint8_t* src_uv, uint8_t* dst_u, uint8_t* dst_v, size_t bytes,
                     int gain) {
  // Kept on purpose: whole steps use the low 8 bits of the gain, the pairs after them all of it
  // (UvSplit.GainBeyondEightBits).
  const size_t pairs = (bytes + 1) / 2;
  const size_t whole = bytes / (2 * kPairsPerStep) * kPairsPerStep;
  active_chroma_kernels().split_gain(src_uv, dst_u, dst_v, whole,
                                     static_cast<int8_t>(static_cast<uint8_t>(gain)));
  for (size_t i = whole; i < pairs; ++i) {
    dst_u[i] = vorn::with_gain(src_uv[2 * i], gain);
    dst_v[i] = vorn::with_gain(src_uv[2 * i + 1], gain);
  }
}

}  // namespace vorn
