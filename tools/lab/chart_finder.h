// Finds the program's own test chart in a picture by what the picture shows.
#pragma once

#include "tools/picture/frame.h"

namespace vorn::tool {

// The chart without noise when f is a whole chart of f's size, noisy or denoised; else an empty
// frame (width 0), also where the chart is too small for the figures of its dead leaves. A picture
// whose top is no grey staircase costs next to nothing, another one the drawing of a chart.
frame find_chart(const frame& f);

}  // namespace vorn::tool
