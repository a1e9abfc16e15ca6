#include "ynr/window.h"

#include <algorithm>
#include <cstddef>

#include "api/log.h"
#include "runtime/image.h"
#include "runtime/stage.h"
#include "ynr/block_processors.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"

namespace {

using vorn::kNeutralMask;

int wrapping_product(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

int clamped(int i, int end) {
  return std::max(0, std::min(i, end - 1));
}

// Where the mask values of one block row stand. Without a mask every value is neutral.
class mask_row {
 public:
  // 3x3 and 7x7 read row 0 whatever the block row, a column per block: kept on purpose
  // (WindowWalk.ThreeAndSevenReadMaskRowZero).
  static mask_row first(const _tag_uni_image* mask) {
    return mask ? mask_row(mask->plane[0], mask->width, 0) : mask_row(nullptr, 0, 0);
  }
  // 5x5 scales both axes by the ratio of the widths.
  static mask_row scaled(const _tag_uni_image* mask, int src_width, int y) {
    if (!mask) return mask_row(nullptr, 0, 0);
    const int row = clamped(wrapping_product(mask->width, y) / src_width, mask->height);
    return mask_row(mask->plane[0] + static_cast<ptrdiff_t>(row) * mask->stride[0], mask->width,
                    src_width);
  }
  // The value of the block at column x.
  int at(int x) const {
    if (!row_) return kNeutralMask;
    const int column = src_width_ ? wrapping_product(width_, x) / src_width_ : x / 4;
    return row_[clamped(column, width_)];
  }

 private:
  mask_row(const unsigned char* row, int width, int src_width)
      : row_(row), width_(width), src_width_(src_width) {}
  const unsigned char* row_;
  int width_, src_width_;
};

template <int Rings>
mask_row mask_row_for(const _tag_uni_image* mask, int src_width, int y) {
  return Rings == 2 ? mask_row::scaled(mask, src_width, y) : mask_row::first(mask);
}

template <int Rings>
void filter_block(unsigned char* cur, ptrdiff_t stride, unsigned char* out, int out_stride,
                  int* map, int m) {
  int acc[vorn::kAccWords];
  const int s = static_cast<int>(stride);
  if (Rings == 1)
    ProcessBlock4x4_3x3(cur, cur - stride, cur + stride, s, out, out_stride, map, acc, m);
  else if (Rings == 2)
    ProcessBlock4x4_5x5(cur, cur - stride, cur + stride, cur - 2 * stride, cur + 2 * stride, s, out,
                        out_stride, map, acc, m);
  else
    ProcessBlock4x4_7x7(cur, cur - stride, cur + stride, cur - 2 * stride, cur + 2 * stride,
                        cur - 3 * stride, cur + 3 * stride, s, out, out_stride, map, acc, m);
}

template <int Rings>
void filter_pair(unsigned char* cur, ptrdiff_t stride, unsigned char* out, int out_stride, int* map,
                 int m_left, int m_right) {
  int left[vorn::kAccWords], right[vorn::kAccWords];
  const int s = static_cast<int>(stride);
  if (Rings == 1)
    ProcessBlock4x4_3x3_neon(cur, cur - stride, cur + stride, s, out, out_stride, map, left, right,
                             m_left, m_right);
  else if (Rings == 2)
    ProcessBlock4x4_5x5_neon(cur, cur - stride, cur + stride, cur - 2 * stride, cur + 2 * stride, s,
                             out, out_stride, map, left, right, m_left, m_right);
  else
    ProcessBlock4x4_7x7_neon(cur, cur - stride, cur + stride, cur - 2 * stride, cur + 2 * stride,
                             cur - 3 * stride, cur + 3 * stride, s, out, out_stride, map, left,
                             right, m_left, m_right);
}

// Block rows row_begin, row_begin + 4, ... of one level: pairs of blocks from the left, then the
// remainder (a width that is no multiple of 8) as single blocks. A pair with both mask values
// nonzero takes the vector rule, everything else the scalar one. Of a pair with exactly one nonzero
// value the left block is filtered with that value, whichever it is, and the right block is left
// alone: kept on purpose (WindowWalk.HalfMaskedPairFiltersTheLeftBlock).
template <int Rings>
int walk(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* map, int row_begin,
         int row_end) {
  const int width = src->width;
  const int paired = width & ~7;
  for (int y = row_begin; y < row_end; y += 4) {
    const mask_row values = mask_row_for<Rings>(mask, width, y);
    unsigned char* in = src->plane[0] + static_cast<ptrdiff_t>(y) * src->stride[0];
    unsigned char* out = dst->plane[0] + static_cast<ptrdiff_t>(y) * dst->stride[0];
    int x = 0;
    for (; x < paired; x += 8) {
      const int left = values.at(x);
      const int right = values.at(x + 4);
      if (left && right)
        filter_pair<Rings>(in + x, src->stride[0], out + x, dst->stride[0], map, left, right);
      else if (left || right)
        filter_block<Rings>(in + x, src->stride[0], out + x, dst->stride[0], map, left | right);
    }
    for (; x < width; x += 4)
      if (const int m = values.at(x))
        filter_block<Rings>(in + x, src->stride[0], out + x, dst->stride[0], map, m);
  }
  return 0;
}

int run_slices(ynr_handle_t* handle, void* (*process)(void*), _tag_uni_image* src,
               _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  const nlm_slice_job prototype{src, dst, mask, weight_map, 0, 0, handle->pool};
  nlm_slice_job jobs[vorn::kSlices];
  vorn::cut_rows(jobs, prototype, src->height / 16 * 4, src->height);
  return vorn::run_jobs(handle->pool, process, jobs);
}

}  // namespace

int process3x3_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map,
                   int row_begin, int row_end) {
  return walk<1>(src, dst, mask, weight_map, row_begin, row_end);
}

