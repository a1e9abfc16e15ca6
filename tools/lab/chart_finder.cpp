#include "tools/lab/chart_finder.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/lab/chart.h"
#include "tools/lab/figures.h"

namespace vorn::tool {
namespace {

// What a chart's correlation has to reach. Measured: with the noise of gain 64, denoised or not,
// 0.99 as a whole and 0.98 in the dead leaves; photographs and other graphics stay below 0.3.
constexpr double kWholeAlike = 0.9, kTextureAlike = 0.8;

rectangle area_of(const chart_patch& p) {
  return {p.x, p.y, p.width, p.height};
}

bool greys_rise(const frame& f, const std::vector<chart_region>& regions) {
  double below = -1;
  for (const chart_region& r : regions) {
    if (r.kind != chart_kind::grey) continue;
    const double level = mean(part_of(luma_view(f), area_of(r.place)));
    if (level < below + 1) return false;
    below = level;
  }
  return true;
}

// Means of a plane's squares of `side` samples: noise averages out, the scene stays.
std::vector<double> reduced(const plane_view& p, int side) {
  std::vector<double> out;
  for (int y = 0; y + side <= p.height; y += side)
    for (int x = 0; x + side <= p.width; x += side)
      out.push_back(mean(part_of(p, {x, y, side, side})));
  return out;
}

double correlation(const plane_view& a, const plane_view& b) {
  constexpr int kSide = 8;
  const std::vector<double> va = reduced(a, kSide), vb = reduced(b, kSide);
  const double n = double(va.size());
  double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
  for (size_t i = 0; i < va.size(); ++i) {
    sa += va[i];
    sb += vb[i];
    saa += va[i] * va[i];
    sbb += vb[i] * vb[i];
    sab += va[i] * vb[i];
  }
  const double power = (n * saa - sa * sa) * (n * sbb - sb * sb);
  return power > 0 ? (n * sab - sa * sb) / std::sqrt(power) : 0;
}

}  // namespace

frame find_chart(const frame& f) {
  constexpr int kSmallest = 64;  // the smallest chart that can be drawn
  if (f.width < kSmallest || f.height < kSmallest) return {};
  const std::vector<chart_region> regions = chart_regions(f.width, f.height);
  const auto leaves = std::find_if(regions.begin(), regions.end(), [](const chart_region& r) {
    return r.kind == chart_kind::leaves;  // the coloured ones: faint leaves drown in noise
  });
  if (leaves == regions.end() || !greys_rise(f, regions)) return {};
  frame chart = draw_chart(f.width, f.height);
  if (correlation(luma_view(f), luma_view(chart)) < kWholeAlike) return {};
  // A chart of another size that was scaled is alike as a whole, but its texture lies elsewhere.
  const rectangle area = area_of(leaves->place);
  if (correlation(part_of(luma_view(f), area), part_of(luma_view(chart), area)) < kTextureAlike)
    return {};
  return chart;
}

}  // namespace vorn::tool
