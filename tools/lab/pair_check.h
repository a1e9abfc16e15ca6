// Whether two pictures are the pair that a search can learn from.
#pragma once

#include "tools/picture/frame.h"

#include <string>

namespace vorn::tool {

// Empty when they are; else one clause with what was measured. Found are pictures that are
// displaced against each other, change places, or do not differ at all. Sizes are equal.
std::string fault_of_pair(const frame& noisy, const frame& clean);

// The same for two noisy shots of one still scene, whose difference has to be noise alone, as much
// in one as in the other. Found are shots that are one and the same, displaced, of another
// brightness or colour, with something that moved, or of unequal noise. Sizes are equal.
std::string fault_of_shots(const frame& a, const frame& b);

}  // namespace vorn::tool
