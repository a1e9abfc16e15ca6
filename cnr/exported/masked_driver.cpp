#include "cnr/exported/masked_driver.h"

#include "base/log.h"
#include "base/stage_times.h"
#include "cnr/cnr_driver.h"
#include "cnr/exported/hor_ver_mask.h"
#include "cnr/exported/pyramid_stages.h"
#include "cnr/uv_split.h"
#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/pool.h"

namespace {

using vorn::chroma_level;

// Level 1 filtered, then doubled into dst_uv. Not 0 when a stage could not be queued.
int filter_coarse_level(cnr_handle_t* cnr, const chroma_level& fine, const chroma_level& coarse,
                        _tag_cnr_param* param, _tag_uni_image* mask, unsigned char* dst_uv) {
  if (vorn::halve_chroma(cnr) != 0 ||
      reduce_color_noise_mask_hor_thread(cnr, coarse.guide, coarse.u, coarse.v, coarse.across_u,
                                         coarse.across_v, param, mask) != 0 ||
      reduce_color_noise_mask_ver_thread(cnr, coarse.guide, coarse.across_u, coarse.across_v,
                                         coarse.u, coarse.v, param, mask) != 0)
    return -1;
  return pyramid_up_uv(cnr, coarse.u, fine.u, coarse.v, fine.v, dst_uv);
}

// Level 0 filtered into dst_uv. Results as of filter_coarse_level.
int filter_fine_level(cnr_handle_t* cnr, const chroma_level& fine, _tag_cnr_param* param,
                      _tag_uni_image* mask, unsigned char* dst_uv) {
  if (reduce_color_noise_mask_hor_thread(cnr, fine.guide, fine.u, fine.v, fine.across_u,
                                         fine.across_v, param, mask) != 0)
    return -1;
  return reduce_color_noise_mask_vermerge_thread(cnr, fine.guide, fine.across_u, fine.across_v,
                                                 fine.u, fine.v, param, dst_uv, mask);
}

}  // namespace

int color_noise_reduce_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                    _tag_uni_image* mask, _tag_cnr_param* param) {
  if (!src || !dst || !param) return -1;
  const auto* owner = static_cast<denoise_handle_t*>(handle);
  cnr_handle_t* cnr = owner ? owner->cnr : nullptr;
  if (vorn::cnr_check_frame(cnr, src->width, src->height, param->scale != 0) != 0 || !cnr)
    return -1;
  if (!mask || !mask->plane[0] || mask->width < 0 || mask->height < 1) {
    VORN_LOGE("the chroma filter's mask is empty\n");
    return -1;
  }
  const chroma_level fine = vorn::level_of(cnr, 0), coarse = vorn::level_of(cnr, 1);
  const size_t samples = static_cast<size_t>(src->height / 2) * static_cast<size_t>(src->width / 2);
  const unsigned char* const src_uv = vorn::chroma_plane(*src);
  unsigned char* const dst_uv = src_uv - src->plane[0] + dst->plane[0];

  const double begin = getTime();
  vorn::stage_times stages(cnr->pool->sink, __func__, "");
  stages.run(param->saturation ? "splitUV_saturation" : "splitUV", 0, [&] {
    unsigned char *const u = fine.u->plane[0], *const v = fine.v->plane[0];
    if (param->saturation)
      vorn::split_with_gain(src_uv, u, v, 2 * samples, param->saturation);
    else
      vorn::active_pyramid_kernels().split(src_uv, u, v, static_cast<int>(samples));
  });
  stages.run("pyramid_down2", 0, [&] { return vorn::make_guide(cnr, *src); });
  if (stages.result() != 0) return -1;
  const int result = param->scale != 0 ? filter_coarse_level(cnr, fine, coarse, param, mask, dst_uv)
                                       : filter_fine_level(cnr, fine, param, mask, dst_uv);
  if (result != 0) return -1;
  VORN_LOGD("CNR_process mask cost time: %.3f \n", getTime() - begin);
  return 0;
}

int uni_color_noise_reduce_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                        _tag_uni_image* mask, _tag_cnr_param_output* tuning) {
  if (!tuning) return -1;
  _tag_cnr_param param{};
  vorn::set_range_coefficient(&param, 0.5f, tuning->range_factor);
  // Only range factor and saturation come from the tuning; the rest is fixed.
  param.smooth_radius = 18;
  param.smooth_step = 3;
  param.scale = 0;
  param.saturation = tuning->saturation;
  param.color_edge_u = 8;
  param.color_edge_v = 9;
  VORN_LOGD("smooth_radius = %d, smooth_step = %d , diff_y_weight = %f \n", param.smooth_radius,
            param.smooth_step, static_cast<double>(param.range_coef[0]));
  return color_noise_reduce_mask_process(handle, src, dst, mask, &param);
}

int color_noise_reduce_deinit(void**) {
  return 0;
}
