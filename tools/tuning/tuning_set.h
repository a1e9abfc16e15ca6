// Tuning on disk and on the command line, in the tool's own terms: tuning sets and their fields,
// which are libvorn_tuning's, and the text form of the library's debug dumps.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vorn_ycnr.h"

namespace vorn::tool {

struct tuning {
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  bool fine = false;  // fine mode: the caller's choice, no part of a set
};

struct tuning_entry {
  double gain = 1;  // sensor gain, 1 = base
  tuning values;
  std::string name = {};
  std::string notes = {};
};

struct tuning_set {
  std::string name;
  std::string description;
  std::vector<tuning_entry> entries;  // by rising gain, at least one

  // The entry nearest in stops; half-way between two, the lower one. gain is finite and above 0.
  const tuning_entry& nearest(double gain) const;
};

// One integer of the records. Level fields (pIntensity, pRadius) are five of these in a row.
struct tuning_field {
  bool luma;              // or chroma
  const char* key;        // its key in the JSON file: "pIntensity"
  int level;              // index into the key's array, or -1 for a plain number
  const char* dump_name;  // its name in the dump's text: "0pIntensity"
};

// All 26 fields in the order of the records: 15 of luma, then 11 of chroma.
constexpr int kLumaFields = 15;
constexpr int kChromaFields = 11;
constexpr int kTuningFields = kLumaFields + kChromaFields;
const tuning_field& tuning_field_at(int index);
int32_t get_field(const tuning& t, int index);
void set_field(tuning& t, int index, int32_t value);

// Reads a set from JSON text. file_name is for messages; every fault is an `error` that names the
// file, the line and the field, as vorn_tuning_parse finds them.
tuning_set parse_tuning_set(const std::string& text, const std::string& file_name);
// The same from a file; "-" is standard input.
tuning_set read_tuning_set(const std::string& path);
// The same, and for an empty path the default set.
tuning_set load_or_default(const std::string& path);
// The set's text. An `error` that names the field when a value or a gain is out of its range.
std::string tuning_set_to_json(const tuning_set& set);
// The set as a C header; name is a C identifier.
std::string tuning_set_to_c_header(const tuning_set& set, const std::string& name);

// An `error` that names the first field out of its range, under `where`.
void check_tuning(const tuning& t, const std::string& where);

// The set that comes with libvorn_tuning.
const tuning_set& default_tuning_set();

// The text form that the library's tuning dumps use: "name value \n" per field of one record.
std::string luma_to_dump_text(const tuning& t);
std::string chroma_to_dump_text(const tuning& t);
// Reads one of the two forms into its half of t; which one it is follows from the second field.
// Returns true for luma. Every field must be there, in any order, once.
bool parse_dump_text(const std::string& text, const std::string& file_name, tuning& t);

}  // namespace vorn::tool
