#include "ynr/window.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "base/log.h"
#include "runtime/arithmetic.h"
#include "runtime/image.h"
#include "runtime/reciprocal.h"
#include "runtime/stage.h"
#include "ynr/block_processors.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"
#include "ynr/kernels/luma_kernels.h"

namespace {

using vorn::kNeutralMask;
using vorn::wrapping_product;

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
    // A level without columns asks for a row, though for none of its values.
    const int scaled_y = src_width ? wrapping_product(mask->width, y) / src_width : 0;
    const int row = clamped(scaled_y, mask->height);
    return mask_row(mask->plane[0] + static_cast<ptrdiff_t>(row) * mask->stride[0], mask->width,
                    src_width);
  }
  bool constant() const { return !row_; }
  const unsigned char* values() const { return row_; }
  // The mask column of the block at column x, and the value there.
  int column(int x) const {
    return clamped(src_width_ ? wrapping_product(width_, x) / src_width_ : x / 4, width_);
  }
  int in_column(int column) const { return row_ ? row_[column] : kNeutralMask; }
  int at(int x) const { return row_ ? in_column(column(x)) : kNeutralMask; }

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
void walk_blocks(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* map, int y,
                 int x_begin, int x_end) {
  const int width = src->width;
  const int paired = std::min(width & ~7, x_end);
  const mask_row values = mask_row_for<Rings>(mask, width, y);
  unsigned char* in = src->plane[0] + static_cast<ptrdiff_t>(y) * src->stride[0];
  unsigned char* out = dst->plane[0] + static_cast<ptrdiff_t>(y) * dst->stride[0];
  int x = x_begin;
  for (; x < paired; x += 8) {
    const int left = values.at(x);
    const int right = values.at(x + 4);
    if (left && right)
      filter_pair<Rings>(in + x, src->stride[0], out + x, dst->stride[0], map, left, right);
    else if (left || right)
      filter_block<Rings>(in + x, src->stride[0], out + x, dst->stride[0], map, left | right);
  }
  for (; x < std::min(width, x_end); x += 4)
    if (const int m = values.at(x))
      filter_block<Rings>(in + x, src->stride[0], out + x, dst->stride[0], map, m);
}

// The same over runs of 16 blocks. What a block does is decided once per mask row: the rule's
// constants per block, and three bit sets over the run's blocks.
struct run_plan {
  int blocks, paired;                      // blocks inside the level; of these, blocks of pairs
  int columns[vorn::kRunBlocks];           // mask column of each block
  bool in_order;                           // they follow each other, as on the full-size level
  unsigned char values[vorn::kRunBlocks];  // mask values that the rest was made for
  vorn::mask_rules rules;
  uint32_t written;  // blocks that are filtered at all
  uint32_t scalar;   // blocks under the scalar rule
  bool by_blocks;    // a mask value that the rules do not cover: never in a made mask
};

constexpr uint32_t kWholeRun = 0xFFFF;

// Decides what the run's blocks do, from plan->values.
void plan_run(run_plan* plan, bool short_rules) {
  plan->written = plan->scalar = 0;
  plan->by_blocks = false;
  unsigned char values[vorn::kRunBlocks];
  for (int i = 0; i < vorn::kRunBlocks; ++i) {
    unsigned char m = i < plan->blocks ? plan->values[i] : 0;
    bool scalar = i >= plan->paired;
    if (!scalar) {
      const unsigned char other = plan->values[i ^ 1];
      if (m == 0 || other == 0) {
        scalar = true;
        m = i & 1 ? 0 : m | other;
      }
    }
    plan->by_blocks |= m == 1;
    plan->written |= static_cast<uint32_t>(m != 0) << i;
    plan->scalar |= static_cast<uint32_t>(scalar) << i;
    // Blocks that stay as they are take any rule.
    values[i] = m > 1 ? m : static_cast<unsigned char>(kNeutralMask);
  }
  vorn::make_mask_rules(&plan->rules, values, short_rules);
}

// Whether any of a run's mask values is 0 or 1: its upper seven bits are all clear.
bool any_below_two(const unsigned char (&values)[vorn::kRunBlocks]) {
  constexpr uint64_t kUpper = 0xFEFEFEFEFEFEFEFE, kOnes = 0x0101010101010101;
  uint64_t half[2];
  std::memcpy(half, values, sizeof half);
  uint64_t clear = 0;
  for (uint64_t h : half) clear |= ((h & kUpper) - kOnes) & ~h & (kOnes << 7);
  return clear != 0;
}

// Runs go down the rows of a band of columns. The rows that the window reaches from the block row
// under way stand in a buffer of its own, with the pitch that the kernels are built for: a row is
// fetched once, whole cache lines in order, and what a run reads was written a while ago.
constexpr int kSteps = 3;  // block rows until the rows that stay move back to the buffer's start
constexpr int kBufferRows = vorn::kTileRows + 4 * (kSteps - 1);

