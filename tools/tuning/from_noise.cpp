#include "tools/tuning/from_noise.h"

#include <algorithm>
#include <cmath>

#include "tools/tuning/search_fields.h"

namespace vorn::tool {
namespace {

constexpr double kNone = 0.05;   // grey levels
constexpr double kWhite = 0.39;  // s1 / s0 of white noise

int32_t whole(double value, double least, double most) {
  return static_cast<int32_t>(std::lround(std::clamp(value, least, most)));
}

// 0 up to `from`, 1 from `to` on.
double ramp(double value, double from, double to) {
  return std::clamp((value - from) / (to - from), 0.0, 1.0);
}

ycnr_ynr_tuning_param luma_for(const std::array<double, 5>& s) {
  ycnr_ynr_tuning_param t = {};
  t.layer = 2;
  t.param0 = kFlatMask;
  std::fill(std::begin(t.pRadius), std::end(t.pRadius), 3);
  if (s[0] < kNone) return t;
  t.enable = 1;
  const double coarser = s[1] / s[0] - kWhite;
  const bool wide = s[0] >= 10 && s[1] >= 0.5 * s[0];
  const double finest = 22 - 22 * coarser - 1.4 * (std::log2(s[0]) - 2.5);
  const std::array<double, 4> strength = {
      s[0] * std::clamp(finest, 10.0, 26.0) * (wide ? 0.9 : 1),
      s[1] * std::max(0.0, 18 + 14 * coarser),
      14 * s[2] * ramp(s[2], 1, 3),
      14 * s[3] * ramp(s[3], 1.5, 3),
  };
  for (size_t level = 0; level < strength.size(); ++level) {
    t.pIntensity[level] = whole(strength[level], 0, kHighestIntensity);
    if (level > 1 && t.pIntensity[level] > 0) t.layer = static_cast<int32_t>(level) + 1;
  }
  t.pRadius[0] = wide ? 5 : 3;
  t.pRadius[1] = s[1] < 1.4 ? 3 : s[1] < 5 ? 5 : 7;
  return t;
}

ycnr_cnr_tuning_param chroma_for(const std::array<double, 2>& s) {
  ycnr_cnr_tuning_param t = {};
  t.enable = s[0] < kNone ? 0 : 1;
  const double edge = std::clamp(9 - 0.65 * s[0], 4.0, 8.0);
  const bool coarse = s[1] > 0.65 * s[0] && s[0] > 1.7;
  const double range = 6.5 * std::pow(s[0], 1.55) * edge / 8;
  t.range_factor = whole(coarse ? range / 2 : range, 1, kHighestRange);
  t.smooth_radius = coarse ? 4 : 0;
  t.scale = 2;
  t.step = 1;
  t.color_edge_u = whole(edge, kLowestEdge, kHighestEdge);
  t.color_edge_v = whole(edge + 2, kLowestEdge, kHighestEdge);
  return t;
}

}  // namespace

tuning tuning_for_noise(const noise_levels& noise) {
  tuning t = {};
  t.luma = luma_for(noise.luma);
  t.chroma = chroma_for(noise.chroma);
  return t;
}

}  // namespace vorn::tool
