#include "tools/lab/pair_check.h"

#include <cmath>
#include <cstdio>

#include "tools/lab/alignment.h"

namespace vorn::tool {

std::string fault_of_pair(const frame& noisy, const frame& clean) {
  char text[200];
  if (noisy.data == clean.data) return "noisy and clean are the same picture";
  // A search would take what is displaced for noise. A third of a pixel costs several dB at edges.
  constexpr double kMost = 0.3, kCertain = 5;
  const displacement d = measure_displacement(clean, noisy);
  const double far = std::hypot(d.x, d.y);
  if (far > kMost && far > kCertain * d.error) {
    std::snprintf(text, sizeof text,
                  "the noisy picture lies %+.2f, %+.2f pixels (x, y) beside the clean one", d.x,
                  d.y);
    return text;
  }
  const double detail_noisy = finest_detail(noisy), detail_clean = finest_detail(clean);
  if (detail_noisy <= detail_clean) {
    std::snprintf(text, sizeof text,
                  "the clean picture is the noisier one: its finest detail scatters by %.2f grey "
                  "levels, the noisy one's by %.2f; are they swapped?",
                  detail_clean, detail_noisy);
    return text;
  }
  return "";
}

}  // namespace vorn::tool
