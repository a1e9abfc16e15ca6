// What a sensor's noise is in a finished picture, and the gain that a measured noise belongs to.
#pragma once

#include "vorn_noise.h"

namespace vorn::noise {

// The one of the default tuning set.
constexpr vorn_noise_sensor kDefaultSensor = {4500, 2.0};

struct sensor_noise {
  double luma, chroma;  // standard deviations in grey levels; chroma is the mean power of U and V
};

// Of a grey area of code value `brightness` (0..255) under sRGB, white balance 1.9 and 1.6,
// bilinear colour differences, no blur of luma.
sensor_noise noise_at(const vorn_noise_sensor& sensor, double gain, double brightness);

// See vorn_tuning_gain_for; noise was found.
void gains_for(const vorn_noise& noise, const vorn_noise_sensor& sensor, double* luma,
               double* chroma);

}  // namespace vorn::noise
