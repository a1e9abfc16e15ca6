// Where the mask values of one row of 4x4 blocks stand.
#pragma once

#include <algorithm>
#include <cstddef>

#include "runtime/arithmetic.h"
#include "vorn_ycnr.h"
#include "ynr/block_rules.h"

namespace vorn {

// Without a mask every value is neutral.
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
    const int row = last_at_most(scaled_y, mask->height);
    return mask_row(mask->plane[0] + static_cast<ptrdiff_t>(row) * mask->stride[0], mask->width,
                    src_width);
  }
  bool constant() const { return !row_; }
  const unsigned char* values() const { return row_; }
  // The mask column of the block at column x, and the value there.
  int column(int x) const {
    return last_at_most(src_width_ ? wrapping_product(width_, x) / src_width_ : x / 4, width_);
  }
  int in_column(int column) const { return row_ ? row_[column] : kNeutralMask; }
  int at(int x) const { return row_ ? in_column(column(x)) : kNeutralMask; }

 private:
  mask_row(const unsigned char* row, int width, int src_width)
      : row_(row), width_(width), src_width_(src_width) {}
  static int last_at_most(int i, int end) { return std::max(0, std::min(i, end - 1)); }
  const unsigned char* row_;
  int width_, src_width_;
};

// The values of the block row at y under a window of `rings` rings.
inline mask_row mask_row_for(int rings, const _tag_uni_image* mask, int src_width, int y) {
  return rings == 2 ? mask_row::scaled(mask, src_width, y) : mask_row::first(mask);
}

// The blocks of one row in columns x_begin .. x_end - 1 of a level of `width` columns: pairs from
// the left up to a multiple of 8, pair(x, left, right) where both mask values are nonzero; behind
// them (and of a pair with one nonzero value) single(x, value). Of such a pair the left block is
// filtered with that value, whichever it is, and the right block is left alone: kept on purpose
// (WindowWalk.HalfMaskedPairFiltersTheLeftBlock).
template <typename Pair, typename Single>
void for_blocks(const mask_row& values, int width, int x_begin, int x_end, const Pair& pair,
                const Single& single) {
  int x = x_begin;
  for (const int paired = std::min(width & ~7, x_end); x < paired; x += 8) {
    const int left = values.at(x), right = values.at(x + 4);
    if (left && right)
      pair(x, left, right);
    else if (left || right)
      single(x, left | right);
  }
  for (; x < std::min(width, x_end); x += 4)
    if (const int m = values.at(x)) single(x, m);
}

}  // namespace vorn
