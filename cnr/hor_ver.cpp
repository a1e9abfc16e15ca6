#include "cnr/hor_ver.h"

#include "cnr/chroma_pass.h"
#include "runtime/stage.h"

namespace {

// One pass over a whole level on the pool. Rows do not depend on each other, so any cut gives the
// same.
int filter_level(pool* workers, const vorn::chroma_pass& pass, vorn::direction dir) {
  vorn::row_queue rows(pass.height, vorn::kMinSpan);
  return vorn::run_shared(workers, [&] {
    for (int begin, end; rows.next(&begin, &end);) vorn::filter_rows(pass, dir, begin, end);
  });
}

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
