#include "tools/tuning/search_fields.h"

#include <cstring>

namespace vorn::tool {
namespace {

// Keys of both records (enable, param0) are found in the luma record, which comes first.
int field_of(const char* key, int level = -1) {
  for (int i = 0; i < kTuningFields; ++i) {
    const tuning_field& field = tuning_field_at(i);
    if (std::strcmp(field.key, key) == 0 && field.level == level) return i;
  }
  return -1;
}

search_fields find_fields() {
  search_fields found = {};
  for (int l = 0; l < 5; ++l) {
    found.intensity[l] = field_of("pIntensity", l);
    found.radius[l] = field_of("pRadius", l);
  }
  found.layer = field_of("layer"), found.corner = field_of("param0");
  found.range = field_of("range_factor"), found.smooth = field_of("smooth_radius");
  found.scale = field_of("scale"), found.step = field_of("step");
  found.edge_u = field_of("color_edge_u"), found.edge_v = field_of("color_edge_v");
  return found;
}

}  // namespace

const search_fields& ids() {
  static const search_fields known = find_fields();
  return known;
}

std::string label_of(int field) {
  const tuning_field& f = tuning_field_at(field);
  std::string label = f.key;
  if (f.level >= 0) label += "[" + std::to_string(f.level) + "]";
  return label;
}

tuning with(tuning t, int field, int32_t value) {
  set_field(t, field, value);
  return t;
}

double effort(const tuning& t) {
  double sum = 0;
  for (int l = 0; l < t.luma.layer && l < 5; ++l) {
    const int r = t.luma.pRadius[l];
    const bool filters = t.luma.pIntensity[l] > 0 && (r == 3 || r == 5 || r == 7);
    if (filters) sum += 4.0 * (r - 1) * std::pow(0.25, l);
  }
  const int step = std::max(1, 2 * t.chroma.step);
  const double taps = 4.0 * (t.chroma.smooth_radius / step);  // both passes
  const double level0 = 0.5, level1 = 0.125;                  // chroma samples per luma sample
  if (t.chroma.scale == 0) sum += level0 * taps;
  if (t.chroma.scale == 1) sum += level1 * taps;
  if (t.chroma.scale == 2) sum += level1 * taps + level0 * 8;
  return sum;
}

std::vector<int32_t> unique_values(std::vector<int32_t> values) {
  std::sort(values.begin(), values.end());
  values.erase(std::unique(values.begin(), values.end()), values.end());
  return values;
}

std::vector<int32_t> factors_around(int32_t value, double factor, int reach, int32_t lowest,
                                    int32_t highest) {
  std::vector<int32_t> values;
  for (int k = -reach; k <= reach; ++k) {
    const double v = std::round(value * std::pow(factor, k));
    values.push_back(std::clamp(static_cast<int32_t>(v), lowest, highest));
  }
  return unique_values(std::move(values));
}

}  // namespace vorn::tool
