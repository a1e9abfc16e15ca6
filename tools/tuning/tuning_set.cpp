#include "tools/tuning/tuning_set.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>

#include "tools/error.h"
#include "tools/picture/output_file.h"
#include "vorn_tuning.h"

namespace vorn::tool {
namespace {

static_assert(sizeof(ycnr_ynr_tuning_param) == kLumaFields * sizeof(int32_t), "fields in a row");
static_assert(sizeof(ycnr_cnr_tuning_param) == kChromaFields * sizeof(int32_t), "fields in a row");

struct set_deleter {
  void operator()(vorn_tuning_set* set) const { vorn_tuning_free(set); }
};
using library_set = std::unique_ptr<vorn_tuning_set, set_deleter>;

[[noreturn]] void fail(const vorn_tuning_fault& fault) {
  throw error("", fault.text);
}

library_set to_library(const tuning_set& set) {
  vorn_tuning_fault fault;
  library_set made(vorn_tuning_new(&fault));
  if (!made || vorn_tuning_describe(made.get(), set.name.c_str(), set.description.c_str(),
                                    &fault) != VORN_TUNING_OK) {
    fail(fault);
  }
  for (const tuning_entry& entry : set.entries) {
    const int32_t index =
        vorn_tuning_put(made.get(), entry.gain, &entry.values.luma, &entry.values.chroma, &fault);
    if (index < 0 || vorn_tuning_annotate(made.get(), index, entry.name.c_str(),
                                          entry.notes.c_str(), &fault) != VORN_TUNING_OK) {
      fail(fault);
    }
  }
  return made;
}

tuning_set from_library(const library_set& set, const vorn_tuning_fault& fault) {
  if (!set) fail(fault);
  tuning_set result;
  result.name = vorn_tuning_name(set.get());
  result.description = vorn_tuning_description(set.get());
  for (int32_t i = 0; i < vorn_tuning_count(set.get()); ++i) {
    tuning_entry entry;
    entry.gain = vorn_tuning_gain(set.get(), i);
    entry.name = vorn_tuning_entry_name(set.get(), i);
    entry.notes = vorn_tuning_entry_notes(set.get(), i);
    vorn_tuning_get(set.get(), i, &entry.values.luma, &entry.values.chroma);
    result.entries.push_back(entry);
  }
  return result;
}

std::string to_dump_text(const tuning& t, bool luma) {
  std::string text;
  for (int i = 0; i < kTuningFields; i++) {
    if (tuning_field_at(i).luma != luma) continue;
    text +=
        std::string(tuning_field_at(i).dump_name) + " " + std::to_string(get_field(t, i)) + " \n";
  }
  return text;
}

}  // namespace

const tuning_field& tuning_field_at(int index) {
  static const std::array<tuning_field, kTuningFields> fields = [] {
    std::array<tuning_field, kTuningFields> made;
    for (int i = 0; i < kTuningFields; ++i) {
      const vorn_tuning_field& field = *vorn_tuning_field_at(i);
      made[i] = {field.record == VORN_TUNING_LUMA, field.key, field.level, field.dump_name};
    }
    return made;
  }();
  return fields[index];
}

int32_t get_field(const tuning& t, int index) {
  int32_t value;
  if (index < kLumaFields) {
    std::memcpy(&value, reinterpret_cast<const char*>(&t.luma) + 4 * index, 4);
  } else {
    std::memcpy(&value, reinterpret_cast<const char*>(&t.chroma) + 4 * (index - kLumaFields), 4);
  }
  return value;
}

void set_field(tuning& t, int index, int32_t value) {
  if (index < kLumaFields) {
    std::memcpy(reinterpret_cast<char*>(&t.luma) + 4 * index, &value, 4);
  } else {
    std::memcpy(reinterpret_cast<char*>(&t.chroma) + 4 * (index - kLumaFields), &value, 4);
  }
}

const tuning_entry& tuning_set::nearest(double gain) const {
  std::vector<double> gains;
  for (const tuning_entry& entry : entries) gains.push_back(entry.gain);
  const int32_t index = vorn_tuning_nearest_gain(gains.data(), int32_t(gains.size()), gain);
  if (index < 0) throw error("gain", "must be a finite number above 0");
  return entries[index];
}

tuning_set parse_tuning_set(const std::string& text, const std::string& file_name) {
  vorn_tuning_fault fault;
  const library_set set(vorn_tuning_parse(text.data(), text.size(), file_name.c_str(), &fault));
  return from_library(set, fault);
}

tuning_set read_tuning_set(const std::string& path) {
  if (path == "-") return parse_tuning_set(read_text_file(path), "standard input");
  vorn_tuning_fault fault;
  const library_set set(vorn_tuning_load(path.c_str(), &fault));
  return from_library(set, fault);
}

tuning_set load_or_default(const std::string& path) {
  return path.empty() ? default_tuning_set() : read_tuning_set(path);
}

std::string tuning_set_to_json(const tuning_set& set) {
  const library_set made = to_library(set);
  std::string text(vorn_tuning_json(made.get(), nullptr, 0), 0);
  vorn_tuning_json(made.get(), text.data(), text.size() + 1);
  return text;
}

std::string tuning_set_to_c_header(const tuning_set& set, const std::string& name) {
  const library_set made = to_library(set);
  std::string text(vorn_tuning_c_header(made.get(), name.c_str(), nullptr, 0), 0);
  if (text.empty()) throw error(name, "is not a name in C");
  vorn_tuning_c_header(made.get(), name.c_str(), text.data(), text.size() + 1);
  return text;
}

void check_tuning(const tuning& t, const std::string& where) {
  vorn_tuning_fault fault;
  if (vorn_tuning_check(&t.luma, &t.chroma, &fault) != VORN_TUNING_OK) {
    throw error(where, fault.text);
  }
}

const tuning_set& default_tuning_set() {
  static const tuning_set set = [] {
    vorn_tuning_fault fault;
    return from_library(library_set(vorn_tuning_default(&fault)), fault);
  }();
  return set;
}

std::string luma_to_dump_text(const tuning& t) {
  return to_dump_text(t, true);
}
std::string chroma_to_dump_text(const tuning& t) {
  return to_dump_text(t, false);
}

bool parse_dump_text(const std::string& text, const std::string& file_name, tuning& t) {
  const auto fail = [&](int line, const std::string& cause) {
    throw error(file_name + ":" + std::to_string(line), cause);
  };
  // Luma dumps are the ones with a layer count.
  const bool luma = text.rfind("layer ", 0) == 0 || text.find("\nlayer ") != std::string::npos;
  bool seen[kTuningFields] = {};
  int line = 0;
  for (size_t at = 0; at < text.size();) {
    line++;
    size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    std::string row = text.substr(at, end - at);
    at = end + 1;
    while (!row.empty() && (row.back() == ' ' || row.back() == '\r')) row.pop_back();
    if (row.empty()) continue;
    const size_t blank = row.find(' ');
    const std::string name = row.substr(0, blank);
    int index = 0;
    while (index < kTuningFields &&
           !(tuning_field_at(index).luma == luma && name == tuning_field_at(index).dump_name)) {
      index++;
    }
    if (index == kTuningFields) fail(line, "unknown field \"" + name.substr(0, 40) + "\"");
    if (seen[index]) fail(line, "\"" + name + "\" is there twice");
    seen[index] = true;
    if (blank == std::string::npos) fail(line, "\"" + name + "\" has no value");
    const std::string digits = row.substr(blank + 1);
    size_t used = 0;
    long long value = 0;
    const bool starts =
        !digits.empty() && (digits[0] == '-' || (digits[0] >= '0' && digits[0] <= '9'));
    if (starts && digits.size() <= 11) {
      char* stop = nullptr;
      value = std::strtoll(digits.c_str(), &stop, 10);
      used = size_t(stop - digits.c_str());
    }
    if (used == 0 || used != digits.size() || value < std::numeric_limits<int32_t>::min() ||
        value > std::numeric_limits<int32_t>::max()) {
      fail(line, "\"" + name + "\" must be a whole number of 32 bits");
    }
    set_field(t, index, int32_t(value));
  }
  for (int i = 0; i < kTuningFields; i++) {
    if (tuning_field_at(i).luma == luma && !seen[i]) {
      fail(std::max(line, 1),
           std::string("field \"") + tuning_field_at(i).dump_name + "\" is missing");
    }
  }
  return luma;
}

}  // namespace vorn::tool
