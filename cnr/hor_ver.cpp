#include "cnr/hor_ver.h"

#include "cnr/chroma_rule.h"
#include "runtime/stage.h"

namespace {

using vorn::chroma_pixel;

enum class direction { horizontal, vertical };

// One pass over one level, as its rows read it. All planes are width x height without padding.
struct chroma_pass {
  const uint8_t* guide;
  const uint8_t* src_u;
  const uint8_t* src_v;
  uint8_t* dst_u;
  uint8_t* dst_v;
  int width;
  int height;
  int radius;
  int step;
  int edge_u;
  int edge_v;
  int level_mode;
  int support;  // weights from here on are 0
  uint8_t weights[vorn::kRangeWeights];
};

// Fills a pass from any of the job records.
template <typename Job>
void describe(const Job& job, chroma_pass* pass) {
  const _tag_cnr_param& param = *job.param;
  pass->guide = job.guide->plane[0];
  pass->src_u = job.src_u->plane[0];
  pass->src_v = job.src_v->plane[0];
  pass->dst_u = job.dst_u->plane[0];
  pass->dst_v = job.dst_v->plane[0];
  pass->width = job.dst_u->width;
  pass->height = job.dst_u->height;
  pass->radius = param.smooth_radius;
  pass->step = param.smooth_step;
  pass->edge_u = param.color_edge_u;
  pass->edge_v = param.color_edge_v;
  pass->level_mode = param.level_mode;
  pass->support = vorn::make_range_weights(param.range_coef[0], pass->weights);
}

struct weighted_sums {
  int64_t weight;
  int64_t u;
  int64_t v;
};

// Sums over the taps of pixel (x, y), the centre entering with centre_weight.
weighted_sums sum_taps(const chroma_pass& pass, direction dir, int x, int y, int centre_weight) {
  const bool along_row = dir == direction::horizontal;
  const ptrdiff_t pitch = along_row ? 1 : pass.width;
  const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
  const vorn::tap_range taps = vorn::taps_at(
      along_row ? x : y, along_row ? pass.width : pass.height, pass.radius, pass.step);
  const chroma_pixel centre = {pass.guide[at], pass.src_u[at], pass.src_v[at]};
  const int grey_sq = vorn::grey_distance_sq(centre.u, centre.v);
  const int radial = vorn::radial_at(x, y, pass.width, pass.height);
  weighted_sums sums = {centre_weight, static_cast<int64_t>(centre_weight) * centre.u,
                        static_cast<int64_t>(centre_weight) * centre.v};
  for (int64_t t = taps.first; t <= taps.last; t += pass.step) {
    if (t == 0) continue;
    const ptrdiff_t from = at + t * pitch;
    const chroma_pixel tap = {pass.guide[from], pass.src_u[from], pass.src_v[from]};
    const int weight =
        pass.weights[vorn::range_index(centre, tap, pass.edge_u, pass.edge_v, grey_sq, radial)];
    sums.weight += weight;
    sums.u += weight * tap.u;
    sums.v += weight * tap.v;
  }
  return sums;
}

// The quotient as the plane stores it: above 255 is 255. It is negative only for level modes that
// the driver never sets; then its low 8 bits are stored.
uint8_t quotient(int64_t numerator, int64_t weight) {
  const int64_t q = numerator / weight;
  return static_cast<uint8_t>(q < 255 ? q : 255);
}

// The rule for one pixel. dither_index is the row's start plus x.
void filter_pixel(const chroma_pass& pass, direction dir, int x, int y, int64_t dither_index) {
  const weighted_sums sums = sum_taps(pass, dir, x, y, 256);
  const int64_t quarters =
      static_cast<int64_t>(vorn::dither_entry(dither_index)) + pass.level_mode + 2;
  const int64_t bias = sums.weight / 4 * quarters;
  const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
  pass.dst_u[at] = quotient(sums.u + bias, sums.weight);
  pass.dst_v[at] = quotient(sums.v + bias, sums.weight);
}

void filter_rows(const chroma_pass& pass, direction dir, int row_begin, int row_end) {
  for (int y = row_begin; y < row_end; ++y) {
    const int64_t start = dir == direction::horizontal
                              ? vorn::horizontal_dither_start(y, pass.level_mode)
                              : vorn::vertical_dither_start(y, pass.level_mode);
    for (int x = 0; x < pass.width; ++x) filter_pixel(pass, dir, x, y, start + x);
  }
}

void* filter_process(void* job, direction dir) {
  const auto& slice = *static_cast<const hor_ver_job*>(job);
  if (slice.row_begin < slice.row_end) {
    chroma_pass pass;
    describe(slice, &pass);
    filter_rows(pass, dir, slice.row_begin, slice.row_end);
  }
  one_thread_done(slice.pool);
  return nullptr;
}

template <typename Job>
int filter_thread(cnr_handle_t* handle, void* (*process)(void*), const Job& prototype) {
  Job jobs[vorn::kSlices];
  const int height = prototype.dst_u->height;
  vorn::cut_rows(jobs, prototype, height / vorn::kSlices, height);
  for (int i = 0; i < vorn::kSlices; ++i) jobs[i].job_index = i;
  return vorn::run_jobs(handle->pool, process, jobs);
}

}  // namespace

void* reduce_color_noise_hor_process(void* job) {
  return filter_process(job, direction::horizontal);
}

void* reduce_color_noise_ver_process(void* job) {
  return filter_process(job, direction::vertical);
}

void* reduce_color_noise_vermerge_process(void* job) {
  const auto& slice = *static_cast<const vermerge_job*>(job);
  if (slice.row_begin < slice.row_end) {
    chroma_pass pass;
    describe(slice, &pass);
    for (int y = slice.row_begin; y < slice.row_end; ++y) {
      uint8_t* out = slice.dst_uv + static_cast<ptrdiff_t>(y) * pass.width * 2;
      for (int x = 0; x < pass.width; ++x) {
        const weighted_sums sums =
            sum_taps(pass, direction::vertical, x, y, vorn::kFineCentreWeight);
        out[2 * x] = vorn::fine_quotient(sums.u, sums.weight);
        out[2 * x + 1] = vorn::fine_quotient(sums.v, sums.weight);
      }
    }
  }
  one_thread_done(slice.pool);
  return nullptr;
}

int reduce_color_noise_hor_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                  _tag_uni_image* src_u, _tag_uni_image* src_v,
                                  _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                  _tag_cnr_param* param) {
  const hor_ver_job prototype{guide, src_u, src_v, dst_u, dst_v, param, 0, 0, handle->pool, 0};
  return filter_thread(handle, reduce_color_noise_hor_process, prototype);
}

int reduce_color_noise_ver_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                  _tag_uni_image* src_u, _tag_uni_image* src_v,
                                  _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                  _tag_cnr_param* param) {
  const hor_ver_job prototype{guide, src_u, src_v, dst_u, dst_v, param, 0, 0, handle->pool, 0};
  return filter_thread(handle, reduce_color_noise_ver_process, prototype);
}

int reduce_color_noise_vermerge_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                       _tag_uni_image* src_u, _tag_uni_image* src_v,
                                       _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                       _tag_cnr_param* param, unsigned char* dst_uv) {
  const vermerge_job prototype{guide, src_u, src_v,        dst_u, dst_v, param,
                               0,     0,     handle->pool, 0,     dst_uv};
  return filter_thread(handle, reduce_color_noise_vermerge_process, prototype);
}
