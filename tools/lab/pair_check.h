// Whether a noisy and a clean picture are the pair that a search can learn from.
#pragma once

#include "tools/picture/frame.h"

#include <string>

namespace vorn::tool {

// Empty when they are; else one clause with what was measured. Found are pictures that are
// displaced against each other, change places, or do not differ at all. Sizes are equal.
std::string fault_of_pair(const frame& noisy, const frame& clean);

}  // namespace vorn::tool