template <int Rings>
class run_walk {
 public:
  run_walk(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* map)
      : src_(src),
        dst_(dst),
        mask_(mask),
        map_(map),
        kernels_(vorn::luma_kernels_of(vorn::active_kernel_form())) {
    by_table_ = vorn::make_weight_table(&table_, map);
    std::memset(rows_, 0, sizeof rows_);
  }

  void walk(int row_begin, int row_end) {
    if (!by_table_) {
      for (int y = row_begin; y < row_end; y += 4)
        walk_blocks<Rings>(src_, dst_, mask_, map_, y, 0, src_->width);
      return;
    }
    for (int x = 0; x < src_->width; x += vorn::kBandRuns * vorn::kRunPixels)
      walk_band(x, row_begin, row_end);
  }

 private:
  void walk_band(int band_x, int row_begin, int row_end) {
    const int runs =
        std::min(vorn::kBandRuns, (src_->width - band_x + vorn::kRunPixels - 1) / vorn::kRunPixels);
    run_plan plans[vorn::kBandRuns];
    int top = 0;  // buffer row of the first row that the window reaches
    for (int y = row_begin; y < row_end; y += 4) {
      const mask_row row = mask_row_for<Rings>(mask_, src_->width, y);
      // All plans first: the kernels read them in wide pieces, which wait for stores just made.
      for (int i = 0; i < runs; ++i) {
        if (y == row_begin)
          start_plan(&plans[i], row, band_x + i * vorn::kRunPixels);
        else if (Rings == 2 && mask_)
          update_plan(&plans[i], row);
      }
      top = y == row_begin ? fetch_first(band_x, y) : fetch_next(top, band_x, y);
      const unsigned char* tile = rows_ + (top + Rings) * vorn::kTilePitch + vorn::kTileMargin;
      for (int i = 0; i < runs;) {
        const int x = band_x + i * vorn::kRunPixels;
        const int whole = filter_whole(plans + i, runs - i, tile + i * vorn::kRunPixels, x, y);
        i += whole;
        if (whole) continue;
        if (plans[i].by_blocks)
          walk_blocks<Rings>(src_, dst_, mask_, map_, y, x, x + vorn::kRunPixels);
        else if (plans[i].written)
          filter_partly(plans[i], tile + i * vorn::kRunPixels, x, y);
        ++i;
      }
    }
  }

  void start_plan(run_plan* plan, const mask_row& row, int x) {
    plan->blocks = std::min(vorn::kRunBlocks, (src_->width - x + 3) / 4);
    plan->paired = std::min(vorn::kRunBlocks, ((src_->width & ~7) - x) / 4);
    plan->in_order = !row.constant();
    for (int i = 0; i < vorn::kRunBlocks; ++i) {
      plan->columns[i] = row.constant() ? 0 : row.column(x + 4 * i);
      plan->in_order &= plan->columns[i] == plan->columns[0] + i;
      plan->values[i] = static_cast<unsigned char>(row.in_column(plan->columns[i]));
    }
    plan_run(plan, kernels_.short_rules);
  }

  void update_plan(run_plan* plan, const mask_row& row) {
    unsigned char values[vorn::kRunBlocks];
    if (plan->in_order) {
      std::memcpy(values, row.values() + plan->columns[0], sizeof values);
    } else {
      for (int i = 0; i < vorn::kRunBlocks; ++i)
        values[i] = static_cast<unsigned char>(row.in_column(plan->columns[i]));
    }
    if (std::memcmp(values, plan->values, sizeof values) == 0) return;
    std::memcpy(plan->values, values, sizeof values);
    if (plan->written == kWholeRun && plan->scalar == 0 && !plan->by_blocks &&
        !any_below_two(values))
      vorn::make_mask_rules(&plan->rules, values, kernels_.short_rules);
    else
      plan_run(plan, kernels_.short_rules);
  }

  // Fetches level rows y .. y + count - 1 of the band to buffer rows from `row` on: its whole
  // blocks and as many columns around them as the window reaches, nothing beyond that.
  void fetch(int row, int band_x, int y, int count) {
    const int pixels =
        std::min(vorn::kBandRuns * vorn::kRunPixels, (src_->width - band_x + 3) & ~3);
    const ptrdiff_t stride = src_->stride[0];
    const unsigned char* from = src_->plane[0] + y * stride + band_x - Rings;
    unsigned char* to = rows_ + row * vorn::kTilePitch + vorn::kTileMargin - Rings;
    for (int r = 0; r < count; ++r, from += stride, to += vorn::kTilePitch)
      kernels_.fetch(to, from, pixels + 2 * Rings);
  }

  int fetch_first(int band_x, int y) {
    fetch(0, band_x, y - Rings, 4 + 2 * Rings);
    return 0;
  }

  // The four rows that the window reaches from block row y and did not from the one before.
  int fetch_next(int top, int band_x, int y) {
    constexpr int kKept = 2 * Rings;
    top += 4;
    if (top + 4 + kKept > kBufferRows) {
      std::memmove(rows_, rows_ + top * vorn::kTilePitch, kKept * vorn::kTilePitch);
      top = 0;
    }
    fetch(top + kKept, band_x, y + Rings, 4);
    return top;
  }

