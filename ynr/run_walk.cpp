#include "ynr/run_walk.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "ynr/block_processors.h"
#include "ynr/block_rules.h"
#include "ynr/kernels/luma_kernels.h"
#include "ynr/mask_row.h"
#include "ynr/run_plan.h"

namespace vorn {
namespace {

template <int Rings>
void filter_block(unsigned char* cur, ptrdiff_t stride, unsigned char* out, int out_stride,
                  int* map, int m) {
  int acc[kAccWords];
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
  int left[kAccWords], right[kAccWords];
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

// One block row, block by block: a pair by the vector rule, everything else by the scalar one.
template <int Rings>
void walk_blocks(_tag_uni_image* src, _tag_uni_image* dst, _tag_uni_image* mask, int* map, int y,
                 int x_begin, int x_end) {
  unsigned char* in = src->plane[0] + static_cast<ptrdiff_t>(y) * src->stride[0];
  unsigned char* out = dst->plane[0] + static_cast<ptrdiff_t>(y) * dst->stride[0];
  for_blocks(
      mask_row_for(Rings, mask, src->width, y), src->width, x_begin, x_end,
      [=](int x, int left, int right) {
        filter_pair<Rings>(in + x, src->stride[0], out + x, dst->stride[0], map, left, right);
      },
      [=](int x, int m) {
        filter_block<Rings>(in + x, src->stride[0], out + x, dst->stride[0], map, m);
      });
}

// The same over runs of 16 blocks, which go down the rows of a band of columns. The rows that the
// window reaches from the block row under way stand in a buffer of its own, with the pitch that the
// kernels are built for: a row is fetched once, whole cache lines in order, and what a run reads
// was written a while ago.
constexpr int kSteps = 3;  // block rows until the rows that stay move back to the buffer's start
constexpr int kBufferRows = kTileRows + 4 * (kSteps - 1);

template <int Rings>
class run_walk {
 public:
  explicit run_walk(const window_pass& pass)
      : src_(pass.src),
        dst_(pass.dst),
        mask_(pass.mask),
        map_(pass.map),
        kernels_(luma_kernels_of(active_kernel_form())),
        table_(pass.table) {
    const int runs = std::min(kBandRuns, (src_->width + kRunPixels - 1) / kRunPixels);
    used_ = static_cast<size_t>(runs * kRunPixels + 2 * kTileMargin);
    for (int r = 0; r < kBufferRows; ++r) std::memset(rows_ + r * kTilePitch, 0, used_);
  }

  void walk(int row_begin, int row_end) {
    if (!table_) {
      for (int y = row_begin; y < row_end; y += 4)
        walk_blocks<Rings>(src_, dst_, mask_, map_, y, 0, src_->width);
      return;
    }
    for (int x = 0; x < src_->width; x += kBandRuns * kRunPixels) walk_band(x, row_begin, row_end);
  }

 private:
  void walk_band(int band_x, int row_begin, int row_end) {
    const int runs = std::min(kBandRuns, (src_->width - band_x + kRunPixels - 1) / kRunPixels);
    int top = 0;  // buffer row of the first row that the window reaches
    if (planned_x_ != band_x) whole_ = part_ = kNone;  // the columns of carry_ were another band's
    for (int y = row_begin; y < row_end; y += 4) {
      const mask_row row = mask_row_for(Rings, mask_, src_->width, y);
      // All plans first: the kernels read them in wide pieces, which wait for stores just made.
      for (int i = 0; i < runs; ++i) {
        if (planned_x_ != band_x)
          start_plan(&plans_[i], row, src_->width, band_x + i * kRunPixels, kernels_.short_rules);
        else if (Rings == 2 && mask_)
          update_plan(&plans_[i], row, kernels_.short_rules);
      }
      planned_x_ = band_x;
      top = y == row_begin ? fetch_first(band_x, y) : fetch_next(top, band_x, y);
      const unsigned char* tile = rows_ + (top + Rings) * kTilePitch + kTileMargin;
      for (int i = 0; i < runs;) {
        const int x = band_x + i * kRunPixels;
        const int whole = filter_whole(plans_ + i, runs - i, tile + i * kRunPixels, x, y);
        i += whole;
        if (whole) continue;
        if (plans_[i].by_blocks)
          walk_blocks<Rings>(src_, dst_, mask_, map_, y, x, x + kRunPixels);
        else if (plans_[i].written)
          filter_partly(plans_[i], tile + i * kRunPixels, x, y);
        ++i;
      }
    }
  }

  // Fetches level rows y .. y + count - 1 of the band to buffer rows from `row` on: its whole
  // blocks and as many columns around them as the window reaches, nothing beyond that.
  void fetch(int row, int band_x, int y, int count) {
    const int pixels = std::min(kBandRuns * kRunPixels, (src_->width - band_x + 3) & ~3);
    const ptrdiff_t stride = src_->stride[0];
    const unsigned char* from = src_->plane[0] + y * stride + band_x - Rings;
    unsigned char* to = rows_ + row * kTilePitch + kTileMargin - Rings;
    for (int r = 0; r < count; ++r, from += stride, to += kTilePitch)
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
      for (int r = 0; r < kKept; ++r)
        std::memcpy(rows_ + r * kTilePitch, rows_ + (top + r) * kTilePitch, used_);
      top = 0;
    }
    fetch(top + kKept, band_x, y + Rings, 4);
    return top;
  }

  // Filters the runs from the first plan on that are written whole. Returns how many these are.
  int filter_whole(const run_plan* plans, int count, const unsigned char* tile, int x, int y) {
    run_rules rules[kBandRuns];
    int runs = 0;
    for (; runs < count && plans[runs].written == kWholeRun && !plans[runs].by_blocks; ++runs)
      rules[runs] = {&plans[runs].rules, table_, plans[runs].scalar};
    if (runs)
      kernels_.filter[Rings - 1](tile, rules, runs, written_at(x, y), dst_->stride[0],
                                 carry_of(tile), moves_on(&whole_, {x, y, runs}));
    return runs;
  }

  // Filters a run of which some blocks stay as they are or lie outside the level.
  void filter_partly(const run_plan& plan, const unsigned char* tile, int x, int y) {
    const run_rules rules = {&plan.rules, table_, plan.scalar};
    unsigned char pixels[4 * kRunPixels];
    kernels_.filter[Rings - 1](tile, &rules, 1, pixels, kRunPixels, carry_of(tile),
                               moves_on(&part_, {x, y, 1}));
    unsigned char* out = written_at(x, y);
    for (int i = 0, next; i < kRunBlocks; i = next) {  // neighbours at once
      const bool written = plan.written >> i & 1;
      for (next = i + 1; next < kRunBlocks && (plan.written >> next & 1) == written;) ++next;
      for (int r = 0; written && r < 4; ++r)
        std::memcpy(out + static_cast<ptrdiff_t>(r) * dst_->stride[0] + 4 * i,
                    pixels + r * kRunPixels + 4 * i, static_cast<size_t>(4 * (next - i)));
    }
  }

  unsigned char* carry_of(const unsigned char* tile) {
    return carry_ + (tile - rows_) % kTilePitch;
  }

  // Runs from column x on in the block row at y.
  struct place {
    int x, y, runs;
  };
  static constexpr place kNone = {-1, -1, 0};

  // Goes on from what a call left to the runs at `to`. Returns whether it left nothing for these.
  static bool moves_on(place* left_for, const place& to) {
    const bool first = left_for->x != to.x || left_for->y != to.y || left_for->runs != to.runs;
    *left_for = {to.x, to.y + 4, to.runs};
    return first;
  }

  unsigned char* written_at(int x, int y) {
    return dst_->plane[0] + static_cast<ptrdiff_t>(y) * dst_->stride[0] + x;
  }

  _tag_uni_image* src_;
  _tag_uni_image* dst_;
  _tag_uni_image* mask_;
  int* map_;
  const luma_kernels& kernels_;
  const weight_table* table_;  // null: the weight map fits none
  size_t used_;                // bytes of a buffer row that the level's bands reach
  int planned_x_ = -1;         // band that the plans are for: they outlive a queue's chunks
  run_plan plans_[kBandRuns];
  alignas(64) unsigned char rows_[kBufferRows * kTilePitch];
  // What the last call for whole runs, and that for a part of one, left: see run_filter.
  place whole_ = kNone, part_ = kNone;
  alignas(64) unsigned char carry_[kCarryRows * kTilePitch];
};

// Calls rows(walk) with the walk of the pass's window.
template <typename Rows>
void with_walk(const window_pass& pass, const Rows& rows) {
  if (pass.rings == 1) {
    run_walk<1> walk(pass);
    rows(walk);
  } else if (pass.rings == 2) {
    run_walk<2> walk(pass);
    rows(walk);
  } else {
    run_walk<3> walk(pass);
    rows(walk);
  }
}

}  // namespace

void walk_rows(const window_pass& pass, int row_begin, int row_end) {
  if (row_begin >= row_end) return;
  weight_table table;
  window_pass own = pass;
  if (!own.table && make_weight_table(&table, own.map)) own.table = &table;
  with_walk(own, [=](auto& walk) { walk.walk(row_begin, row_end); });
}

void walk_queue(const window_pass& pass, row_queue* rows) {
  int begin, end;
  if (!rows->next(&begin, &end)) return;  // a walk clears its rows first
  with_walk(pass, [&](auto& walk) {
    do walk.walk(begin, end);
    while (rows->next(&begin, &end));
  });
}

}  // namespace vorn
