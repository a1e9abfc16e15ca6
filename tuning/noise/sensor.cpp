#include "tuning/noise/sensor.h"

#include <algorithm>
#include <cmath>

namespace vorn::noise {
namespace {

constexpr double kRedBalance = 1.9, kBlueBalance = 1.6;
constexpr double kLeastGain = 0.25, kMostGain = 256;
// Near black and white the tone curve and clipping decide, not the sensor.
constexpr double kDarkest = 20, kBrightest = 240;
// Level 1 over level 0 of the noise that the default set was tuned on, and how much of a measured
// excess counts: coarser noise calls for more strength than its deviation says.
constexpr double kUsualLumaRatio = 0.41, kUsualChromaRatio = 0.55;
constexpr double kRatioCounts = 0.3;
// Stops by which a doubted picture takes less.
constexpr double kDoubtStops = 1.5;

double square(double x) {
  return x * x;
}

// sRGB; code and light 0..1.
double light_of(double code) {
  return code <= 0.04045 ? code / 12.92 : std::pow((code + 0.055) / 1.055, 2.4);
}
double slope_at(double code) {  // d code / d light
  return code <= 0.04045 ? 12.92 : 1.055 / 2.4 * std::pow((code + 0.055) / 1.055, -1.4);
}

// Mean over the classes of measured over made noise, in octaves.
template <typename Measured, typename Made>
double excess(const vorn_noise& noise, const Measured& measured, const Made& made) {
  double sum = 0, weights = 0;
  for (int i = 0; i < noise.classes; ++i) {
    const vorn_noise_class& c = noise.class_at[i];
    const double sigma = measured(c);
    if (!(sigma > 0)) continue;
    const double weight = std::sqrt(std::max(1.0, double(c.blocks)));
    const double brightness = std::clamp(double(c.brightness), kDarkest, kBrightest);
    sum += weight * std::log2(sigma / made(brightness));
    weights += weight;
  }
  return weights > 0 ? sum / weights : 0;
}

// Noise grows steadily with gain: half the interval, in stops.
template <typename Measured, typename Made>
double solve(const vorn_noise& noise, const Measured& measured, const Made& made) {
  double low = std::log2(kLeastGain), high = std::log2(kMostGain);
  for (int step = 0; step < 24; ++step) {
    const double middle = (low + high) / 2, gain = std::exp2(middle);
    const auto at = [&](double brightness) { return made(gain, brightness); };
    (excess(noise, measured, at) > 0 ? low : high) = middle;
  }
  return std::exp2((low + high) / 2);
}

}  // namespace

sensor_noise noise_at(const vorn_noise_sensor& sensor, double gain, double brightness) {
  const double code = std::clamp(brightness / 255, 0.0, 1.0), light = light_of(code);
  const double per_electron = gain / sensor.full_well;
  const auto variance = [&](double balance) {
    return light * balance * per_electron + square(balance * sensor.read_noise * per_electron);
  };
  const double green = variance(1), red = variance(kRedBalance), blue = variance(kBlueBalance);
  // Red and blue follow green but for their differences, which are known at one pixel in four:
  // 0.5625 of their variance is left in between, and 0.39 in the mean of four pixels.
  const double luma = green +
                      0.5625 * (square(0.299) * (red + green) + square(0.114) * (blue + green)) -
                      0.5 * (0.299 + 0.114) * green;
  const double u =
      square(0.5 / 0.886) * 0.39 * (square(0.886) * (blue + green) + square(0.299) * (red + green));
  const double v =
      square(0.5 / 0.701) * 0.39 * (square(0.701) * (red + green) + square(0.114) * (blue + green));
  const double scale = 255 * slope_at(code);
  return {scale * std::sqrt(luma), scale * std::sqrt((u + v) / 2)};
}

void gains_for(const vorn_noise& noise, const vorn_noise_sensor& sensor, double* luma,
               double* chroma) {
  const double chroma_sigma = std::sqrt((square(noise.u) + square(noise.v)) / 2);
  const auto coarser = [](double level0, double level1, double usual) {
    return level0 > 0 ? std::pow(std::max(1.0, level1 / level0 / usual), kRatioCounts) : 1.0;
  };
  const double luma_more = coarser(noise.luma, noise.luma_levels[1], kUsualLumaRatio);
  const double chroma_more = coarser(chroma_sigma, noise.chroma_levels[1], kUsualChromaRatio);
  *luma = solve(
      noise, [&](const vorn_noise_class& c) { return c.luma * luma_more; },
      [&](double gain, double b) { return noise_at(sensor, gain, b).luma; });
  *chroma = solve(
      noise,
      [&](const vorn_noise_class& c) {
        return c.u >= 0 && c.v >= 0 ? chroma_more * std::sqrt((square(c.u) + square(c.v)) / 2) : -1;
      },
      [&](double gain, double b) { return noise_at(sensor, gain, b).chroma; });
  if (chroma_sigma <= 0) *chroma = *luma;
  if (noise.doubt != VORN_NOISE_TEXTURE) return;
  const double less = std::exp2(-kDoubtStops);
  *luma = std::max(kLeastGain, *luma * less);
  *chroma = std::max(kLeastGain, *chroma * less);
}

}  // namespace vorn::noise
