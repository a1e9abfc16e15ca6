// Reads a tuning set from JSON text.
#pragma once

#include <cstddef>

#include "tuning/set.h"

namespace vorn::tunings {

constexpr size_t kLargestText = size_t(4) << 20;

// The set in size bytes of JSON text; a leading byte order mark is skipped. Throws an error with
// line and field for text that is not JSON in UTF-8 or larger than kLargestText, for an unknown,
// missing or repeated field, for a value of the wrong kind or out of its range, and for gains that
// do not rise. Whole numbers may be written 2 or 2.0, which JSON does not tell apart. Takes time in
// proportion to the text, and memory to what the set keeps, whatever the text holds.
set read_json(const char* text, size_t size);

}  // namespace vorn::tunings
