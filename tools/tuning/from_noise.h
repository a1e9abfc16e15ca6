// A tuning straight from how noisy the pictures are, without a search and without pictures.
#pragma once

#include <array>

#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

// Standard deviations in grey levels as vorn_noise.h has them: of luma on the levels of its
// pyramid, of chroma (root of the mean of U's and V's variance) at its own size and at half of it.
struct noise_levels {
  std::array<double, 5> luma = {};
  std::array<double, 2> chroma = {};
};

// With s the deviation of a level, r = s1 / s0 of luma (0.39 where the noise is white) and c that
// of chroma:
//   pIntensity[0] = s0 (22 - 22 (r - 0.39) - 1.4 (log2 s0 - 2.5)), the factor of s0 from 10 to 26
//   pIntensity[1] = s1 (18 + 14 (r - 0.39))
//   pIntensity[2] = 14 s2, from s2 = 3 on; down to s2 = 1 it falls to nothing
//   pIntensity[3] = 14 s3, the same from 3 down to 1.5
//   color_edge_u = 9 - 0.65 c0, 4 to 8; color_edge_v two more
//   range_factor = 6.5 c0^1.55 color_edge_u / 8
// The window of level 0 is 3; where noise is strong and blurred (s0 from 10 on, r from 0.5 on) 5
// with 0.9 of the strength. That of level 1 grows at s1 = 1.4 and 5. Coarse chroma noise (c1 above
// 0.65 c0, c0 above 1.7) has the window of radius 4 at half size and half the range. No strength is
// above 313, from where on hard edges go soft.
//
// The form and the constants follow the sets that searches found on six fitting scenes of
// bench/quality under noise of deviation 2.5 to 13, white and blurred; those of chroma are the best
// on 14 such scenes under six kinds of noise. A half without noise (below 0.05) is switched off.
tuning tuning_for_noise(const noise_levels& noise);

}  // namespace vorn::tool
