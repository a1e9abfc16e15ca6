#include "cnr/hor_ver.h"

#include <algorithm>
#include <cstddef>

#include "cnr/chroma_pass.h"
#include "pyramid/kernels/pyramid_kernels.h"
#include "runtime/stage.h"

namespace {

// Rows of a whole level on the pool: calls rows(begin, end). They do not depend on each other, so
// any cut gives the same.
template <typename Rows>
int run_level(pool* workers, int height, const Rows& rows) {
  vorn::row_queue queue(height, vorn::kMinSpan);
  return vorn::run_shared(workers, [&] {
    for (int begin, end; queue.next(&begin, &end);) rows(begin, end);
  });
}

int filter_level(pool* workers, const vorn::chroma_pass& pass, vorn::direction dir) {
  return run_level(workers, pass.height,
                   [&](int begin, int end) { vorn::filter_rows(pass, dir, begin, end); });
}

constexpr int kRowsAtOnce = 64;  // of a split: as many as the filter turns on their side

}  // namespace

int reduce_color_noise_hor_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                  _tag_uni_image* src_u, _tag_uni_image* src_v,
                                  _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                  _tag_cnr_param* param) {
  return filter_level(handle->pool,
                      vorn::describe_pass(*guide, *src_u, *src_v, *dst_u, *dst_v, *param),
                      vorn::direction::horizontal);
}

int reduce_color_noise_ver_thread(cnr_handle_t* handle, _tag_uni_image* guide,
                                  _tag_uni_image* src_u, _tag_uni_image* src_v,
                                  _tag_uni_image* dst_u, _tag_uni_image* dst_v,
                                  _tag_cnr_param* param) {
  return filter_level(handle->pool,
                      vorn::describe_pass(*guide, *src_u, *src_v, *dst_u, *dst_v, *param),
                      vorn::direction::vertical);
}

int vorn::split_and_filter_hor(cnr_handle_t* handle, const unsigned char* src_uv,
                               const _tag_uni_image& guide, const _tag_uni_image& src_u,
                               const _tag_uni_image& src_v, const _tag_uni_image& dst_u,
                               const _tag_uni_image& dst_v, const _tag_cnr_param& param) {
  const chroma_pass pass = describe_pass(guide, src_u, src_v, dst_u, dst_v, param);
  const ptrdiff_t width = pass.width;
  return run_level(handle->pool, pass.height, [&](int begin, int end) {
    for (int y = begin; y < end; y += kRowsAtOnce) {
      const int until = std::min(y + kRowsAtOnce, end);
      for (ptrdiff_t row = y; row < until; ++row)
        active_pyramid_kernels().split(src_uv + row * 2 * width, src_u.plane[0] + row * width,
                                       src_v.plane[0] + row * width, pass.width);
      filter_rows(pass, direction::horizontal, y, until);
    }
  });
}

int vorn::filter_ver_to_pairs(cnr_handle_t* handle, const _tag_uni_image& guide,
                              const _tag_uni_image& src_u, const _tag_uni_image& src_v,
                              const _tag_uni_image& dst_u, const _tag_uni_image& dst_v,
                              unsigned char* dst_uv, const _tag_cnr_param& param) {
  chroma_pass pass = describe_pass(guide, src_u, src_v, dst_u, dst_v, param);
  const ptrdiff_t width = pass.width;
  const bool at_once =
      active_kernel_form() != kernel_form::scalar && spans_fit(pass, direction::vertical);
  if (at_once) pass.pairs = dst_uv;
  return run_level(handle->pool, pass.height, [&](int begin, int end) {
    filter_rows(pass, direction::vertical, begin, end);
    for (ptrdiff_t row = begin; !at_once && row < end; ++row)
      active_pyramid_kernels().interleave(dst_u.plane[0] + row * width,
                                          dst_v.plane[0] + row * width, dst_uv + row * 2 * width,
                                          pass.width);
  });
}
