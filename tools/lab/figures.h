// Figures of a part of a picture: a flat patch, a slanted edge, a textured patch. Used by the
// workbench and by the commands that write them down.
#pragma once

#include <vector>

#include "tools/lab/metrics.h"

namespace vorn::tool {

struct rectangle {
  int x = 0, y = 0, width = 0, height = 0;
};

// Mean and standard deviation of a channel inside a rectangle of it.
struct patch_figures {
  double mean = 0, deviation = 0;
};
patch_figures measure_patch(const plane_view& plane);

// The part of a plane inside r, which is cut to the plane.
plane_view part_of(const plane_view& plane, const rectangle& r);

// Noise power spectrum of a patch: the best plane taken off, tiles of 32x32 samples under a Hann
// window, averaged over tiles and over directions. power[i] is at i / 32 cycles per sample
// (0..0.5, 17 values) in grey levels squared; white noise of deviation s is flat at s^2. Empty for
// patches below 32x32.
std::vector<double> noise_spectrum(const plane_view& patch);

// Share of texture at each frequency that a picture keeps of its clean version: real part of the
// cross spectrum over the clean power, tiles as above; noise that is left does not count as
// texture. 17 values; -1 where the clean version holds nothing. Empty below 32x32.
std::vector<double> texture_transfer(const plane_view& patch, const plane_view& clean);

// A slanted edge. transfer[i] is the contrast at i / 64 cycles per sample, i = 0..32, 1 at 0.
struct edge_figures {
  bool found = false;          // false: no straight edge through the patch
  double angle = 0;            // degrees off the vertical or horizontal
  double height = 0;           // grey levels between the two sides
  double half = 0, tenth = 0;  // cycles per sample where the contrast falls to 0.5 and to 0.1
  std::vector<double> transfer;
};
// As ISO 12233 does it: the edge's place in every row by the centroid of the difference, a straight
// line through these places, samples gathered in quarter-sample bins of their distance to it, the
// difference of that profile under a Hamming window, the magnitude of its Fourier transform.
edge_figures measure_edge(const plane_view& patch);

}  // namespace vorn::tool
