#include "pyramid/up_chroma.h"

#include <cstring>
#include <initializer_list>

#include "pyramid/up2.h"
#include "runtime/stage.h"

namespace vorn {
namespace {

struct up_slice {
  enlargement u, v;
  int row_begin, row_end;
  bool closes;  // so that only one job writes rows H-2 and H-1
  struct pool* pool;
};

void* up_slice_process(void* argument) {
  const auto* job = static_cast<const up_slice*>(argument);
  for (const enlargement& p : {job->u, job->v}) {
    enlarge_slice(p, job->row_begin, job->row_end);
    if (job->closes) close_bottom(p);
  }
  one_thread_done(job->pool);
  return nullptr;
}

}  // namespace

enlargement plane_of(const _tag_uni_image& small, const _tag_uni_image& out,
                     const _tag_uni_image& geometry) {
  return {small.plane[0], small.width, out.plane[0], geometry.width, geometry.height};
}

void enlarge_slice(const enlargement& p, int row_begin, int row_end) {
  for (int y = row_begin; y < row_end - 2; y += 2)
    up2_pair(p.coarse(y / 2), p.coarse(y / 2 + 1), p.row(y), p.row(y + 1), p.width);
}

void close_bottom(const enlargement& p) {
  const int y = p.height - 2;
  if (y < 0 || p.width < 1) return;
  up2_row(p.coarse(y / 2), y % 2 ? p.coarse(y / 2 + 1) : nullptr, p.row(y), p.width);
  std::memcpy(p.row(y + 1), p.row(y), static_cast<size_t>(p.width));
}

int up_slice_rows(int height) {
  return (height - 1) / kSlices & ~1;
}

int up_stage(pool* workers, const _tag_uni_image& small_u, const _tag_uni_image& out_u,
             const _tag_uni_image& small_v, const _tag_uni_image& out_v) {
  const up_slice prototype = {
      plane_of(small_u, out_u, out_u), plane_of(small_v, out_v, out_u), 0, 0, false, workers};
  up_slice jobs[kSlices];
  cut_rows(jobs, prototype, up_slice_rows(out_u.height), out_u.height - 1);
  jobs[kSlices - 1].closes = true;
  return run_jobs(workers, up_slice_process, jobs);
}

}  // namespace vorn

using vorn::enlargement;
using vorn::plane_of;

int gaussin3x3_up_odd(_tag_uni_image* small_u, _tag_uni_image* out_u, _tag_uni_image* small_v,
                      _tag_uni_image* out_v) {
  const int last = 2 * small_u->height - 2;  // the last row that coarse rows give
  for (const enlargement& p :
       {plane_of(*small_u, *out_u, *out_u), plane_of(*small_v, *out_v, *out_u)}) {
    for (int y = 0; y < last && y + 1 < p.height; y += 2)
      vorn::up2_pair(p.coarse(y / 2), p.coarse(y / 2 + 1), p.row(y), p.row(y + 1), p.width);
    if (last < 0 || last >= p.height || p.width < 1) continue;
    if (p.width >= 2) vorn::up2_row(p.coarse(last / 2), nullptr, p.row(last), p.width);
    for (int y = last + 1; y < p.height; ++y)
      std::memcpy(p.row(y), p.row(y - 1), static_cast<size_t>(p.width));
  }
  return 0;
}
