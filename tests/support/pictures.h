// Pictures for tests of the tool's measuring units.
#pragma once

#include <algorithm>
#include <cstdint>

#include "tests/support/random.h"
#include "tools/lab/noise_model.h"
#include "tools/picture/frame.h"

namespace vorn_test {

inline vorn::tool::frame grey_frame(int width, int height, uint8_t level) {
  vorn::tool::frame f = vorn::tool::make_frame(width, height);
  std::fill(f.luma(), f.chroma(), level);
  return f;
}

inline vorn::tool::frame random_frame(int width, int height, uint64_t seed) {
  random_source random(seed);
  vorn::tool::frame f = vorn::tool::make_frame(width, height);
  for (uint8_t& b : f.data) b = static_cast<uint8_t>(random.next());
  return f;
}

inline vorn::tool::frame noisy(const vorn::tool::frame& clean, double gain, uint64_t seed = 1,
                               double blur = 0) {
  vorn::tool::frame f = clean;
  vorn::tool::noise_model model;
  model.gain = gain;
  model.seed = seed;
  model.luma_blur = blur;
  vorn::tool::add_noise(f, model);
  return f;
}

}  // namespace vorn_test
