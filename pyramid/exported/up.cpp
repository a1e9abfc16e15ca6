#include "pyramid/exported/up.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "pyramid/kernels/pyramid_kernels.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "runtime/stage.h"

using vorn::enlargement;
using vorn::plane_of;

int gaussin3x3_up2_merge(_tag_uni_image* small, _tag_uni_image* detail, _tag_uni_image* out) {
  return vorn::up2_merge(*small, *out, *detail, *out);
}

int gaussin3x3_up2_merge1(_tag_uni_image* small, _tag_uni_image* up, _tag_uni_image* detail) {
  return vorn::up2_merge(*small, *up, *detail, *detail);
}

void* gaussin3x3_up2_merge1_process(void* argument) {
  const auto* job = static_cast<const up2_merge1_job*>(argument);
  gaussin3x3_up2_merge1(job->small, job->up, job->detail);
  one_thread_done(job->pool);
  return nullptr;
}

int gaussin3x3_up_pro(_tag_uni_image* small_u, _tag_uni_image* out_u, _tag_uni_image* small_v,
                      _tag_uni_image* out_v, int row_begin, int row_end) {
  for (const enlargement& p :
       {plane_of(*small_u, *out_u, *out_u), plane_of(*small_v, *out_v, *out_u)}) {
    vorn::enlarge_slice(p, row_begin, row_end);
    vorn::close_bottom(p);
  }
  return 0;
}

void* gaussin3x3_up_process(void* argument) {
  const auto* job = static_cast<const up_job*>(argument);
  gaussin3x3_up_pro(job->small_u, job->out_u, job->small_v, job->out_v, job->row_begin,
                    job->row_end);
  one_thread_done(job->pool);
  return nullptr;
}

namespace {

constexpr int kChunk = 256;  // columns enlarged at a time before they are interleaved

// A pair of rows of U,V pairs; the odd row may be left out.
void enlarge_pairs(const enlargement& u, const enlargement& v, uint8_t* dst_uv, int y,
                   bool with_odd) {
  const vorn::pyramid_kernels& kernels = vorn::active_pyramid_kernels();
  const uint8_t *au = u.coarse(y / 2), *av = v.coarse(y / 2);
  const uint8_t *bu = with_odd ? u.coarse(y / 2 + 1) : au,
                *bv = with_odd ? v.coarse(y / 2 + 1) : av;
  uint8_t* even = dst_uv + static_cast<ptrdiff_t>(y) * 2 * u.width;
  uint8_t* odd = even + 2 * u.width;
  const int columns = std::max(u.width - 1, 1);
  for (int x = 0; x < columns; x += kChunk) {
    const int n = std::min(kChunk, columns - x);
    uint8_t u_even[kChunk], u_odd[kChunk], v_even[kChunk], v_odd[kChunk];
    kernels.up(au + x / 2, bu + x / 2, u_even, u_odd, n);
    kernels.up(av + x / 2, bv + x / 2, v_even, v_odd, n);
    kernels.interleave(u_even, v_even, even + 2 * x, n);
    if (with_odd) kernels.interleave(u_odd, v_odd, odd + 2 * x, n);
  }
  if (u.width < 2) return;
  std::memcpy(even + 2 * (u.width - 1), even + 2 * (u.width - 2), 2);
  if (with_odd) std::memcpy(odd + 2 * (u.width - 1), odd + 2 * (u.width - 2), 2);
}

// A row that the closing copy replaces is not produced, which spares the read past the coarse
// planes.
void* up_uv_slice_process(void* argument) {
  const auto* job = static_cast<const up_uv_job*>(argument);
  const enlargement u = plane_of(*job->small_u, *job->out_u, *job->out_u);
  const enlargement v = plane_of(*job->small_v, *job->out_v, *job->out_u);
  for (int y = job->row_begin; y < job->row_end && u.width > 0; y += 2)
    enlarge_pairs(u, v, job->dst_uv, y, y + 1 < u.height - 1);
  one_thread_done(job->pool);
  return nullptr;
}

// Row H-1 repeats row H-2.
void close_pairs(const _tag_uni_image& geometry, uint8_t* dst_uv) {
  if (geometry.width < 1 || geometry.height < 2) return;
  const size_t bytes = 2 * static_cast<size_t>(geometry.width);
  uint8_t* last = dst_uv + bytes * static_cast<size_t>(geometry.height - 1);
  std::memcpy(last, last - bytes, bytes);
}

}  // namespace

int gaussin3x3_up_uv_pro(_tag_uni_image* small_u, _tag_uni_image* out_u, _tag_uni_image* small_v,
                         _tag_uni_image* out_v, unsigned char* dst_uv, int row_begin, int row_end) {
  const enlargement u = plane_of(*small_u, *out_u, *out_u);
  const enlargement v = plane_of(*small_v, *out_v, *out_u);
  for (int y = row_begin; y < row_end && u.width > 0; y += 2) enlarge_pairs(u, v, dst_uv, y, true);
  return 0;
}

void* gaussin3x3_up_uv_process(void* argument) {
  const auto* job = static_cast<const up_uv_job*>(argument);
  gaussin3x3_up_uv_pro(job->small_u, job->out_u, job->small_v, job->out_v, job->dst_uv,
                       job->row_begin, job->row_end);
  one_thread_done(job->pool);
  return nullptr;
}

int vorn::up_pairs_stage(pool* workers, _tag_uni_image* small_u, _tag_uni_image* out_u,
                         _tag_uni_image* small_v, _tag_uni_image* out_v, unsigned char* dst_uv) {
  const up_uv_job prototype = {dst_uv, out_u, small_u, out_v, small_v, 0, 0, workers};
  up_uv_job jobs[kSlices];
  cut_rows(jobs, prototype, up_slice_rows(out_u->height), out_u->height - 1);
  const int result = run_jobs(workers, up_uv_slice_process, jobs);
  close_pairs(*out_u, dst_uv);
  return result;
}

int gaussin3x3_up(_tag_uni_image* small_u, _tag_uni_image* out_u, _tag_uni_image* small_v,
                  _tag_uni_image* out_v, unsigned char* dst_uv) {
  const enlargement u = plane_of(*small_u, *out_u, *out_u);
  const enlargement v = plane_of(*small_v, *out_v, *out_u);
  for (int y = 0; y < u.height - 1 && u.width > 0; y += 2)
    enlarge_pairs(u, v, dst_uv, y, y + 1 < u.height - 1);
  close_pairs(*out_u, dst_uv);
  return 0;
}
