#include "cnr/exported/hor_ver_mask.h"

#include "cnr/chroma_pass.h"
#include "cnr/kernels/chroma_rule.h"
#include "runtime/stage.h"

namespace {

using vorn::chroma_pixel;
using vorn::direction;

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
  const _tag_cnr_param& param = *slice.param;
  const vorn::chroma_pass pass = vorn::describe_pass(*slice.guide, *slice.src_u, *slice.src_v,
                                                     *slice.dst_u, *slice.dst_v, param);
  const level_mask mask(*slice.mask, pass.width);
  for (int y = slice.row_begin; y < slice.row_end; ++y) {
    for (int x = 0; x < pass.width; ++x) {
      const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
      // U and V in their own order: the division by the mask rounds each of their terms.
      const vorn::chroma_place place = {pass.guide + at, slice.src_u->plane[0] + at,
                                        slice.src_v->plane[0] + at};
      const chroma_pixel centre = place.at(0);
      uint8_t u = static_cast<uint8_t>(centre.u), v = static_cast<uint8_t>(centre.v);
      if (const int strength = mask.at(x, y)) {
        const int grey_sq = vorn::grey_distance_sq(centre.u, centre.v);
        const int radial = vorn::radial_at(x, y, pass.width, pass.height);
        const auto weight = [&](const chroma_pixel& tap) {
          return pass.weights
              .weight[masked_range_index(centre, tap, param, strength, grey_sq, radial)];
        };
        // The centre outweighs a neighbour 128 times and more, whatever the mask: kept on purpose
        // (HorVerMask.CentreDominates).
        const auto sums = vorn::sum_taps<int64_t>(
            place, vorn::kFineCentreWeight, weight,
            [&](const auto& visit) { vorn::for_taps(pass, dir, x, y, visit); });
        u = vorn::fine_quotient(sums.a, sums.weight);
        v = vorn::fine_quotient(sums.b, sums.weight);
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