  // Filters the runs from the first plan on that are written whole. Returns how many these are.
  int filter_whole(const run_plan* plans, int count, const unsigned char* tile, int x, int y) {
    vorn::run_rules rules[vorn::kBandRuns];
    int runs = 0;
    for (; runs < count && plans[runs].written == kWholeRun && !plans[runs].by_blocks; ++runs)
      rules[runs] = {&plans[runs].rules, &table_, plans[runs].scalar};
    if (runs) {
      const bool first = carried_.x != x || carried_.y != y || carried_.runs != runs;
      const ptrdiff_t column = (tile - rows_) % vorn::kTilePitch;
      kernels_.filter[Rings - 1](tile, rules, runs, written_at(x, y), dst_->stride[0],
                                 carry_ + column, first);
      carried_ = {x, y + 4, runs};
    }
    return runs;
  }

  // Filters a run of which some blocks stay as they are or lie outside the level.
  void filter_partly(const run_plan& plan, const unsigned char* tile, int x, int y) {
    const vorn::run_rules rules = {&plan.rules, &table_, plan.scalar};
    unsigned char pixels[4 * vorn::kRunPixels];
    const ptrdiff_t column = (tile - rows_) % vorn::kTilePitch;
    kernels_.filter[Rings - 1](tile, &rules, 1, pixels, vorn::kRunPixels, carry_ + column, true);
    unsigned char* out = written_at(x, y);
    for (int i = 0; i < vorn::kRunBlocks; ++i) {
      if (!(plan.written >> i & 1)) continue;
      for (int r = 0; r < 4; ++r)
        std::memcpy(out + static_cast<ptrdiff_t>(r) * dst_->stride[0] + 4 * i,
                    pixels + r * vorn::kRunPixels + 4 * i, 4);
    }
  }

  unsigned char* written_at(int x, int y) {
    return dst_->plane[0] + static_cast<ptrdiff_t>(y) * dst_->stride[0] + x;
  }

  _tag_uni_image* src_;
  _tag_uni_image* dst_;
  _tag_uni_image* mask_;
  int* map_;
  const vorn::luma_kernels& kernels_;
  vorn::weight_table table_;
  bool by_table_;  // the weight map fits one
  alignas(64) unsigned char rows_[kBufferRows * vorn::kTilePitch];
  // What the last call for whole runs left for the block row at y: see run_filter.
  struct {
    int x, y, runs;
  } carried_ = {-1, -1, 0};
  alignas(64) unsigned char carry_[vorn::kCarryRows * vorn::kTilePitch];
};

template <int Rings>
int walk(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* map, int row_begin,
         int row_end) {
  if (row_begin < row_end) run_walk<Rings>(src, dst, mask, map).walk(row_begin, row_end);
  return 0;
}

// What a job of the 3x3 window logs, under the name of its body.
void log_process3x3(double start) {
  VORN_LOG_AT(vorn::kLogDebug, "process3x3_process", 1898, "        process3x3_pro   %.3f  \n",
              getTime() - start);
}

constexpr int kChunkMultiple = 16;  // rows: of whole blocks, so that plans pay

// A whole level on the pool. Block rows do not depend on each other, so any cut gives the same.
template <int Rings>
int walk_shared(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                _tag_uni_image* mask, int* map) {
  vorn::row_queue rows(src->height, kChunkMultiple);
  return vorn::run_shared(handle->pool, [&] {
    const double start = getTime();
    run_walk<Rings> run(src, dst, mask, map);
    for (int begin, end; rows.next(&begin, &end);) run.walk(begin, end);
    if (Rings == 1) log_process3x3(start);
  });
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
  log_process3x3(start);
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
  return walk_shared<1>(handle, src, dst, mask, weight_map);
}

int process5x5_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  return walk_shared<2>(handle, src, dst, mask, weight_map);
}

int process7x7_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  return walk_shared<3>(handle, src, dst, mask, weight_map);
}

int Process3x3(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, __func__, 1467, "%s++ \n", __func__);
  walk<1>(src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, __func__, 1611, "%s-- \n", __func__);
  return 0;
}

int Process5x5(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, __func__, 1947, "%s++ \n", __func__);
  walk<2>(src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2118, "%s-- \n", __func__);
  return 0;
}

int Process7x7(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2576, "%s++ \n", __func__);
  walk<3>(src, dst, mask, weight_map, 0, src->height);
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2760, "%s-- \n", __func__);
  return 0;
}

// The 5x5 walk with distances taken on the guide: every block by the scalar rule, on the caller's
// thread.
int Process5x5_Guided(_tag_uni_image* src, _tag_uni_image* guide, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2488, "%s++", __func__);
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
  VORN_LOG_AT(vorn::kLogDebug, __func__, 2566, "%s--", __func__);
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
