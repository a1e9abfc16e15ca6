#include "cnr/cnr_driver.h"

#include "base/dump.h"
#include "base/log.h"
#include "cnr/hor_ver.h"
#include "cnr/hor_ver_mask.h"
#include "cnr/uv_split.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/kernels/pyramid_kernels.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"

namespace {

// The interleaved chroma plane of a frame: always straight behind its luma plane, whatever the
// record's second pointer holds.
unsigned char* chroma_plane(const _tag_uni_image& frame) {
  return frame.plane[0] + static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height);
}

bool two_levels(int scale) {
  return scale == 1 || scale == 2;
}

// A frame that uses chroma levels 0..last_level, each of which must hold a pixel.
int check_size(const cnr_handle_t* handle, int width, int height, bool level1) {
  const int least = level1 ? 4 : 2;
  if (handle && width == handle->width && height == handle->height && width % 2 == 0 &&
      width >= least && height >= least)
    return 0;
  VORN_LOGE("chroma cannot run a %d x %d frame: even width, at least %d x %d, made for %d x %d\n",
            width, height, least, least, handle ? handle->width : 0, handle ? handle->height : 0);
  return -1;
}

}  // namespace

int vorn::cnr_check_frame(const cnr_handle_t* handle, int width, int height, int scale) {
  return check_size(handle, width, height, two_levels(scale));
}

// Fails the frame when a stage could not be queued; the pool has logged why.
#define RUN_STAGE(call)         \
  do {                          \
    if ((call) != 0) return -1; \
  } while (0)

int color_noise_reduce_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                               _tag_cnr_param* param) {
  if (!handle || !src || !dst || !param) return -1;
  cnr_handle_t* cnr = static_cast<denoise_handle_t*>(handle)->cnr;
  const int width = src->width;
  const int height = src->height;
  if (vorn::cnr_check_frame(cnr, width, height, param->scale) != 0) return -1;
  _tag_uni_image* const images = cnr->images;
  unsigned char* const u = images[2].plane[0];
  unsigned char* const v = images[4].plane[0];
  const int frame_bytes = static_cast<int>(static_cast<int64_t>(width) * height * 3 / 2);

  char timestamp[256] = {};
  getTimestamp_NR(timestamp, sizeof(timestamp));
  DUMP_IMAGE_CONDITION("persist.vendor.cam.cnr4.input", "yes", "persist.vendor.cam.cnr4.save_path",
                       "cnr4_input", timestamp, src->plane[0], width, height, frame_bytes);

  const double begin = getTime();
  double start = begin;
  if (param->saturation != 0) {
    RUN_STAGE(split_UV_saturation_thread(cnr, chroma_plane(*src), u, v, param->saturation, width,
                                         height / 2));
    VORN_LOGD("    splitUV saturation cost time: %.3f \n", getTime() - start);
  } else {
    RUN_STAGE(split_UV_thread(cnr, chroma_plane(*src), u, v, width, height / 2));
    VORN_LOGD("    splitUV cost time: %.3f \n", getTime() - start);
  }

  start = getTime();
  RUN_STAGE(pyramid_down2(cnr, src, &images[0]));
  VORN_LOGD("    pyramid_down2 cost time: %.3f \n", getTime() - start);

  if (param->scale == 2) {
    start = getTime();
    RUN_STAGE(pyramid_down_yuv(cnr, &images[0], &images[1], &images[2], &images[3], &images[4],
                               &images[5]));
    VORN_LOGD("    pyramid_down_yuv %d cost time: %.3f \n", 0, getTime() - start);

    param->level_mode = -1;
    start = getTime();
    RUN_STAGE(reduce_color_noise_hor_thread(cnr, &images[1], &images[3], &images[5], &images[7],
                                            &images[9], param));
    VORN_LOGD("    reduce_color_noise_hor %d cost time: %.3f \n", 1, getTime() - start);
    start = getTime();
    RUN_STAGE(reduce_color_noise_ver_thread(cnr, &images[1], &images[7], &images[9], &images[11],
                                            &images[13], param));
    VORN_LOGD("    reduce_color_noise_ver %d cost time: %.3f \n", 1, getTime() - start);

    start = getTime();
    ImgSubImg_add128_u8(&images[11], &images[3], &images[11]);
    ImgSubImg_add128_u8(&images[13], &images[5], &images[13]);
    VORN_LOGD("    ImgSubImg_add128_u8 %d cost time: %.3f \n", 1, getTime() - start);

    // Heights alone decide, whatever the widths.
    if (2 * images[11].height >= images[10].height) {
      start = getTime();
      RUN_STAGE(gaussin3x3_up2_merge1_thread(cnr, &images[11], &images[10], &images[2], &images[13],
                                             &images[12], &images[4]));
      VORN_LOGD("    gaussin3x3_up2_merge UV %d cost time: %.3f \n", 1, getTime() - start);
    } else {
      start = getTime();
      gaussin3x3_up_odd(&images[11], &images[10], &images[13], &images[12]);
      VORN_LOGD("    pyramid_up2 %d cost time: %.3f \n", 1, getTime() - start);
      start = getTime();
      ImgAddDiff_sub128_u8(&images[2], &images[10], &images[2]);
      ImgAddDiff_sub128_u8(&images[4], &images[12], &images[4]);
      VORN_LOGD("    ImgAddDiff_sub128_u8 %d cost time: %.3f \n", 1, getTime() - start);
    }

    // Level 0 always runs with this small window; the caller's record keeps it.
    param->level_mode = 0;
    param->smooth_radius = 3;
    param->smooth_step = 2;
    start = getTime();
    RUN_STAGE(reduce_color_noise_hor_thread(cnr, &images[0], &images[2], &images[4], &images[6],
                                            &images[8], param));
    VORN_LOGD("    reduce_color_noise_hor %d cost time: %.3f \n", 0, getTime() - start);
    start = getTime();
    RUN_STAGE(reduce_color_noise_ver_thread(cnr, &images[0], &images[6], &images[8], &images[2],
                                            &images[4], param));
    VORN_LOGD("    reduce_color_noise_ver %d cost time: %.3f \n", 0, getTime() - start);
  } else if (param->scale == 1) {
    param->level_mode = -1;
    start = getTime();
    RUN_STAGE(pyramid_down_yuv(cnr, &images[0], &images[1], &images[2], &images[3], &images[4],
                               &images[5]));
    VORN_LOGD("    pyramid_down_yuv cost time: %.3f \n", getTime() - start);
    start = getTime();
    RUN_STAGE(reduce_color_noise_hor_thread(cnr, &images[1], &images[3], &images[5], &images[7],
                                            &images[9], param));
    VORN_LOGD("    reduce_color_noise_hor_thread cost time: %.3f \n", getTime() - start);
    start = getTime();
    RUN_STAGE(reduce_color_noise_ver_thread(cnr, &images[1], &images[7], &images[9], &images[3],
                                            &images[5], param));
    VORN_LOGD("    reduce_color_noise_ver_thread cost time: %.3f \n", getTime() - start);
    start = getTime();
    RUN_STAGE(pyramid_up2(cnr, &images[3], &images[2], &images[5], &images[4]));
    VORN_LOGD("    pyramid_up2 cost time: %.3f \n", getTime() - start);
  } else if (param->scale == 0) {
    param->level_mode = -1;
    start = getTime();
    RUN_STAGE(reduce_color_noise_hor_thread(cnr, &images[0], &images[2], &images[4], &images[6],
                                            &images[8], param));
    VORN_LOGD("    reduce_color_noise_hor cost time: %.3f \n", getTime() - start);
    start = getTime();
    RUN_STAGE(reduce_color_noise_ver_thread(cnr, &images[0], &images[6], &images[8], &images[2],
                                            &images[4], param));
    VORN_LOGD("    reduce_color_noise_ver cost time: %.3f \n", getTime() - start);
  }

  start = getTime();
  RUN_STAGE(mergeUV_thread(cnr, chroma_plane(*src) - src->plane[0] + dst->plane[0], u, v, width,
                           height / 2));
  VORN_LOGD("    mergeUV cost time: %.3f \n", getTime() - start);
  VORN_LOGD("CNR_process cost time: %.3f \n", getTime() - begin);
  DUMP_IMAGE_CONDITION("persist.vendor.cam.cnr4.output", "yes", "persist.vendor.cam.cnr4.save_path",
                       "cnr4_output", timestamp, dst->plane[0], width, height, frame_bytes);
  return 0;
}

