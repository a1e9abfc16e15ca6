// The two text forms of a set: JSON, and a C header for camera code that reads no files.
#include <cmath>
#include <nlohmann/json.hpp>

#include "tuning/fields.h"

namespace vorn::tunings {
namespace {

std::string quoted(const std::string& text) {
  return nlohmann::json(text).dump();
}

// The shortest text that reads back as this number.
std::string gain_text(double gain) {
  return gain == std::floor(gain) ? std::to_string(int64_t(gain)) : nlohmann::json(gain).dump();
}

// The values of one record, arrays in brackets; each with its key where keys are wanted.
std::string record_text(const entry& e, bool luma, const char* open, const char* close, bool keys) {
  std::string out;
  for (int i = luma ? 0 : kLumaFields; i < (luma ? kLumaFields : kFields); i++) {
    const vorn_tuning_field& field = kFieldTable[i];
    if (!out.empty()) out += ", ";
    if (field.level <= 0 && keys) out += "\"" + std::string(field.key) + "\": ";
    if (field.level == 0) out += open;
    const int32_t value = get_field(e.luma, e.chroma, i);
    // C has no literal for the least 32-bit number.
    out += !keys && value == INT32_MIN ? "(-2147483647 - 1)" : std::to_string(value);
    if (field.level == kLevels - 1) out += close;
  }
  return out;
}

std::string comment(const std::string& text) {
  std::string safe = printable(text, 4096);
  for (size_t at; (at = safe.find("*/")) != std::string::npos;) safe.replace(at, 2, "* /");
  for (size_t at; (at = safe.find("/*")) != std::string::npos;) safe.replace(at, 2, "/ *");
  return safe;
}

}  // namespace

std::string to_json(const set& s) {
  std::string out = "{\n  \"format\": " + quoted(kFormat) + ",\n  \"version\": 1";
  if (!s.name.empty()) out += ",\n  \"name\": " + quoted(s.name);
  if (!s.description.empty()) out += ",\n  \"description\": " + quoted(s.description);
  out += ",\n  \"entries\": [";
  const char* between = "\n";
  for (const entry& e : s.entries) {
    out += between + std::string("    { \"gain\": ") + gain_text(e.gain);
    if (!e.name.empty()) out += ", \"name\": " + quoted(e.name);
    if (!e.notes.empty()) out += ",\n      \"notes\": " + quoted(e.notes);
    out += ",\n      \"luma\": { " + record_text(e, true, "[", "]", true);
    out += " },\n      \"chroma\": { " + record_text(e, false, "[", "]", true) + " } }";
    between = ",\n";
  }
  return out + "\n  ]\n}\n";
}

std::string to_c_header(const set& s, const std::string& name) {
  std::string guard = name + "_TUNING_H";
  for (char& c : guard) {
    if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
  }
  std::string out = "/* Tuning set" + (s.name.empty() ? "" : " \"" + comment(s.name) + "\"") +
                    ", written by vorn-ycnr tuning to-c.";
  if (!s.description.empty()) out += "\n * " + comment(s.description);
  out += " */\n#ifndef " + guard + "\n#define " + guard + "\n\n#include \"vorn_ycnr.h\"\n\n";
  out += "typedef struct " + name + "_entry {\n  double gain; /* sensor gain, 1 = base */\n" +
         "  ycnr_ynr_tuning_param luma;\n  ycnr_cnr_tuning_param chroma;\n} " + name +
         "_entry;\n\n";
  out += "/* By rising gain. */\nstatic const " + name + "_entry " + name + "_tuning[] = {\n";
  for (const entry& e : s.entries) {
    if (!e.name.empty()) out += "    /* " + comment(e.name) + " */\n";
    if (!e.notes.empty()) out += "    /* " + comment(e.notes) + " */\n";
    out += "    {" + gain_text(e.gain) + ",\n     {" + record_text(e, true, "{", "}", false) +
           "},\n     {" + record_text(e, false, "{", "}", false) + "}},\n";
  }
  out += "};\n\nenum { " + name + "_tuning_count = " + std::to_string(s.entries.size()) + " };\n\n";
  out +=
      "/* The entry nearest to gain in stops, half-way the lower one; null unless gain > 0. */\n"
      "static inline const " +
      name + "_entry* " + name + "_nearest(double gain) {\n  int i = 0;\n" +
      "  if (!(gain > 0)) return 0;\n  while (i + 1 < " + name + "_tuning_count &&\n" +
      "         gain * gain > " + name + "_tuning[i].gain * " + name +
      "_tuning[i + 1].gain) {\n    ++i;\n  }\n  return &" + name + "_tuning[i];\n}\n\n#endif\n";
  return out;
}

}  // namespace vorn::tunings
