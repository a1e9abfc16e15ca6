// The noise meter: blocks into brightness classes, their floors, the noise that fits below them,
// and how far to trust it. What vorn_tuning_measure does.
#pragma once

#include "tuning/noise/blocks.h"
#include "vorn_noise.h"

namespace vorn::noise {

// Pictures of one scene kind; see vorn_tuning_measure. Fills *result; may throw std::bad_alloc.
void measure(const vorn_noise_frame* frames, int count, int scene, vorn_noise* result);

}  // namespace vorn::noise
