// Picture contents made by formula, from noise to the extremes of what a sample can be.
#pragma once

#include <cstdint>

#include "tests/support/random.h"

namespace vorn_test {

enum class content { noise, flat, extremes, ramp, texture, spike, saturated };
constexpr int kContents = 7;
const char* content_name(content c);

inline content any_content(random_source& random) {
  return static_cast<content>(random.between(0, kContents - 1));
}

// Fills a plane, or an interleaved chroma plane (channels 2).
void paint(uint8_t* data, int width, int height, int stride, int channels, content c,
           random_source& random);

}  // namespace vorn_test
