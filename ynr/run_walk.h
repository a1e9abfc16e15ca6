// Walks the 4x4 blocks of one level under a window of one, two or three rings. See window.h for
// what a block does.
#pragma once

#include "runtime/stage.h"
#include "vorn_ycnr.h"
#include "ynr/kernels/luma_kernels.h"

namespace vorn {

// One level under way: what its blocks are read from and written to, by which rules.
struct window_pass {
  _tag_uni_image* src;
  _tag_uni_image* dst;
  _tag_uni_image* mask;  // or null
  int* map;              // weights, kMapSize entries
  int rings;             // 1, 2 or 3
  // The map's table, where it is at hand. walk_rows makes one otherwise; walk_queue, which several
  // workers call for one level, then goes block by block.
  const weight_table* table = nullptr;
};

// Block rows row_begin, row_begin + 4, ... below row_end.
void walk_rows(const window_pass& pass, int row_begin, int row_end);

// The same for the rows that a queue hands out, until none are left.
void walk_queue(const window_pass& pass, row_queue* rows);

}  // namespace vorn