int color_noise_reduce_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                    _tag_uni_image* mask, _tag_cnr_param* param) {
  if (!src || !dst || !param) return -1;
  cnr_handle_t* cnr = handle ? static_cast<denoise_handle_t*>(handle)->cnr : nullptr;
  const int width = src->width;
  const int height = src->height;
  if (check_size(cnr, width, height, param->scale != 0) != 0) return -1;
  if (!mask || !mask->plane[0] || mask->width < 0 || mask->height < 1) {
    VORN_LOGE("the chroma filter's mask is empty\n");
    return -1;
  }
  _tag_uni_image* const images = cnr->images;
  const size_t pairs = static_cast<size_t>(height / 2) * static_cast<size_t>(width / 2);
  unsigned char* const dst_uv = chroma_plane(*src) - src->plane[0] + dst->plane[0];

  const double begin = getTime();
  double start = begin;
  if (param->saturation != 0) {
    vorn::split_with_gain(chroma_plane(*src), images[2].plane[0], images[4].plane[0], 2 * pairs,
                          param->saturation);
    VORN_LOGD("    splitUV_saturation cost time: %.3f \n", getTime() - start);
  } else {
    vorn::active_pyramid_kernels().split(chroma_plane(*src), images[2].plane[0], images[4].plane[0],
                                         static_cast<int>(pairs));
    VORN_LOGD("    splitUV cost time: %.3f \n", getTime() - start);
  }

  start = getTime();
  RUN_STAGE(pyramid_down2(cnr, src, &images[0]));
  VORN_LOGD("    pyramid_down2 cost time: %.3f \n", getTime() - start);

  if (param->scale != 0) {
    RUN_STAGE(pyramid_down_yuv(cnr, &images[0], &images[1], &images[2], &images[3], &images[4],
                               &images[5]));
    RUN_STAGE(reduce_color_noise_mask_hor_thread(cnr, &images[1], &images[3], &images[5],
                                                 &images[7], &images[9], param, mask));
    RUN_STAGE(reduce_color_noise_mask_ver_thread(cnr, &images[1], &images[7], &images[9],
                                                 &images[3], &images[5], param, mask));
    RUN_STAGE(pyramid_up_uv(cnr, &images[3], &images[2], &images[5], &images[4], dst_uv));
  } else {
    RUN_STAGE(reduce_color_noise_mask_hor_thread(cnr, &images[0], &images[2], &images[4],
                                                 &images[6], &images[8], param, mask));
    RUN_STAGE(reduce_color_noise_mask_vermerge_thread(cnr, &images[0], &images[6], &images[8],
                                                      &images[2], &images[4], param, dst_uv, mask));
  }
  VORN_LOGD("CNR_process mask cost time: %.3f \n", getTime() - begin);
  return 0;
}