int process5x5_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map,
                   int row_begin, int row_end) {
  return walk<2>(src, dst, mask, weight_map, row_begin, row_end);
}

int process7x7_pro(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map,
                   int row_begin, int row_end) {
  return walk<3>(src, dst, mask, weight_map, row_begin, row_end);
}

void* process3x3_process(void* job) {
  const nlm_slice_job* j = static_cast<nlm_slice_job*>(job);
  const double start = getTime();
  process3x3_pro(j->src, j->dst, j->mask, j->weight_map, j->row_begin, j->row_end);
  VORN_LOG_AT(vorn::kLogDebug, 1898, "        process3x3_pro   %.3f  \n", getTime() - start);
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

int process3x3_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  return run_slices(handle, process3x3_process, src, dst, mask, weight_map);
}

int process5x5_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  return run_slices(handle, process5x5_process, src, dst, mask, weight_map);
}

int process7x7_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  return run_slices(handle, process7x7_process, src, dst, mask, weight_map);
}

int Process3x3(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, 1467, "%s++ \n", __func__);
  walk<1>(src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, 1611, "%s-- \n", __func__);
  return 0;
}

int Process5x5(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, 1947, "%s++ \n", __func__);
  walk<2>(src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, 2118, "%s-- \n", __func__);
  return 0;
}

int Process7x7(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, 2576, "%s++ \n", __func__);
  walk<3>(src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, 2760, "%s-- \n", __func__);
  return 0;
}

// The 5x5 walk with distances taken on the guide: every block by the scalar rule, on the caller's
// thread.
int Process5x5_Guided(_tag_uni_image* src, _tag_uni_image* guide, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, 2488, "%s++", __func__);
  const int width = src->width;
  const int paired = width & ~7;
  const ptrdiff_t stride = src->stride[0];
  const ptrdiff_t guide_stride = guide->stride[0];
  int acc[vorn::kAccWords];
  for (int y = 0; y < src->height; y += 4) {
    const mask_row values = mask_row::scaled(mask, width, y);
    const auto filter = [&](int x, int m) {
      unsigned char* cur = src->plane[0] + y * stride + x;
      unsigned char* g = guide->plane[0] + y * guide_stride + x;
      ProcessBlock4x4_5x5_Guided(
          cur, cur - stride, cur + stride, cur - 2 * stride, cur + 2 * stride, src->stride[0], g,
          g - guide_stride, g + guide_stride, g - 2 * guide_stride, g + 2 * guide_stride,
          guide->stride[0], dst->plane[0] + static_cast<ptrdiff_t>(y) * dst->stride[0] + x,
          dst->stride[0], weight_map, acc, m);
    };
    int x = 0;
    for (; x < paired; x += 8) {
      const int left = values.at(x);
      const int right = values.at(x + 4);
      if (left && right) {
        filter(x, left);
        filter(x + 4, right);
      } else if (left || right) {
        filter(x, left | right);
      }
    }
    for (; x < width; x += 4)
      if (const int m = values.at(x)) filter(x, m);
  }
  VORN_LOG_AT(vorn::kLogDebug, 2566, "%s--", __func__);
  return 0;
}

int nlm_denoise_process(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                        _tag_uni_image* mask, int intensity, int radius) {
  int weight_map[vorn::kMapSize];
  MakeWeightMap(weight_map, static_cast<float>(intensity), vorn::kMapSize);
  switch (radius) {
    case 3:
      return process3x3_thread(handle, src, dst, mask, weight_map);
    case 5:
      return process5x5_thread(handle, src, dst, mask, weight_map);
    case 7:
      return process7x7_thread(handle, src, dst, mask, weight_map);
    default:
      copy_uni_image(dst, src);
      return 0;
  }
}

int nlm_denoise_guided_process(_tag_uni_image* src, _tag_uni_image* guide, _tag_uni_image* dst,
                               _tag_uni_image* mask, int intensity, int /*radius*/) {
  int weight_map[vorn::kMapSize];
  MakeWeightMap(weight_map, static_cast<float>(intensity), vorn::kMapSize);
  return Process5x5_Guided(src, guide, dst, mask, weight_map);
}
