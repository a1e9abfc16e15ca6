// How far one picture is displaced against another of the same scene, from luma.
//
// Coarse to fine: at every level of a pyramid of halved, mean-free planes the displacement with the
// least mean squared difference around twice the one before; at full size, on planes smoothed by a
// 5x5 binomial window, the rest follows from the gradients (least squares, three steps). Meant for
// camera shake: displacements up to a sixteenth of the shorter side, no rotation.
#pragma once

#include "tools/picture/frame.h"

namespace vorn::tool {

struct displacement {
  double x = 0, y = 0;  // pixels: content at (a, b) of the reference lies at (a + x, b + y) here
  // Standard error of either, pixels; large where the scene has no texture to tell it by.
  double error = 0;
  double residual = 0;  // root mean square of what still differs, grey levels of smoothed luma
};

// Frames of one size, 32x32 at least; smaller ones give 0 with an error of 1e9.
displacement measure_displacement(const frame& reference, const frame& moved);

// Finest detail of luma: the root mean square of its second difference in both directions, scaled
// so that white noise gives its standard deviation. Of two pictures of one scene the noisier has
// more.
double finest_detail(const frame& f);

}  // namespace vorn::tool
