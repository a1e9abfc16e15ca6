#include "ynr/ynr_driver.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/dump.h"
#include "base/log.h"
#include "base/stage_times.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/up2.h"
#include "runtime/image.h"
#include "runtime/stage.h"
#include "ynr/block_rules.h"
#include "ynr/four_grids.h"
#include "ynr/pre_mask.h"
#include "ynr/window.h"

namespace {

using vorn::kBorder;

void dump(const char* property, const char* label, const _tag_uni_image& frame) {
  char timestamp[256] = "";
  getTimestamp_NR(timestamp, sizeof timestamp);
  vorn::dump_frame(property, vorn::kLumaDumps.path, label, timestamp, frame);
}

unsigned char* row_of(const _tag_uni_image* image, int y) {
  return image->plane[0] + static_cast<ptrdiff_t>(y) * image->stride[0];
}

// In-plane samples only; whatever stands beyond the width stays.
void copy_rows(const _tag_uni_image* dst, const _tag_uni_image* src) {
  for (int y = 0; y < dst->height; ++y)
    std::memcpy(row_of(dst, y), row_of(src, y), static_cast<size_t>(dst->width));
}

// The up-sampling of a plane under an odd-sized one reads the sample right of each row. Where no
// border was filled it must hold the last column's value.
void extend_right(const _tag_uni_image* level) {
  for (int y = 0; y < level->height; ++y) {
    unsigned char* end = row_of(level, y) + level->width;
    end[0] = end[-1];
  }
}

// One level from the one above it: gaussin3x3_down2_ynr on the pool.
int halve(pool* workers, const _tag_uni_image& fine, const _tag_uni_image& coarse) {
  return vorn::run_rows(workers, coarse.height, 1, 5 * coarse.width, [&](int begin, int end) {
    vorn::down2_rows(fine.plane[0], fine.height, fine.stride[0], coarse.plane[0], coarse.width,
                     coarse.stride[0], begin, end);
  });
}

// The position mask of one frame, when the caller brought none.
struct frame_mask {
  _tag_uni_image image = {};

  ~frame_mask() { std::free(image.plane[0]); }
  // Returns false when there is no memory.
  bool make(int width, int height, int strength) {
    image.width = image.stride[0] = width / 4;
    image.height = height / 4;
    image.plane[0] = static_cast<unsigned char*>(
        std::malloc(static_cast<size_t>(image.width) * static_cast<size_t>(image.height)));
    if (image.plane[0]) pre_mask(nullptr, &image, width, height, strength);
    return image.plane[0] != nullptr;
  }
};

constexpr char kDriver[] = "pyramid_denoise_mask_process";  // in the log lines of its steps

// One frame under way. A stage that could not be queued is the last one; the luma plane then goes
// back to the input.
struct luma_frame {
  ynr_handle_t* ynr;
  const _tag_ynr_param_output& param;
  _tag_uni_image* src;
  _tag_uni_image* dst;
  _tag_uni_image* mask;
  bool own_mask;         // covers every block
  unsigned char* grids;  // scratch for the finest level on four grids, or null for one
  vorn::stage_times stages;
  frame_mask own = {};

  bool filters(int level) const { return param.pIntensity[level] >= 1; }
  int coarsest() const { return param.layer - 1; }

  void build_pyramid();
  void make_mask();
  void denoise(int level);
  void take_change(int level);
  void add_change(int level);
  void denoise_finest();

