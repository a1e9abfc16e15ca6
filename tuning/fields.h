// The fields of the two tuning records and the values that a set may hold: the one table that the
// reader, the writer, the checks, the schema and docs/tuning.md follow.
#pragma once

#include <cstdint>
#include <string>

#include "tuning/set.h"

namespace vorn::tunings {

constexpr int kLumaFields = 15;
constexpr int kChromaFields = 11;
constexpr int kFields = kLumaFields + kChromaFields;

// In the order of the records.
extern const vorn_tuning_field kFieldTable[kFields];

int32_t get_field(const ycnr_ynr_tuning_param& luma, const ycnr_cnr_tuning_param& chroma,
                  int index);
void set_field(entry& e, int index, int32_t value);

// "luma.layer", "luma.pRadius[1]".
std::string field_name(const vorn_tuning_field& field);

// Whether a set may hold this value, and if not, what it must be: "a whole number from 2 to 5".
bool in_range(const vorn_tuning_field& field, int64_t value);
std::string range_text(const vorn_tuning_field& field);

// Throws an error that names the first field out of its range. Null records are not looked at.
void check_records(const ycnr_ynr_tuning_param* luma, const ycnr_cnr_tuning_param* chroma);

}  // namespace vorn::tunings
