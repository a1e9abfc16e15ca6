// The figures of a part of a picture as JSON, the same for the workbench, compare and report.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "tools/lab/figures.h"
#include "tools/picture/frame.h"

namespace vorn::tool {

// area is in luma samples and is cut to the picture. Fields: y, u, v (mean, deviation), spectrum of
// luma, edge where there is one (angle, height, half, tenth, transfer), texture with a clean frame
// of f's size; lists as in figures.h.
nlohmann::ordered_json area_json(const frame& f, const rectangle& area, const frame* clean);

}  // namespace vorn::tool
