// The one place where the tool turns text of the command line into numbers. All of the text has to
// be the number; what is not finite or out of bounds is an `error` that names the option, the text
// and the bounds.
#pragma once

#include <cstdint>
#include <string>

namespace vorn::tool {

int64_t whole_number(const std::string& option, const std::string& text, int64_t lowest,
                     int64_t highest);
double real_number(const std::string& option, const std::string& text, double lowest,
                   double highest);

// "8", "0.001", "1e+06".
std::string short_number(double value);

}  // namespace vorn::tool
