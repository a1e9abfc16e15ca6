// What is known of one camera's noise, and the file that keeps it: the numbers of the noise model,
// and for every gain that was measured the figures behind them.
//
// Gains are the camera's own, 1 being its lowest sensitivity (ISO `iso_at_gain_1`). The default
// tuning set counts the gains of another sensor; rows say which of its gains the camera's noise is
// like, for luma and for chroma, so that a set's entry can be picked by EXIF ISO alone.
#pragma once

#include <string>
#include <vector>

#include "tools/lab/noise_model.h"
#include "vorn_noise.h"

namespace vorn::tool {

// A pair of gains, for luma and for chroma.
struct noise_gains {
  double luma = 0, chroma = 0;
};

// One gain as measured: standard deviations in grey levels over the measured areas.
struct sensor_row {
  double gain = 1;
  double luma = 0, u = 0, v = 0;
  double luma_correlation = 0, chroma_correlation = 0;  // of neighbours
  std::vector<double> luma_levels, chroma_levels;       // per pyramid level, from 0
  noise_gains like;                                     // of the default tuning set
};

struct sensor_profile {
  std::string name;
  noise_model model;  // full_well, read_noise, balances, blurs and chroma_strength are the camera's
  double iso_at_gain_1 = 100;
  std::vector<sensor_row> rows;  // by rising gain, at least one

  // The default set's gains for one of the camera's, and back: straight between the rows on
  // logarithmic axes, stop by stop beyond them. Gains are finite and above 0.
  noise_gains like_default(double gain) const;
  noise_gains from_default(const noise_gains& like) const;
  vorn_noise_sensor sensor() const { return {model.full_well, model.read_noise}; }
};

// An `error` that names the file and the field where the text is no sound profile: numbers are
// finite and in the ranges of the options of `noise`, gains and what they are like rise.
sensor_profile parse_sensor_profile(const std::string& text, const std::string& file_name);
sensor_profile read_sensor_profile(const std::string& path);
std::string sensor_profile_to_json(const sensor_profile& profile);

}  // namespace vorn::tool
