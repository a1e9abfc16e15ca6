// A tuning set in memory, and how its units say that something is wrong.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "vorn_tuning.h"

namespace vorn::tunings {

constexpr const char* kFormat = "vorn-ycnr tuning set";
constexpr int kLevels = 5;
constexpr double kHighestGain = 1e6;
constexpr const char* kGainRange = "a number above 0, up to 1e6";

struct entry {
  double gain = 0;
  std::string name = {};
  std::string notes = {};
  ycnr_ynr_tuning_param luma = {};
  ycnr_cnr_tuning_param chroma = {};
};

struct set {
  std::string name = {};
  std::string description;
  std::vector<entry> entries;  // by rising gain
};

// Thrown inside the library alone; api.cpp turns it into a vorn_tuning_fault.
struct error {
  int32_t code = VORN_TUNING_INVALID;
  std::string cause;
  std::string field = {};
  int32_t line = 0;
  int32_t system_error = 0;
};

// Text for a message or a comment: at most `most` bytes of it, control characters and everything
// that is not UTF-8 replaced by '?', so that no file can send commands to a terminal.
std::string printable(const std::string& text, size_t most);

// Whether a text is UTF-8 without NUL, which is what a set can hold.
bool is_text(const std::string& text);

// Whether gain is finite, above 0 and at most kHighestGain.
constexpr bool is_gain(double gain) {
  return gain > 0 && gain <= kHighestGain;
}
// Throws unless it is.
void check_gain(double gain);

// The set's JSON text: one record a line, since sets are read and compared by people.
std::string to_json(const set& s);

// The set as a C header; name is a C identifier.
std::string to_c_header(const set& s, const std::string& name);

}  // namespace vorn::tunings
