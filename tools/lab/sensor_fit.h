// Finds the numbers of a camera's noise from its pictures: full well, read noise, the blur that the
// pipeline leaves in luma and chroma noise.
//
// The noise model puts its noise on grey frames as bright as the classes that were measured, the
// same measurement is taken of them, and the model's numbers are moved until the two agree: luma
// variance is a sum of photon noise, in proportion to gain / full_well, and read noise, in
// proportion to (gain read_noise / full_well)^2, each with a shape over brightness and gain of its
// own (weighted least squares, repeated because the tone curve is not straight); blurs follow from
// the correlation of neighbours, the strength of chroma from its variance. White balances are taken
// as they are in the model.
#pragma once

#include <string>
#include <vector>

#include "tools/lab/sensor_points.h"
#include "tools/lab/sensor_profile.h"

namespace vorn::tool {

// The frames of one gain.
struct sensor_shots {
  double gain = 1;
  std::vector<frame> frames;
  std::vector<std::string> names;  // of their files
};

// One point and what the fitted model makes of it; standard deviations in grey levels.
struct sensor_residual {
  double gain, brightness;
  double luma, luma_fitted;
  double chroma, chroma_fitted;  // mean power of U and V
};

struct sensor_fit {
  sensor_profile profile;
  // Standard errors over the values, from the scatter of the blocks and the misfit. That of read
  // noise is 1 where it cannot be told from none.
  double full_well_error = 0, read_noise_error = 0;
  std::vector<sensor_residual> residuals;
  // Fitted over measured deviation of luma, less 1: root mean square and the largest.
  double misfit = 0, worst = 0;
  // Correlation of neighbours, of all gains: measured, and the model's.
  double luma_correlation = 0, luma_correlation_fitted = 0;
  double chroma_correlation = 0, chroma_correlation_fitted = 0;
  std::vector<std::string> notes;  // what was left out, in words
};

// shots: by rising gain, each at least one frame (burst: two, of one size). An `error` with what
// was measured where the frames are not what they are said to be or do not tell the numbers.
sensor_fit fit_sensor(const std::vector<sensor_shots>& shots, bool burst);

}  // namespace vorn::tool