  int run();
};

// The coarsest level's working image is the Gaussian level itself.
void luma_frame::build_pyramid() {
  ynr->work[0] = *dst;
  ynr->gauss[0] = *src;
  stages.run("BuildGauPyrs_u8", 0,
             [this] { return BuildGauPyrs_u8(ynr, src, ynr->gauss, param.layer); });
  const _tag_uni_image& whole = ynr->gauss_whole[coarsest()];
  std::memcpy(ynr->work_whole[coarsest()].plane[0], whole.plane[0],
              static_cast<size_t>(whole.stride[0]) * whole.height);
}

void luma_frame::make_mask() {
  stages.run("pre_mask", 0, [this] {
    mask = &own.image;
    if (own.make(src->width, src->height, param.param0)) return 0;
    VORN_LOG_AS(vorn::kLogError, kDriver, "no memory for the mask\n");
    return -1;
  });
}

// A coarse level: work -> out.
void luma_frame::denoise(int level) {
  if (!filters(level)) {
    stages.run("layer %d memcpy", level,
               [=] { copy_uni_image(&ynr->out[level], &ynr->work[level]); });
    return;
  }
  stages.run("layer %d FillExpandPixels", level,
             [=] { FillExpandPixels(&ynr->work_whole[level], kBorder); });
  stages.run("layer %d nlm_denoise_process", level, [=] {
    return nlm_denoise_process(ynr, &ynr->work[level], &ynr->out[level], mask,
                               param.pIntensity[level], param.pRadius[level]);
  });
}

// What denoising changed: out - gauss + 128 -> work.
void luma_frame::take_change(int level) {
  stages.run("layer %d ImgSubImg_add128_u8", level, [=] {
    const _tag_uni_image& work = ynr->work[level];
    const int result =
        vorn::run_rows(ynr->pool, work.height, 1, 3 * work.width, [&](int begin, int end) {
          vorn::subtract_rows(ynr->out[level], ynr->gauss[level], work, begin, end);
        });
    // The fine mode has no odd width read the border, which holds the level and not its change.
    if (!filters(level) || grids) extend_right(&work);
    return result;
  });
}

// The change, doubled, added to the next finer level: where that one is filtered from.
void luma_frame::add_change(int level) {
  const bool into_bordered = level == 1 && filters(0);
  _tag_uni_image *const change = &ynr->work[level], *const finer = &ynr->work[level - 1],
                        *const level_below = &ynr->gauss[level - 1],
                        *const merged = into_bordered ? &ynr->out[0] : finer;
  constexpr char kUp[] = "layer %d gaussin3x3_up2", kMerge[] = "layer %d gaussin3x3_up2_merge";
  if (into_bordered && !own_mask) {
    // A mask of the caller may leave blocks of dst alone, which then hold the enlarged detail.
    stages.run(kUp, level, [=] { return gaussin3x3_up2(change, finer); });
    stages.run(kMerge, level, [=] { ImgAddDiff_sub128_u8(level_below, finer, merged); });
    return;
  }
  // Both steps in one pass, without the enlarged detail ever being written.
  if (stages.result() == 0) stages.report(kUp, level, 0.0);
  stages.run(kMerge, level, [=] {
    return vorn::run_rows(ynr->pool, merged->height, 2, 2 * merged->width, [=](int begin, int end) {
      vorn::up2_add_rows(*change, *level_below, *merged, begin, end);
    });
  });
}

// Level 0 from the handle's bordered image into the caller's frame. Blocks that overhang the frame
// go through memory of the handle; blocks that a mask leaves alone keep what dst holds.
void luma_frame::denoise_finest() {
  stages.run("layer %d FillExpandPixels", 0,
             [this] { FillExpandPixels(&ynr->out_whole[0], kBorder); });
  stages.run("layer %d nlm_denoise_process", 0, [this] {
    const int intensity = param.pIntensity[0], radius = param.pRadius[0];
    const bool window = radius == 3 || radius == 5 || radius == 7;
    if (grids && window)
      return vorn::filter_on_four_grids(ynr->pool, ynr->out[0], *dst, *mask, intensity, radius,
                                        grids);
    _tag_uni_image blocks = vorn::block_destination(*ynr);
    if (!blocks.plane[0] || !window)
      return nlm_denoise_process(ynr, &ynr->out[0], dst, mask, intensity, radius);
    if (!own_mask) copy_rows(&blocks, dst);
    const int result = nlm_denoise_process(ynr, &ynr->out[0], &blocks, mask, intensity, radius);
    copy_rows(dst, &blocks);
    return result;
  });
}

// From the pyramid to dst.
int luma_frame::run() {
  build_pyramid();
  if (own_mask) make_mask();
  for (int level = coarsest(); level >= 1; --level) {
    denoise(level);
    take_change(level);
    add_change(level);
  }
  if (filters(0)) denoise_finest();
  if (stages.result() == 0) return 0;
  copy_rows(dst, src);
  return -1;
}

bool usable_plane(const _tag_uni_image* image) {
  return image->plane[0] && image->stride[0] >= image->width;
}

// Whether the driver can run these images. Logs why not under the driver's name.
bool usable_images(const ynr_handle_t* ynr, const _tag_uni_image* src, const _tag_uni_image* dst,
                   const _tag_uni_image* mask, int layer) {
  if (layer <= 1) {
    VORN_LOG_AS(vorn::kLogWarn, kDriver, "ynr layer = %d, it needs > 1\n", layer);
    return false;
  }
  if (vorn::ynr_check_frame(ynr, src->width, src->height, layer) != 0 ||
      vorn::ynr_check_frame(ynr, dst->width, dst->height, layer) != 0)
    return false;
  if (usable_plane(src) && usable_plane(dst) &&
      (!mask || (mask->plane[0] && mask->width >= 1 && mask->height >= 1)))
    return true;
  VORN_LOG_AS(vorn::kLogError, kDriver,
              "an image without a plane or with rows shorter than its width\n");
  return false;
}

// parts / 20 of an intensity, rounded; what filters nothing stays, what filters goes on to.
int twentieths(int intensity, int parts) {
  if (intensity < 1) return intensity;
  const int64_t scaled = (int64_t{intensity} * parts + 10) / 20;
  return static_cast<int>(std::clamp<int64_t>(scaled, 1, INT_MAX));
}

// One frame from its pyramid to dst; grids as in luma_frame.
int run_frame(const denoise_handle_t* owner, _tag_uni_image* src, _tag_uni_image* dst,
              _tag_uni_image* mask, const _tag_ynr_param_output& param, unsigned char* grids) {
  if (!owner->ynr || !usable_images(owner->ynr, src, dst, mask, param.layer)) return -1;
  VORN_LOG_AS(vorn::kLogDebug, kDriver, "    nradius = %d \n", param.pRadius[1]);
  dump(vorn::kLumaDumps.input, "ynr2_input", *src);
  const double start = getTime();

  luma_frame frame = {owner->ynr, param, src,   dst,
                      mask,       !mask, grids, {owner->ynr->pool->sink, kDriver, " ms"}};
  if (frame.run() != 0) return -1;
  const double ms = getTime() - start;
  VORN_LOG_AS(vorn::kLogDebug, kDriver, "YNR process time cost: %.3f ms \n", ms);
  frame.stages.tell("YNR process", ms);
  dump(vorn::kLumaDumps.output, "ynr2_output", *dst);
  return 0;
}

}  // namespace

