#include "tools/lab/area_json.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace vorn::tool {
namespace {

using json = nlohmann::ordered_json;

json list_json(const std::vector<double>& values) {
  json list = json::array();
  for (double v : values) list.push_back(std::isfinite(v) ? json(v) : json(nullptr));
  return list;
}

}  // namespace

nlohmann::ordered_json area_json(const frame& f, const rectangle& area, const frame* clean) {
  const rectangle half = {area.x / 2, area.y / 2, std::max(area.width / 2, 1),
                          std::max(area.height / 2, 1)};
  json out = json::object();
  const char* const names[] = {"y", "u", "v"};
  const plane_view planes[] = {part_of(luma_view(f), area), part_of(u_view(f), half),
                               part_of(v_view(f), half)};
  for (int i = 0; i < 3; ++i) {
    const patch_figures figures = measure_patch(planes[i]);
    out[names[i]] = {{"mean", figures.mean}, {"deviation", figures.deviation}};
  }
  out["spectrum"] = list_json(noise_spectrum(planes[0]));
  if (clean)
    out["texture"] = list_json(texture_transfer(planes[0], part_of(luma_view(*clean), area)));
  const edge_figures edge = measure_edge(planes[0]);
  if (edge.found)
    out["edge"] = {{"angle", edge.angle},
                   {"height", edge.height},
                   {"half", edge.half},
                   {"tenth", edge.tenth},
                   {"transfer", list_json(edge.transfer)}};
  return out;
}

}  // namespace vorn::tool
