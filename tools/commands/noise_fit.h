// vorn-ycnr noise --fit: a sensor's profile from flats or bursts.
#pragma once

#include <string>
#include <vector>

#include "tools/picture/picture_io.h"

namespace vorn::tool {

struct noise_fit_options {
  std::vector<std::string> inputs;
  std::vector<double> gains;  // of the inputs in their order, or one for all; empty: from EXIF
  double base_iso = 100;
  bool burst = false;
  std::string name = "sensor";
  std::string output;
  picture_options picture;
};

// Prints the fit and its residuals and writes the profile. Returns the exit code.
int run_noise_fit(const noise_fit_options& o);

}  // namespace vorn::tool
