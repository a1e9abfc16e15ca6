// The test chart: a synthetic picture that holds what noise reduction gets wrong.
//
//   +------------------------------------------+
//   | grey patches, 12 steps from black to white|  flat: mean shift, noise against brightness
//   | 12 saturated colours and skin tones       |  flat: colour shift, bleeding at the joints
//   +-------------+--------------+-------------+
//   | grey ramp   | slanted edges| dead leaves |  ramps: banding; edges: sharpness, halos;
//   | colour ramp | three con-   | coloured    |  dead leaves (discs of all sizes, one over
//   | frequency   | trasts and   +-------------+  the other): texture as nature has it
//   | sweep       | two colours  | dead leaves |
//   |             |              | faint, grey |
//   +-------------+--------------+-------------+
//
// Drawn with +, -, *, / and square roots only, so every machine draws the same bytes.
#pragma once

#include <vector>

#include "tools/picture/frame.h"

namespace vorn::tool {

// The chart without noise. Patches and tiles scale with the size, texture does not.
// Width and height from 64.
frame draw_chart(int width, int height);

// A rectangle of one colour, some pixels inside its patch; corners are even.
struct chart_patch {
  int x, y, width, height;
};
// The flat patches of a chart of this size: 12 grey ones from dark to bright, then 12 colours.
std::vector<chart_patch> chart_patches(int width, int height);

// Parts that the figures of a patch are made for: flat greys from dark to bright, one side of each
// grey slanted square (of the contrasts that noise leaves visible), coloured and faint dead leaves.
// Parts that a chart of this size has too small for their figures are left out.
enum class chart_kind { grey, edge, leaves };
struct chart_region {
  chart_kind kind;
  chart_patch place;
};
std::vector<chart_region> chart_regions(int width, int height);

}  // namespace vorn::tool
