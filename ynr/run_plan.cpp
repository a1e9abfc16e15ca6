#include "ynr/run_plan.h"

#include <algorithm>
#include <cstring>

#include "ynr/block_rules.h"

namespace vorn {
namespace {

// Decides what the run's blocks do, from plan->values.
void plan_run(run_plan* plan, bool short_rules) {
  plan->written = plan->scalar = 0;
  plan->by_blocks = false;
  unsigned char values[kRunBlocks];
  for (int i = 0; i < kRunBlocks; ++i) {
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
    // Blocks that stay as they are take any rule: the vector one costs nothing more.
    plan->scalar |= static_cast<uint32_t>(scalar && m != 0) << i;
    values[i] = m > 1 ? m : static_cast<unsigned char>(kNeutralMask);
  }
  make_mask_rules(&plan->rules, values, short_rules);
}

// Whether any of a run's mask values is 0 or 1: its upper seven bits are all clear.
bool any_below_two(const unsigned char (&values)[kRunBlocks]) {
  constexpr uint64_t kUpper = 0xFEFEFEFEFEFEFEFE, kOnes = 0x0101010101010101;
  uint64_t half[2];
  std::memcpy(half, values, sizeof half);
  uint64_t clear = 0;
  for (uint64_t h : half) clear |= ((h & kUpper) - kOnes) & ~h & (kOnes << 7);
  return clear != 0;
}

}  // namespace

void start_plan(run_plan* plan, const mask_row& row, int width, int x, bool short_rules) {
  plan->blocks = std::min(kRunBlocks, (width - x + 3) / 4);
  plan->paired = std::min(kRunBlocks, ((width & ~7) - x) / 4);
  plan->in_order = !row.constant();
  for (int i = 0; i < kRunBlocks; ++i) {
    plan->columns[i] = row.constant() ? 0 : row.column(x + 4 * i);
    plan->in_order &= plan->columns[i] == plan->columns[0] + i;
    plan->values[i] = static_cast<unsigned char>(row.in_column(plan->columns[i]));
  }
  plan_run(plan, short_rules);
}

void update_plan(run_plan* plan, const mask_row& row, bool short_rules) {
  unsigned char values[kRunBlocks];
  if (plan->in_order) {
    std::memcpy(values, row.values() + plan->columns[0], sizeof values);
  } else {
    for (int i = 0; i < kRunBlocks; ++i)
      values[i] = static_cast<unsigned char>(row.in_column(plan->columns[i]));
  }
  if (std::memcmp(values, plan->values, sizeof values) == 0) return;
  std::memcpy(plan->values, values, sizeof values);
  if (plan->written == kWholeRun && plan->scalar == 0 && !plan->by_blocks && !any_below_two(values))
    make_mask_rules(&plan->rules, values, short_rules);
  else
    plan_run(plan, short_rules);
}

}  // namespace vorn
