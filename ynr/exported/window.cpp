#include "ynr/exported/window.h"

#include <cstddef>

#include "base/log.h"
#include "runtime/pool.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"
#include "ynr/exported/block_processors.h"
#include "ynr/mask_row.h"
#include "ynr/run_walk.h"
#include "ynr/window.h"

namespace {

int walk(int rings, _tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* map,
         int row_begin, int row_end) {
  vorn::walk_rows({src, dst, mask, map, rings}, row_begin, row_end);
  return 0;
}

}  // namespace

int process3x3_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map,
                   int row_begin, int row_end) {
  return walk(1, src, dst, mask, weight_map, row_begin, row_end);
}

int process5x5_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map,
                   int row_begin, int row_end) {
  return walk(2, src, dst, mask, weight_map, row_begin, row_end);
}

int process7x7_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map,
                   int row_begin, int row_end) {
  return walk(3, src, dst, mask, weight_map, row_begin, row_end);
}

void* process3x3_process(void* job) {
  const nlm_slice_job* j = static_cast<nlm_slice_job*>(job);
  const double start = getTime();
  process3x3_pro(j->src, j->dst, j->mask, j->weight_map, j->row_begin, j->row_end);
  vorn::log_process3x3(getTime() - start);
  one_thread_done(j->pool);
  return nullptr;
}

void* process5x5_process(void* job) {
  const nlm_slice_job* j = static_cast<nlm_slice_job*>(job);
  process5x5_pro(j->src, j->dst, j->mask, j->weight_map, j->row_begin, j->row_end);
  one_thread_done(j->pool);
  return nullptr;
}

void* process7x7_process(void* job) {
  const nlm_slice_job* j = static_cast<nlm_slice_job*>(job);
  process7x7_pro(j->src, j->dst, j->mask, j->weight_map, j->row_begin, j->row_end);
  one_thread_done(j->pool);
  return nullptr;
}

int Process3x3(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, __func__, 1467, "%s++ \n", __func__);
  walk(1, src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, __func__, 1611, "%s-- \n", __func__);
  return 0;
}

int Process5x5(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, __func__, 1947, "%s++ \n", __func__);
  walk(2, src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2118, "%s-- \n", __func__);
  return 0;
}

int Process7x7(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2576, "%s++ \n", __func__);
  walk(3, src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2760, "%s-- \n", __func__);
  return 0;
}

// The 5x5 walk with distances taken on the guide: every block by the scalar rule, on the caller's
// thread.
int Process5x5_Guided(_tag_uni_image* src, _tag_uni_image* guide, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2488, "%s++", __func__);
  const ptrdiff_t stride = src->stride[0], guide_stride = guide->stride[0];
  int acc[vorn::kAccWords];
  for (int y = 0; y < src->height; y += 4) {
    const auto filter = [&](int x, int m) {
      unsigned char* cur = src->plane[0] + y * stride + x;
      unsigned char* g = guide->plane[0] + y * guide_stride + x;
      ProcessBlock4x4_5x5_Guided(
          cur, cur - stride, cur + stride, cur - 2 * stride, cur + 2 * stride, src->stride[0], g,
          g - guide_stride, g + guide_stride, g - 2 * guide_stride, g + 2 * guide_stride,
          guide->stride[0], dst->plane[0] + static_cast<ptrdiff_t>(y) * dst->stride[0] + x,
          dst->stride[0], weight_map, acc, m);
    };
    vorn::for_blocks(
        vorn::mask_row::scaled(mask, src->width, y), src->width, 0, src->width,
        [&](int x, int left, int right) {
          filter(x, left);
          filter(x + 4, right);
        },
        filter);
  }
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2566, "%s--", __func__);
  return 0;
}

int nlm_denoise_guided_process(_tag_uni_image* src, _tag_uni_image* guide, _tag_uni_image* dst,
                               _tag_uni_image* mask, int intensity, int /*radius*/) {
  int weight_map[vorn::kMapSize];
  MakeWeightMap(weight_map, static_cast<float>(intensity), vorn::kMapSize);
  return Process5x5_Guided(src, guide, dst, mask, weight_map);
}