int vorn::ynr_least_side(int layer) {
  return std::max(kBlock, layer > 0 ? 1 << (layer - 1) : 0);
}

int vorn::ynr_check_frame(const ynr_handle_t* handle, int width, int height, int layer) {
  const char* reason = nullptr;
  if (width != handle->width || height != handle->height)
    reason = "not the size given to init";
  else if (width < kBlock || height < kBlock)
    reason = "smaller than one block";
  else if (layer > kLevels)
    reason = "too many layers";
  else if (std::min(width, height) < ynr_least_side(layer))
    reason = "too small for the layers";
  if (!reason) return 0;
  VORN_LOGE("frame %d x %d, layer = %d: %s\n", width, height, layer, reason);
  return -1;
}

void FillExpandPixels(_tag_uni_image* image, int border) {
  const int width = image->width, height = image->height;
  const int last = height - border - 1;  // last inner row
  // Without a row (or, for the columns, a column) inside the border there is nothing to copy from.
  if (border < 1 || last < 0 || width < 1 || (last >= border && width <= border)) return;
  for (int y = border; y <= last; ++y) {
    unsigned char* row = row_of(image, y);
    const auto fill = [=](size_t bytes) {
      std::memset(row, row[border], bytes);
      std::memset(row + width - border, row[width - border - 1], bytes);
    };
    if (border == kBorder)
      fill(kBorder);  // a length that the compiler knows
    else
      fill(static_cast<size_t>(border));
  }
  // Where no row is inner, from the top down as the rows then stand.
  for (int y = 0; y < border; ++y)
    std::memmove(row_of(image, y), row_of(image, border), static_cast<size_t>(width));
  for (int y = last + 1; y < height; ++y)
    std::memmove(row_of(image, y), row_of(image, last), static_cast<size_t>(width));
}

int BuildGauPyrs_u8(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* levels, int layer) {
  int result = 0;
  for (int i = 0; i == 0 || i <= layer - 2; ++i) {
    const double start = getTime();
    result |= halve(handle ? handle->pool : nullptr, i == 0 ? *src : levels[i], levels[i + 1]);
    VORN_LOGD("        %d->%d gaussin3x3_down2_ynr cost time : %.3f ms \n", i, i + 1,
              getTime() - start);
  }
  return result;
}

int pyramid_denoise_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                 _tag_uni_image* mask, _tag_ynr_param_output* param) {
  if (!handle || !src || !dst || !param) return -1;
  return run_frame(static_cast<denoise_handle_t*>(handle), src, dst, mask, *param, nullptr);
}

int vorn::ynr_process_fine(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                           unsigned char* scratch) {
  // The mean of four grids keeps more of an edge, so that level 0 may be filtered more strongly and
  // leaves less to level 1. Measured on photographs, in twentieths.
  _tag_ynr_param_output param = handle->ynr_param;
  param.pIntensity[0] = twentieths(param.pIntensity[0], 21);
  param.pIntensity[1] = twentieths(param.pIntensity[1], 18);
  return run_frame(handle, src, dst, nullptr, param, scratch);
}

int vorn::filter_plane(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                       int intensity, unsigned char* scratch) {
  constexpr stage_sink kNobody = {};
  const _tag_ynr_param_output param = {
      {intensity, intensity / 2}, {7, 7}, kPlaneLayers, kNeutralMask, 0, 0};
  luma_frame frame = {handle, param, src, dst, nullptr, true, scratch, {kNobody, kDriver, " ms"}};
  return frame.run();
}

int uni_luma_noise_reduce_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                       _tag_uni_image* mask, _tag_ynr_param_output* param) {
  return pyramid_denoise_mask_process(handle, src, dst, mask, param);
}
