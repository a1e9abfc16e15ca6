// What the blocks of a run do: decided once per mask row, the rule's constants per block and bit
// sets over the run's blocks.
#pragma once

#include <cstdint>

#include "ynr/kernels/luma_kernels.h"
#include "ynr/mask_row.h"

namespace vorn {

constexpr uint32_t kWholeRun = 0xFFFF;

struct run_plan {
  int blocks, paired;                // blocks inside the level; of these, blocks of pairs
  int columns[kRunBlocks];           // mask column of each block
  bool in_order;                     // they follow each other, as on the full-size level
  unsigned char values[kRunBlocks];  // mask values that the rest was made for
  mask_rules rules;
  uint32_t written;  // blocks that are filtered at all
  uint32_t scalar;   // blocks under the scalar rule
  bool by_blocks;    // a mask value that the rules do not cover: never in a made mask
};

// The plan of the run at column x of a level of `width` columns, under its first mask row.
// short_rules: see luma_kernels.
void start_plan(run_plan* plan, const mask_row& row, int width, int x, bool short_rules);

// The same run under another mask row.
void update_plan(run_plan* plan, const mask_row& row, bool short_rules);

}  // namespace vorn
