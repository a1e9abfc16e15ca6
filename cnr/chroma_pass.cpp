#include "cnr/chroma_pass.h"

#include <algorithm>

namespace vorn {

chroma_pass describe_pass(const _tag_uni_image& guide, const _tag_uni_image& src_u,
                          const _tag_uni_image& src_v, const _tag_uni_image& dst_u,
                          const _tag_uni_image& dst_v, const _tag_cnr_param& param) {
  const bool swapped = param.color_edge_u > param.color_edge_v;
  chroma_pass pass;
  pass.swapped = swapped;
  pass.guide = guide.plane[0];
  pass.src_a = (swapped ? src_v : src_u).plane[0];
  pass.src_b = (swapped ? src_u : src_v).plane[0];
  pass.dst_a = (swapped ? dst_v : dst_u).plane[0];
  pass.dst_b = (swapped ? dst_u : dst_v).plane[0];
  pass.width = dst_u.width;
  pass.height = dst_u.height;
  pass.radius = param.smooth_radius;
  pass.step = param.smooth_step;
  pass.level_mode = param.level_mode;
  make_chroma_weights(param.range_coef[0], std::min(param.color_edge_u, param.color_edge_v),
                      std::max(param.color_edge_u, param.color_edge_v), &pass.weights);
  return pass;
}

void filter_by_rule(const chroma_pass& pass, direction dir, int y, int begin, int end) {
  const int64_t start = dither_start(pass, dir, y);
  for (int x = begin; x < end; ++x) {
    const weighted_sums<int64_t> sums = sums_at(pass, dir, x, y, kDitherCentreWeight);
    const int64_t quarters = int64_t{dither_entry(start + x)} + pass.level_mode + 2;
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pass.width + x;
    pass.dst_a[at] = dithered_quotient(sums.a, sums.weight, quarters);
    pass.dst_b[at] = dithered_quotient(sums.b, sums.weight, quarters);
  }
}

void filter_rows(const chroma_pass& pass, direction dir, int row_begin, int row_end) {
  if (active_kernel_form() != kernel_form::scalar && spans_fit(pass, dir))
    return filter_spans(pass, dir, row_begin, row_end);
  for (int y = row_begin; y < row_end; ++y) filter_by_rule(pass, dir, y, 0, pass.width);
}

}  // namespace vorn
