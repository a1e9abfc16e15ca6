#include "cnr/exported/hor_ver_mask.h"

#include "cnr/kernels/chroma_rule.h"
#include "runtime/stage.h"

namespace {

using vorn::chroma_pixel;

enum class direction { horizontal, vertical };
enum class output { planes, interleaved };

// The mask as a level samples it: one mask pixel per ratio x ratio level pixels.
struct level_mask {
  const uint8_t* plane;
  int width;
  int ratio;
  int64_t last;  // index of the mask's last byte; a mask without rows or columns has its first

  level_mask(const _tag_uni_image& mask, int level_width)
      : plane(mask.plane[0]),
        width(mask.width),
        ratio(mask.width > 0 ? level_width / mask.width : 0),
        last(mask.width > 0 && mask.height > 0 ? static_cast<int64_t>(mask.width) * mask.height - 1
                                               : 0) {}

  int at(int x, int y) const {
    if (ratio == 0) return plane[0];
    const int64_t index = static_cast<int64_t>(y / ratio) * width + x / ratio;
    return plane[index < last ? index : last];
  }
};

// Distance of two pixels divided by mask / 64, as an index of the range weights. Up to that
// quotient everything wraps as 32-bit numbers, from there on nothing does.
int masked_range_index(const chroma_pixel& centre, const chroma_pixel& tap,
                       const _tag_cnr_param& param, int mask, int grey_sq, int radial) {
  const int d_u = vorn::wrapping_product(std::abs(centre.u - tap.u), param.color_edge_u) / 8;
  const int d_v = vorn::wrapping_product(std::abs(centre.v - tap.v), param.color_edge_v) / 8;
  const int d = vorn::wrapping_sum(vorn::wrapping_sum(std::abs(centre.y - tap.y), d_u), d_v);
  const int64_t scaled = vorn::wrapping_sum(mask >> 1, vorn::wrapping_product(64, d)) / mask;
  const int64_t d2 = scaled + ((scaled * grey_sq) >> 11);
  const int64_t e = d2 * 4 * radial;
  if (e >= 261376) return vorn::kRangeWeights - 1;
  return e < 0 ? 0 : static_cast<int>((e + 256) >> 9);
}

void filter_rows(const hor_ver_mask_job& slice, direction dir, output out) {
  const bool along_row = dir == direction::horizontal;
  const _tag_cnr_param& param = *slice.param;
  const int width = slice.dst_u->width;
  const int height = slice.dst_u->height;
  const ptrdiff_t pitch = along_row ? 1 : width;
  const uint8_t* guide = slice.guide->plane[0];
  const uint8_t* src_u = slice.src_u->plane[0];
  const uint8_t* src_v = slice.src_v->plane[0];
  const level_mask mask(*slice.mask, width);
  uint8_t weights[vorn::kRangeWeights];
  vorn::make_range_weights(param.range_coef[0], weights);

  for (int y = slice.row_begin; y < slice.row_end; ++y) {
    for (int x = 0; x < width; ++x) {
      const ptrdiff_t at = static_cast<ptrdiff_t>(y) * width + x;
      const chroma_pixel centre = {guide[at], src_u[at], src_v[at]};
      uint8_t u = src_u[at];
      uint8_t v = src_v[at];
      if (const int strength = mask.at(x, y)) {
        const int grey_sq = vorn::grey_distance_sq(centre.u, centre.v);
        const int radial = vorn::radial_at(x, y, width, height);
        const vorn::tap_range taps = vorn::taps_at(along_row ? x : y, along_row ? width : height,
                                                   param.smooth_radius, param.smooth_step);
        // The centre outweighs a neighbour 128 times and more, whatever the mask: kept on purpose
        // (HorVerMask.CentreDominates).
        int64_t sum = vorn::kFineCentreWeight;
        int64_t sum_u = sum * centre.u;
        int64_t sum_v = sum * centre.v;
        for (int64_t t = taps.first; t <= taps.last; t += param.smooth_step) {
          if (t == 0) continue;
          const ptrdiff_t from = at + t * pitch;
          const chroma_pixel tap = {guide[from], src_u[from], src_v[from]};
          const int weight =
              weights[masked_range_index(centre, tap, param, strength, grey_sq, radial)];
          sum += weight;
          sum_u += weight * tap.u;
          sum_v += weight * tap.v;
        }
        u = vorn::fine_quotient(sum_u, sum);
        v = vorn::fine_quotient(sum_v, sum);
      }
      if (out == output::interleaved) {
        slice.dst_uv[2 * at] = u;
        slice.dst_uv[2 * at + 1] = v;
      } else {
        slice.dst_u->plane[0][at] = u;
        slice.dst_v->plane[0][at] = v;
      }
    }
  }
}

// The planar passes read nothing of the record behind its mask.
void* mask_process(void* job, direction dir, output out) {
  const auto& slice = *static_cast<const hor_ver_mask_job*>(job);
  if (slice.row_begin < slice.row_end) filter_rows(slice, dir, out);
  one_thread_done(slice.pool);
  return nullptr;
}

int mask_thread(cnr_handle_t* handle, void* (*process)(void*), const hor_ver_mask_job& prototype) {
  hor_ver_mask_job jobs[vorn::kSlices];
  const int height = prototype.dst_u->height;
  vorn::cut_rows(jobs, prototype, height / vorn::kSlices, height);
  for (int i = 0; i < vorn::kSlices; ++i) jobs[i].job_index = i;
  return vorn::run_jobs(handle->pool, process, jobs);
}

}  // namespace

void* reduce_color_noise_mask_hor_process(void* job) {
  return mask_process(job, direction::horizontal, output::planes);
}

void* reduce_color_noise_mask_ver_process(void* job) {
  return mask_process(job, direction::vertical, output::planes);
}

void* reduce_color_noise_mask_vermerge_process(void* job) {
  return mask_process(job, direction::vertical, output::interleaved);
}

int reduce_color_noise_mask_hor_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                       _tag_uni_image* src_u, _tag_uni_image* src_v,
                                       _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                       _tag_cnr_param* param, _tag_uni_image* mask) {
  return mask_thread(
      handle, reduce_color_noise_mask_hor_process,
      {guide, src_u, src_v, dst_u, dst_v, param, 0, 0, handle->pool, 0, mask, nullptr});
}

int reduce_color_noise_mask_ver_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                       _tag_uni_image* src_u, _tag_uni_image* src_v,
                                       _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                       _tag_cnr_param* param, _tag_uni_image* mask) {
  return mask_thread(
      handle, reduce_color_noise_mask_ver_process,
      {guide, src_u, src_v, dst_u, dst_v, param, 0, 0, handle->pool, 0, mask, nullptr});
}

int reduce_color_noise_mask_vermerge_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                            _tag_uni_image* src_u, _tag_uni_image* src_v,
                                            _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                            _tag_cnr_param* param, unsigned char* dst_uv,
                                            _tag_uni_image* mask) {
  return mask_thread(
      handle, reduce_color_noise_mask_vermerge_process,
      {guide, src_u, src_v, dst_u, dst_v, param, 0, 0, handle->pool, 0, mask, dst_uv});
}
