#include "cnr/exported/pyramid_stages.h"

#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/exported/blur3x3.h"
#include "pyramid/exported/down.h"
#include "pyramid/exported/up.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "runtime/stage.h"

int gaussin3x3_down2_thread(cnr_handle_t* handle, unsigned char* src, int src_width, int src_height,
                            unsigned char* dst, int dst_width, int dst_height) {
  return vorn::down2_stage(
      {dst, src, src_width, dst_width, src_height, dst_height, 0, 0, handle->pool});
}

int gaussin3x3_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst) {
  return gaussin3x3_down2_thread(handle, src->plane[0], src->width, src->height, dst->plane[0],
                                 dst->width, dst->height);
}

int pyramid_down2(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst) {
  return gaussin3x3_down2(handle, src, dst);
}

int gaussin3x3_down2_yuv_thread(cnr_handle_t* handle, unsigned char* src, int w, int h,
                                unsigned char* dst, int dw, int dh, unsigned char* src_u,
                                unsigned char* src_v, unsigned char* dst_u, unsigned char* dst_v) {
  return vorn::down_yuv_stage(
      {dst, src, dst_u, src_u, dst_v, src_v, w, dw, h, dh, 0, 0, handle->pool});
}

int gaussin3x3_down_yuv(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                        _tag_uni_image* src_u, _tag_uni_image* dst_u, _tag_uni_image* src_v,
                        _tag_uni_image* dst_v) {
  return gaussin3x3_down2_yuv_thread(handle, src->plane[0], src->width, src->height, dst->plane[0],
                                     dst->width, dst->height, src_u->plane[0], src_v->plane[0],
                                     dst_u->plane[0], dst_v->plane[0]);
}

int pyramid_down_yuv(cnr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                     _tag_uni_image* src_u, _tag_uni_image* dst_u, _tag_uni_image* src_v,
                     _tag_uni_image* dst_v) {
  return gaussin3x3_down_yuv(handle, src, dst, src_u, dst_u, src_v, dst_v);
}

int splituv_gaussin3x3_down_thread(cnr_handle_t* handle, unsigned char* uv, unsigned char* u,
                                   unsigned char* v, unsigned char* y, int y_width, int y_height,
                                   int y_stride, unsigned char* y_dst, int dst_width,
                                   int dst_height, int dst_stride) {
  const splituv_down_job prototype = {uv,         u,        v,     y,           y_width,
                                      y_height,   y_stride, y_dst, dst_width,   dst_height,
                                      dst_stride, 0,        0,     handle->pool};
  splituv_down_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, dst_height / vorn::kSlices, dst_height);
  return vorn::run_jobs(handle->pool, splituv_gaussin3x3_down_process, jobs);
}

int gaussin3x3_up2_merge1_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                 _tag_uni_image* up_u, _tag_uni_image* detail_u,
                                 _tag_uni_image* small_v, _tag_uni_image* up_v,
                                 _tag_uni_image* detail_v) {
  return vorn::up2_merge_stage(handle->pool, *small_u, *up_u, *detail_u, *small_v, *up_v,
                               *detail_v);
}

int gaussin3x3_up_thread(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                         _tag_uni_image* small_v, _tag_uni_image* out_v) {
  return vorn::up_stage(handle->pool, *small_u, *out_u, *small_v, *out_v);
}

int pyramid_up2(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                _tag_uni_image* small_v, _tag_uni_image* out_v) {
  return gaussin3x3_up_thread(handle, small_u, out_u, small_v, out_v);
}

int gaussin3x3_up_uv_thread(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                            _tag_uni_image* small_v, _tag_uni_image* out_v, unsigned char* dst_uv) {
  return vorn::up_pairs_stage(handle->pool, small_u, out_u, small_v, out_v, dst_uv);
}

int pyramid_up_uv(cnr_handle_t* handle, _tag_uni_image* small_u, _tag_uni_image* out_u,
                  _tag_uni_image* small_v, _tag_uni_image* out_v, unsigned char* dst_uv) {
  return gaussin3x3_up_uv_thread(handle, small_u, out_u, small_v, out_v, dst_uv);
}

namespace {

int blur_stage(cnr_handle_t* handle, const blur_uv_job& prototype, int height) {
  blur_uv_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, height / vorn::kSlices, height);
  return vorn::run_jobs(handle->pool, gaussin3x3_uv_process, jobs);
}

}  // namespace

int gaussin3x3_uv_thread(cnr_handle_t* handle, int src_width, int src_height, int dst_width,
                         int dst_height, unsigned char* src_u, unsigned char* src_v,
                         unsigned char* dst_u, unsigned char* dst_v) {
  return blur_stage(handle,
                    {src_u, src_v, dst_u, dst_v, src_width, src_height, dst_width, dst_height, 0, 0,
                     handle->pool},
                    dst_height);
}

int gaussin3x3_uv(cnr_handle_t* handle, _tag_uni_image* src_u, _tag_uni_image* src_v,
                  _tag_uni_image* dst_u, _tag_uni_image* dst_v) {
  return blur_stage(handle,
                    {src_u->plane[0], src_v->plane[0], dst_u->plane[0], dst_v->plane[0],
                     src_u->width, src_u->height, dst_u->width, dst_u->height, 0, 0, handle->pool},
                    src_u->height);
}

int pyramid_uv(cnr_handle_t* handle, _tag_uni_image* src_u, _tag_uni_image* src_v,
               _tag_uni_image* dst_u, _tag_uni_image* dst_v) {
  return gaussin3x3_uv(handle, src_u, src_v, dst_u, dst_v);
}
