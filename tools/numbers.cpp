#include "tools/numbers.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "tools/error.h"

namespace vorn::tool {

int64_t whole_number(const std::string& option, const std::string& text, int64_t lowest,
                     int64_t highest) {
  int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, value);
  if (fault != std::errc() || stop != end || value < lowest || value > highest) {
    throw error(option, "\"" + text + "\" is not a whole number from " + std::to_string(lowest) +
                            " to " + std::to_string(highest));
  }
  return value;
}

double real_number(const std::string& option, const std::string& text, double lowest,
                   double highest) {
  // Not every standard library has from_chars for it; strtod alone would take blanks, hexadecimal
  // digits and "nan" as well.
  const bool decimal =
      !text.empty() && text.find_first_not_of("0123456789.eE+-") == std::string::npos;
  char* stop = nullptr;
  const double value = decimal ? std::strtod(text.c_str(), &stop) : 0;
  const bool whole_text = decimal && stop == text.c_str() + text.size();
  if (!whole_text || !std::isfinite(value) || value < lowest || value > highest) {
    throw error(option, "\"" + text + "\" is not a number from " + short_number(lowest) + " to " +
                            short_number(highest));
  }
  return value;
}

std::string short_number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

}  // namespace vorn::tool
