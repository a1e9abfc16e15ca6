#include "ynr/ynr_driver.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "base/dump.h"
#include "base/log.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/up2.h"
#include "runtime/image.h"
#include "runtime/stage.h"
#include "ynr/pre_mask.h"
#include "ynr/window.h"

namespace {

using vorn::kBorder;

constexpr char kInputProperty[] = "persist.vendor.cam.ynr2.input";
constexpr char kOutputProperty[] = "persist.vendor.cam.ynr2.output";
constexpr char kPathProperty[] = "persist.vendor.cam.ynr2.save_path";

void dump(const char* property, const char* label, const _tag_uni_image* frame) {
  char timestamp[256] = "";
  getTimestamp_NR(timestamp, sizeof timestamp);
  const int64_t bytes = int64_t{frame->width} * frame->height * 3 / 2;
  DUMP_IMAGE_CONDITION(property, "yes", kPathProperty, label, timestamp, frame->plane[0],
                       frame->width, frame->height, static_cast<int>(bytes));
}

// Milliseconds since the last call on the same clock variable.
double lap(double* since) {
  const double now = getTime();
  const double elapsed = now - *since;
  *since = now;
  return elapsed;
}

unsigned char* row_of(const _tag_uni_image* image, int y) {
  return image->plane[0] + static_cast<ptrdiff_t>(y) * image->stride[0];
}

// In-plane samples only; whatever stands beyond the width stays.
void copy_rows(const _tag_uni_image* dst, const _tag_uni_image* src) {
  for (int y = 0; y < dst->height; ++y)
    std::memcpy(row_of(dst, y), row_of(src, y), static_cast<size_t>(dst->width));
}

// Border rule for any border width; see FillExpandPixels.
void fill_border(const _tag_uni_image* image, int border) {
  const int width = image->width;
  const int height = image->height;
  const int last = height - border - 1;  // last inner row
  for (int y = border; y <= last; ++y) {
    unsigned char* row = row_of(image, y);
    const size_t bytes = static_cast<size_t>(border);
    if (border == kBorder) {  // a length that the compiler knows
      std::memset(row, row[kBorder], kBorder);
      std::memset(row + width - kBorder, row[width - kBorder - 1], kBorder);
    } else {
      std::memset(row, row[border], bytes);
      std::memset(row + width - border, row[width - border - 1], bytes);
    }
  }
  for (int y = 0; y < border; ++y)
    std::memcpy(row_of(image, y), row_of(image, border), static_cast<size_t>(width));
  for (int y = last + 1; y < height; ++y)
    std::memcpy(row_of(image, y), row_of(image, last), static_cast<size_t>(width));
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
class frame_mask {
 public:
  ~frame_mask() {
    if (!record_) return;
    std::free(record_->plane[0]);
    std::free(record_);
  }
  // Returns the mask, or null when there is no memory.
  _tag_uni_image* make(int width, int height, int strength) {
    record_ = static_cast<_tag_uni_image*>(std::calloc(1, sizeof(_tag_uni_image)));
    if (!record_) return nullptr;
    record_->width = record_->stride[0] = width / 4;
    record_->height = height / 4;
    record_->plane[0] = static_cast<unsigned char*>(
        std::malloc(static_cast<size_t>(record_->width) * record_->height));
    if (!record_->plane[0]) return nullptr;
    pre_mask(record_, record_, width, height, strength);
    return record_;
  }
  bool made() const { return record_; }

 private:
  _tag_uni_image* record_ = nullptr;
};

bool usable_plane(const _tag_uni_image* image) {
  return image->plane[0] && image->stride[0] >= image->width;
}

// Level 0 from the handle's bordered image into the caller's frame. Blocks that overhang the frame
// go through memory of the handle; blocks that a mask leaves alone keep what dst holds.
int denoise_finest(ynr_handle_t* ynr, _tag_uni_image* dst, _tag_uni_image* mask,
                   bool covers_all_blocks, int intensity, int radius) {
  _tag_uni_image blocks = vorn::block_destination(*ynr);
  const bool window = radius == 3 || radius == 5 || radius == 7;
  if (!blocks.plane[0] || !window)
    return nlm_denoise_process(ynr, &ynr->out[0], dst, mask, intensity, radius);
  if (!covers_all_blocks) copy_rows(&blocks, dst);
  const int result = nlm_denoise_process(ynr, &ynr->out[0], &blocks, mask, intensity, radius);
  copy_rows(dst, &blocks);
  return result;
}

}  // namespace

int vorn::ynr_check_frame(const ynr_handle_t* handle, int width, int height, int layer) {
  const char* reason = nullptr;
  if (width != handle->width || height != handle->height)
    reason = "not the size given to init";
  else if (width < 4 || height < 4)
    reason = "smaller than one block";
  else if (layer > kLevels)
    reason = "too many layers";
  else if (layer > 0 && (width >> (layer - 1) < 1 || height >> (layer - 1) < 1))
    reason = "too small for the layers";
  if (!reason) return 0;
  VORN_LOGE("frame %d x %d, layer = %d: %s\n", width, height, layer, reason);
  return -1;
}

void FillExpandPixels(_tag_uni_image* image, int border) {
  // Without a row (or, for the columns, a column) inside the border there is nothing to copy from.
  if (border < 1 || image->height <= border || image->width < 1) return;
  if (image->height - border > border) {
    if (image->width > border) fill_border(image, border);
    return;
  }
  // Too low for inner rows: row copies only, from the top down as the rows then stand.
  for (int y = 0; y < border; ++y)
    std::memmove(row_of(image, y), row_of(image, border), static_cast<size_t>(image->width));
  for (int y = image->height - border; y < image->height; ++y)
    std::memmove(row_of(image, y), row_of(image, image->height - border - 1),
                 static_cast<size_t>(image->width));
}

int BuildGauPyrs_u8(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* levels, int layer) {
  int result = 0;
  double clock = getTime();
  for (int i = 0; i == 0 || i <= layer - 2; ++i) {
    result |= halve(handle ? handle->pool : nullptr, i == 0 ? *src : levels[i], levels[i + 1]);
    VORN_LOGD("        %d->%d gaussin3x3_down2_ynr cost time : %.3f ms \n", i, i + 1, lap(&clock));
  }
  return result;
}

int pyramid_denoise_mask_process(void* handle, _tag_uni_image* src, _tag_uni_image* dst,
                                 _tag_uni_image* mask, _tag_ynr_param_output* param) {
  if (!handle || !src || !dst || !param) return -1;
  ynr_handle_t* ynr = static_cast<denoise_handle_t*>(handle)->ynr;
  if (!ynr) return -1;
  const int layer = param->layer;
  if (layer <= 1) {
    VORN_LOGW("ynr layer = %d, it needs > 1\n", layer);
    return -1;
  }
  if (vorn::ynr_check_frame(ynr, src->width, src->height, layer) != 0 ||
      vorn::ynr_check_frame(ynr, dst->width, dst->height, layer) != 0)
    return -1;
  if (!usable_plane(src) || !usable_plane(dst) ||
      (mask && (!mask->plane[0] || mask->width < 1 || mask->height < 1))) {
    VORN_LOGE("an image without a plane or with rows shorter than its width\n");
    return -1;
  }
  VORN_LOGD("    nradius = %d \n", param->pRadius[1]);
  dump(kInputProperty, "ynr2_input", src);
  const double frame_start = getTime();

  frame_mask own_mask;
  ynr->work[0] = *dst;
  ynr->gauss[0] = *src;
  double clock = getTime();
  // A job that could not be queued spoils the frame; the luma plane then goes back to the input.
  int stage_result = BuildGauPyrs_u8(ynr, src, ynr->gauss, layer);
  VORN_LOGD("    BuildGauPyrs_u8 cost time: %.3f ms \n", lap(&clock));
  const int coarsest = layer - 1;
  const _tag_uni_image& whole = ynr->gauss_whole[coarsest];
  std::memcpy(ynr->work_whole[coarsest].plane[0], whole.plane[0],
              static_cast<size_t>(whole.stride[0]) * whole.height);
  if (!mask) {
    lap(&clock);
    mask = own_mask.make(src->width, src->height, param->param0);
    if (!mask) {
      VORN_LOGE("no memory for the mask\n");
      return -1;
    }
    VORN_LOGD("    pre_mask cost time: %.3f ms \n", lap(&clock));
  }

  for (int l = coarsest; l >= 1; --l) {
    _tag_uni_image* work = &ynr->work[l];
    lap(&clock);
    if (param->pIntensity[l] < 1) {
      copy_uni_image(&ynr->out[l], work);
      VORN_LOGD("    layer %d memcpy cost time: %.3f ms \n", l, lap(&clock));
    } else {
      fill_border(&ynr->work_whole[l], kBorder);
      VORN_LOGD("    layer %d FillExpandPixels cost time: %.3f ms \n", l, lap(&clock));
      stage_result |= nlm_denoise_process(ynr, work, &ynr->out[l], mask, param->pIntensity[l],
                                          param->pRadius[l]);
      VORN_LOGD("    layer %d nlm_denoise_process cost time: %.3f ms \n", l, lap(&clock));
    }
    stage_result |= vorn::run_rows(
        ynr->pool, work->height, 1, 3 * work->width, [&](int row_begin, int row_end) {
          vorn::subtract_rows(ynr->out[l], ynr->gauss[l], *work, row_begin, row_end);
        });
    if (param->pIntensity[l] < 1) extend_right(work);
    VORN_LOGD("    layer %d ImgSubImg_add128_u8 cost time: %.3f ms \n", l, lap(&clock));
    const bool into_bordered = l == 1 && param->pIntensity[0] >= 1;
    _tag_uni_image* finer = &ynr->work[l - 1];
    _tag_uni_image* merged = into_bordered ? &ynr->out[0] : finer;
    if (into_bordered && !own_mask.made()) {
      // A mask of the caller may leave blocks of dst alone, which then hold the enlarged detail.
      gaussin3x3_up2(work, finer);
      VORN_LOGD("    layer %d gaussin3x3_up2 cost time: %.3f ms \n", l, lap(&clock));
      ImgAddDiff_sub128_u8(&ynr->gauss[l - 1], finer, merged);
    } else {
      // Both steps in one pass, without the enlarged detail ever being written.
      VORN_LOGD("    layer %d gaussin3x3_up2 cost time: %.3f ms \n", l, 0.0);
      stage_result |= vorn::run_rows(
          ynr->pool, merged->height, 2, 2 * merged->width, [&](int row_begin, int row_end) {
            vorn::up2_add_rows(*work, ynr->gauss[l - 1], *merged, row_begin, row_end);
          });
    }
    VORN_LOGD("    layer %d gaussin3x3_up2_merge cost time: %.3f ms \n", l, lap(&clock));
  }
  if (param->pIntensity[0] >= 1) {
    fill_border(&ynr->out_whole[0], kBorder);
    VORN_LOGD("    layer %d FillExpandPixels cost time: %.3f ms \n", 0, lap(&clock));
    stage_result |=
        denoise_finest(ynr, dst, mask, own_mask.made(), param->pIntensity[0], param->pRadius[0]);
    VORN_LOGD("    layer %d nlm_denoise_process cost time: %.3f ms \n", 0, lap(&clock));
  }
  if (stage_result != 0) {
    copy_rows(dst, src);
    return -1;
  }
  VORN_LOGD("YNR process time cost: %.3f ms \n", getTime() - frame_start);
  dump(kOutputProperty, "ynr2_output", dst);
  return 0;
}
