// Measures the noise of pictures without a clean reference, as a curve over brightness: the tool's
// own terms for vorn_tuning_measure, whose header says what the figures mean.
#pragma once

#include <string>
#include <vector>

#include "tools/lab/noise_model.h"
#include "tools/lab/sensor_profile.h"
#include "tools/picture/frame.h"
#include "vorn_noise.h"

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
  // Correlation of the noise between neighbours, 0 = white.
  double correlation_y = 0, correlation_uv = 0;
  vorn_noise all{};  // the same and more, as measured
};

// What a measurement of the library says, in these terms.
noise_curve curve_of(const vorn_noise& measured);
// The frame as the library takes it; valid while f is.
vorn_noise_frame noise_view(const frame& f);

enum class noise_scene { any, flat, burst };

// Frames may differ in size, except for burst, which takes two or more of one size.
noise_curve measure_noise(const std::vector<frame>& frames, noise_scene scene);

// One sentence on how far to trust the figures; empty where they are sure.
std::string doubt_of(const noise_curve& curve);

// Gains of the sensor model that make this much noise, for luma and for chroma; both 0 where no
// noise was found.
noise_gains gains_of(const noise_curve& measured, const noise_model& model = {});

// What the model's noise measures on grey frames of every brightness.
noise_curve model_curve(const noise_model& model);

}  // namespace vorn::tool
