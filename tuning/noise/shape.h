// The noise that fits under the floors of all brightness classes and bands.
//
// Noise of a camera is white noise that some steps have blurred, so its spectrum over the bands is
// one of a family with one number, the blur (standard deviation of a Gaussian, in samples), the
// same for all classes of a plane; its strength runs smoothly over brightness. Scene can only add
// to a floor. So the fit looks for the blur and the curve that lie under all floors and touch as
// many as can be, those with a large share before others: a floor below the fit counts with its
// square, one above it only up to a bound, as scene. 1/12 for rounding to whole numbers is part of
// the fit.
#pragma once

#include <array>
#include <vector>

#include "tuning/noise/blocks.h"
#include "tuning/noise/floor.h"

namespace vorn::noise {

constexpr double kRounding = 1.0 / 12;

struct brightness_class {
  double brightness = 0;
  int blocks = 0;
  std::array<noise_floor, kBands> floors;
};

struct noise_fit {
  double blur = 0;
  std::vector<double> variances;  // per class, of a sample
  double share = 0;               // of the blocks that show noise alone, 0..1
};

enum class fit_kind {
  scene,  // floors come from find_floor
  flat    // floors come from floor_of_flat: they count both ways
};

// classes: from dark to bright, at least one, every floor measured.
noise_fit fit_noise(const std::vector<brightness_class>& classes, fit_kind kind);

// Mean square of the lowest band's coefficients in noise of unit variance and this blur.
double lowest_band(double blur);
// Correlation of neighbours in noise of this blur.
double correlation_of(double blur);
// Standard deviation of noise of unit variance and this blur after `levels` times halving with the
// 3x3 binomial window of the pyramid.
double level_sigma(double blur, int levels);

}  // namespace vorn::noise
