// The inside of the luma filter, made visible with the library's own exported operations: pyramid
// levels, the position mask, and what one block takes from its neighbours.
#pragma once

#include "tools/picture/frame.h"
#include "tools/tuning/tuning_set.h"
#include "tools/workbench/view.h"

namespace vorn::tool {

// f's luma halved `level` times as the filter halves it; chroma is neutral.
frame luma_level(const frame& f, int level);

// The tuning under which a frame that is level `level` of a picture comes out as the filter's own
// work on that level: levels renumbered, chroma off. Exact for a flat mask (param0 = 64); others
// are made for the level's size instead of the frame's.
tuning level_tuning(const tuning& values, int level);

// The same tuning with this level's filter alone, and with all but this level's.
tuning only_level(const tuning& values, int level);
tuning without_level(const tuning& values, int level);

// The position mask of f as a picture: a block's factor of strength, 1 black to 4 white.
frame mask_picture(const frame& f, const tuning& values);

// Distances and weights of the block that holds x, y, on the frame that the level's filter gets.
block_weights weigh_block(const frame& f, const tuning& values, int level, int x, int y);

}  // namespace vorn::tool
