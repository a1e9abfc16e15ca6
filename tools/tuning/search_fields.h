// The tuning fields as a search moves them: their indices, bounds, and lines of values.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

// Weights are 0 from 2.5 intensities on and distances end at 784: beyond 313 a block across the
// hardest edge still counts, and the edge goes soft.
constexpr int32_t kHighestIntensity = 313;
constexpr int32_t kHighestRange = 200;
constexpr int32_t kWidestWindow = 64;
constexpr int32_t kHighestEdge = 64;
// Less would let colours of the same luma run into each other, which few pictures show but eyes
// see.
constexpr int32_t kLowestEdge = 3;

constexpr int kFlatMask = 64;

// A move must gain this much in dB to be made, and more where it costs time.
constexpr double kWorthwhile = 0.003;
constexpr double kWorthwhileSlower = 0.05;

// Indices of the fields, as tuning_field_at counts them.
struct search_fields {
  std::array<int, 5> intensity, radius;
  int layer, corner;
  int range, smooth, scale, step, edge_u, edge_v;
};
const search_fields& ids();
// "pIntensity[1]".
std::string label_of(int field);

tuning with(tuning t, int field, int32_t value);
// Neighbours looked at per full-size sample, the measure of time.
double effort(const tuning& t);
// Sorted, each once.
std::vector<int32_t> unique_values(std::vector<int32_t> values);
// value times factor^-reach .. factor^reach.
std::vector<int32_t> factors_around(int32_t value, double factor, int reach, int32_t lowest,
                                    int32_t highest);

}  // namespace vorn::tool
