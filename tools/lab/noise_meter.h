// Measures the noise of pictures without a clean reference, as a curve over brightness.
//
// A picture is cut into blocks of 8x8 samples, luma and chroma planes each at their own resolution;
// a block's noise is the standard deviation that is left after its best-fitting plane is taken off.
// How the blocks that show noise, and not the scene, are found:
//   any picture  within each brightness class the blocks with the calmest surroundings count: the
//                four neighbours' own scatter and their differences in brightness rank the block,
//                so the choice never looks at the samples that are measured and adds no bias
//   flat frames  every block counts
//   burst        frames of one still scene: the difference of two frames holds noise alone, every
//                block counts; what both frames share (fixed pattern) is not seen
// The figure of a class is the median over its blocks. Blocks that touch black or white are left
// out: their noise is clipped.
#pragma once

#include <vector>

#include "tools/picture/frame.h"
#include "tools/lab/noise_model.h"

namespace vorn::tool {

// Noise of one brightness class. Values are grey levels (standard deviations); -1 where no block
// of the class could be measured.
struct noise_class {
  double brightness = 0;  // mean luma of the measured blocks
  double y = -1, u = -1, v = -1;
  int blocks = 0;  // luma blocks that counted
};

struct noise_curve {
  std::vector<noise_class> classes;  // from dark to bright, only those that were measured
  double y = 0, u = 0, v = 0;        // root mean square over the measured blocks of all classes
  // Correlation of the noise between horizontal neighbours, 0 = white.
  double correlation_y = 0, correlation_uv = 0;
};

enum class noise_scene { any, flat, burst };

// Frames may differ in size, except for burst, which takes two or more of one size.
noise_curve measure_noise(const std::vector<frame>& frames, noise_scene scene);

// The curve of the noise model itself on grey surfaces, for plots and for finding a gain.
noise_curve model_curve(const noise_model& model);

// The gain at which the model's luma noise comes closest to a measured curve (least squares in
// stops over the classes), between 1/4 and 256.
double gain_of(const noise_curve& measured, noise_model model = {});

}  // namespace vorn::tool
