#include "tuning/fields.h"

#include <cstring>
#include <limits>

namespace vorn::tunings {
namespace {

static_assert(sizeof(ycnr_ynr_tuning_param) == kLumaFields * sizeof(int32_t), "fields in a row");
static_assert(sizeof(ycnr_cnr_tuning_param) == kChromaFields * sizeof(int32_t), "fields in a row");

constexpr int32_t kLeast32 = std::numeric_limits<int32_t>::min();
constexpr int32_t kMost32 = std::numeric_limits<int32_t>::max();
constexpr int32_t kLuma = VORN_TUNING_LUMA;
constexpr int32_t kChroma = VORN_TUNING_CHROMA;

constexpr const char* kIntensity = "strength per level, finest first; 0 leaves a level unfiltered";
constexpr const char* kRadius = "window per level, finest first: 3, 5 or 7; 0 copies the level";
constexpr const char* kUnused = "not used";

}  // namespace

// A block distance is at most 784, and a strength of 2000 counts even that with a weight of two
// thirds; corners beyond 112 have the factor of 112.
const vorn_tuning_field kFieldTable[kFields] = {
    {kLuma, -1, 0, 1, 0, "enable", "enable", "1 runs the luma filter, 0 skips it"},
    {kLuma, -1, 2, 5, 0, "layer", "layer", "pyramid levels in use"},
    {kLuma, 0, 0, 2000, 0, "pIntensity", "0pIntensity", kIntensity},
    {kLuma, 1, 0, 2000, 0, "pIntensity", "1pIntensity", kIntensity},
    {kLuma, 2, 0, 2000, 0, "pIntensity", "2pIntensity", kIntensity},
    {kLuma, 3, 0, 2000, 0, "pIntensity", "3pIntensity", kIntensity},
    {kLuma, 4, 0, 2000, 0, "pIntensity", "4pIntensity", kIntensity},
    {kLuma, 0, 0, 7, 1, "pRadius", "0pRadius", kRadius},
    {kLuma, 1, 0, 7, 1, "pRadius", "1pRadius", kRadius},
    {kLuma, 2, 0, 7, 1, "pRadius", "2pRadius", kRadius},
    {kLuma, 3, 0, 7, 1, "pRadius", "3pRadius", kRadius},
    {kLuma, 4, 0, 7, 1, "pRadius", "4pRadius", kRadius},
    {kLuma, -1, 0, 112, 0, "param0", "param0",
     "more strength towards the corners; 64 is even, below stands for a factor of 1.9"},
    {kLuma, -1, kLeast32, kMost32, 0, "param1", "param1", kUnused},
    {kLuma, -1, kLeast32, kMost32, 0, "param2", "param2", kUnused},
    {kChroma, -1, 0, 1, 0, "enable", "enable", "1 runs the chroma filter, 0 skips it"},
    {kChroma, -1, 1, 200, 0, "range_factor", "range_factor",
     "half the colour distance at which a neighbour stops counting"},
    {kChroma, -1, 0, 64, 0, "smooth_radius", "smooth_radius",
     "half-length of the window, pixels of the filtered level"},
    {kChroma, -1, 0, 2, 0, "scale", "scale",
     "0 full chroma size, 1 half size, 2 half then full size"},
    {kChroma, -1, 1, 4, 0, "step", "step", "window taps are twice this apart, pixels"},
    {kChroma, -1, 0, 64, 0, "color_edge_u", "color_edge_u",
     "weight of U in the colour distance; 8 is 1.0"},
    {kChroma, -1, 0, 64, 0, "color_edge_v", "color_edge_v",
     "weight of V in the colour distance; 8 is 1.0"},
    {kChroma, -1, -16, 127, 0, "saturation", "saturation",
     "chroma gain in sixteenths; 0 leaves colours alone"},
    {kChroma, -1, kLeast32, kMost32, 0, "param0", "param0", kUnused},
    {kChroma, -1, kLeast32, kMost32, 0, "param1", "param1", kUnused},
    {kChroma, -1, kLeast32, kMost32, 0, "param2", "param2", kUnused},
};

int32_t get_field(const ycnr_ynr_tuning_param& luma, const ycnr_cnr_tuning_param& chroma,
                  int index) {
  const char* const record = index < kLumaFields ? reinterpret_cast<const char*>(&luma)
                                                 : reinterpret_cast<const char*>(&chroma);
  int32_t value;
  std::memcpy(&value, record + 4 * (index < kLumaFields ? index : index - kLumaFields), 4);
  return value;
}

void set_field(entry& e, int index, int32_t value) {
  char* const record =
      index < kLumaFields ? reinterpret_cast<char*>(&e.luma) : reinterpret_cast<char*>(&e.chroma);
  std::memcpy(record + 4 * (index < kLumaFields ? index : index - kLumaFields), &value, 4);
}

std::string field_name(const vorn_tuning_field& field) {
  std::string name = field.record == kLuma ? "luma." : "chroma.";
  name += field.key;
  if (field.level >= 0) name += "[" + std::to_string(field.level) + "]";
  return name;
}

bool in_range(const vorn_tuning_field& field, int64_t value) {
  if (value < field.least || value > field.most) return false;
  return !field.windows || value == 0 || value == 3 || value == 5 || value == 7;
}

std::string range_text(const vorn_tuning_field& field) {
  if (field.windows) return "0, 3, 5 or 7";
  if (field.least == kLeast32) return "a whole number of 32 bits";
  if (field.least == 0 && field.most == 1) return "0 or 1";
  return "a whole number from " + std::to_string(field.least) + " to " + std::to_string(field.most);
}

void check_records(const ycnr_ynr_tuning_param* luma, const ycnr_cnr_tuning_param* chroma) {
  static constexpr ycnr_ynr_tuning_param no_luma = {};
  static constexpr ycnr_cnr_tuning_param no_chroma = {};
  for (int i = 0; i < kFields; i++) {
    const vorn_tuning_field& field = kFieldTable[i];
    if (field.record == kLuma ? !luma : !chroma) continue;
    const int32_t value = get_field(luma ? *luma : no_luma, chroma ? *chroma : no_chroma, i);
    if (in_range(field, value)) continue;
    const std::string name = field_name(field);
    throw error{VORN_TUNING_INVALID,
                "\"" + name + "\" must be " + range_text(field) + ", not " + std::to_string(value),
                name};
  }
}

}  // namespace vorn::tunings
