// Variance of the noise over brightness, straight from the samples: what a sensor is fitted to.
//
// Frames are cut into blocks of 32x32 pixels (16x16 of chroma). A block's noise is what it differs
// from its best plane by: of one frame of an evenly lit surface, or of the difference of two frames
// of a still scene over the square root of 2. Blocks count by their mean luma in classes of 8 grey
// levels; left out are blocks that touch black or white, that are not nearly grey (coloured areas
// have other noise), that hold a strong edge (burst), or whose variance is beyond twice their
// class's median.
#pragma once

#include <vector>

#include "tools/picture/frame.h"

namespace vorn::tool {

struct noise_point {
  double brightness = 0;         // mean luma, 0..255
  double y = 0, u = 0, v = 0;    // variances, grey levels squared, rounding (1/12) taken off
  double lag_y = 0, lag_uv = 0;  // covariance of neighbours, mean of both directions, and of U, V
  int blocks = 0;
  // Standard error of y and of (u + v) / 2 over themselves, from the blocks' scatter.
  double error_y = 0, error_uv = 0;
};

struct noise_points {
  std::vector<noise_point> points;                       // from dark to bright
  int blocks = 0;                                        // in the frames
  int clipped = 0, coloured = 0, edged = 0, uneven = 0;  // of these, left out
  // Deviation of the calmest and of the wildest tenth of luma blocks around their class's median,
  // over that median: noise alone stays within a few percent.
  double calm = 1, wild = 1;
};

// Frames of one gain. burst: of one size and scene, each compared with the next.
noise_points points_of(const std::vector<frame>& frames, bool burst);

}  // namespace vorn::tool
