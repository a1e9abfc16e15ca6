// The C calls of vorn_tuning.h over the units beside it; no exception leaves from here.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "tuning/fields.h"
#include "tuning/file.h"
#include "tuning/reader.h"
#include "tuning/set.h"

struct vorn_tuning_set : vorn::tunings::set {};

namespace vorn::tunings {

extern const char* const kDefaultSet;  // the JSON text, written by the build

namespace {

// Cuts text into a field of a record; where is too long for it, its end matters most.
template <size_t size>
void put_text(char (&field)[size], const std::string& text) {
  const size_t length = std::min(text.size(), size - 1);
  std::memcpy(field, text.data(), length);
  field[length] = 0;
}

void tell(vorn_tuning_fault* fault, const error& e, const std::string& file) {
  if (!fault) return;
  *fault = {};
  fault->code = e.code;
  fault->system_error = e.system_error;
  fault->line = e.line;
  put_text(fault->field, e.field);
  constexpr size_t kLongestName = 400;
  std::string where = file.size() > kLongestName
                          ? "..." + printable(file.substr(file.size() - kLongestName), kLongestName)
                          : printable(file, kLongestName);
  if (e.line > 0) where += ":" + std::to_string(e.line);
  put_text(fault->text, where.empty() ? e.cause : where + ": " + e.cause);
}

// Runs work; a fault is told under the file's name and becomes its code.
template <typename Work>
int32_t guarded(vorn_tuning_fault* fault, const char* file, const Work& work) {
  try {
    work();
    return VORN_TUNING_OK;
  } catch (const error& e) {
    try {
      tell(fault, e, file ? file : "");
    } catch (const std::bad_alloc&) {
    }
    return e.code;
  } catch (const std::bad_alloc&) {
    if (fault) {
      *fault = {};
      fault->code = VORN_TUNING_MEMORY;
      std::strcpy(fault->text, vorn_tuning_result_text(VORN_TUNING_MEMORY));
    }
    return VORN_TUNING_MEMORY;
  }
}

[[noreturn]] void refuse_argument(const char* cause) {
  throw error{VORN_TUNING_ARGUMENT, cause};
}

// A set of what make() returns, or null.
template <typename Make>
vorn_tuning_set* made(vorn_tuning_fault* fault, const char* file, const Make& make) {
  vorn_tuning_set* result = nullptr;
  guarded(fault, file, [&] { result = new vorn_tuning_set{make()}; });
  return result;
}

const entry* entry_at(const vorn_tuning_set* s, int32_t index) {
  return s && index >= 0 && size_t(index) < s->entries.size() ? &s->entries[size_t(index)]
                                                              : nullptr;
}

std::string text_argument(const char* text, const char* what) {
  std::string result = text ? text : "";
  if (!is_text(result)) {
    throw error{VORN_TUNING_ARGUMENT, "\"" + std::string(what) + "\" is not UTF-8", what};
  }
  return result;
}

// Index of the gain nearest in stops among count rising ones. Two gains are equally far, in stops,
// from the square root of their product; comparing products needs no logarithm and is what the
// generated C header does as well.
template <typename GainAt>
int32_t nearest(int32_t count, double gain, const GainAt& gain_at) {
  if (count < 1 || !std::isfinite(gain) || !(gain > 0)) return VORN_TUNING_ARGUMENT;
  int32_t i = 0;
  while (i + 1 < count && gain * gain > gain_at(i) * gain_at(i + 1)) i++;
  return i;
}

// Copies a text as snprintf does.
size_t hand_out(const std::string& text, char* buffer, size_t size) {
  if (buffer && size > 0) {
    const size_t length = std::min(text.size(), size - 1);
    std::memcpy(buffer, text.data(), length);
    buffer[length] = 0;
  }
  return text.size();
}

bool is_identifier(const char* name) {
  const auto letter = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
  };
  if (!name || !letter(*name)) return false;
  for (; *name; name++) {
    if (!letter(*name) && !(*name >= '0' && *name <= '9')) return false;
  }
  return true;
}

}  // namespace

}  // namespace vorn::tunings

using namespace vorn::tunings;

vorn_tuning_set* vorn_tuning_load(const char* path, vorn_tuning_fault* fault) {
  return made(fault, path, [&] {
    if (!path) refuse_argument("no file name");
    const std::string text = read_file(path, kLargestText);
    return vorn_tuning_set{read_json(text.data(), text.size())};
  });
}

vorn_tuning_set* vorn_tuning_parse(const void* text, size_t size, const char* name,
                                   vorn_tuning_fault* fault) {
  return made(fault, name ? name : "tuning", [&] {
    if (!text && size > 0) refuse_argument("no text");
    return vorn_tuning_set{read_json(text ? static_cast<const char*>(text) : "", size)};
  });
}

vorn_tuning_set* vorn_tuning_default(vorn_tuning_fault* fault) {
  return vorn_tuning_parse(kDefaultSet, std::strlen(kDefaultSet), "default tuning set", fault);
}

void vorn_tuning_free(vorn_tuning_set* set) {
  delete set;
}

const char* vorn_tuning_name(const vorn_tuning_set* set) {
  return set ? set->name.c_str() : "";
}

const char* vorn_tuning_description(const vorn_tuning_set* set) {
  return set ? set->description.c_str() : "";
}

int32_t vorn_tuning_count(const vorn_tuning_set* set) {
  return set ? int32_t(set->entries.size()) : 0;
}

double vorn_tuning_gain(const vorn_tuning_set* set, int32_t index) {
  const entry* const e = entry_at(set, index);
  return e ? e->gain : 0;
}

const char* vorn_tuning_entry_name(const vorn_tuning_set* set, int32_t index) {
  const entry* const e = entry_at(set, index);
  return e ? e->name.c_str() : "";
}

const char* vorn_tuning_entry_notes(const vorn_tuning_set* set, int32_t index) {
  const entry* const e = entry_at(set, index);
  return e ? e->notes.c_str() : "";
}

int32_t vorn_tuning_get(const vorn_tuning_set* set, int32_t index, ycnr_ynr_tuning_param* luma,
                        ycnr_cnr_tuning_param* chroma) {
  const entry* const e = entry_at(set, index);
  if (!e) return VORN_TUNING_ARGUMENT;
  if (luma) *luma = e->luma;
  if (chroma) *chroma = e->chroma;
  return VORN_TUNING_OK;
}

int32_t vorn_tuning_nearest(const vorn_tuning_set* set, double gain) {
  return nearest(vorn_tuning_count(set), gain, [&](int32_t i) { return set->entries[i].gain; });
}

int32_t vorn_tuning_nearest_gain(const double* gains, int32_t count, double gain) {
  return nearest(gains ? count : 0, gain, [&](int32_t i) { return gains[i]; });
}

int32_t vorn_tuning_for_gain(const vorn_tuning_set* set, double gain, ycnr_ynr_tuning_param* luma,
                             ycnr_cnr_tuning_param* chroma) {
  return vorn_tuning_get(set, vorn_tuning_nearest(set, gain), luma, chroma);
}

vorn_tuning_set* vorn_tuning_new(vorn_tuning_fault* fault) {
  return made(fault, nullptr, [] { return vorn_tuning_set{}; });
}

int32_t vorn_tuning_describe(vorn_tuning_set* set, const char* name, const char* description,
                             vorn_tuning_fault* fault) {
  return guarded(fault, nullptr, [&] {
    if (!set) refuse_argument("no set");
    std::string texts[] = {text_argument(name, "name"), text_argument(description, "description")};
    set->name.swap(texts[0]);
    set->description.swap(texts[1]);
  });
}

int32_t vorn_tuning_put(vorn_tuning_set* set, double gain, const ycnr_ynr_tuning_param* luma,
                        const ycnr_cnr_tuning_param* chroma, vorn_tuning_fault* fault) {
  int32_t index = 0;
  const int32_t code = guarded(fault, nullptr, [&] {
    if (!set || !luma || !chroma) refuse_argument("no set, or a record that is missing");
    check_gain(gain);
    check_records(luma, chroma);
    auto at = set->entries.begin();
    while (at != set->entries.end() && at->gain < gain) ++at;
    if (at == set->entries.end() || at->gain != gain) at = set->entries.insert(at, entry{gain});
    at->luma = *luma;
    at->chroma = *chroma;
    index = int32_t(at - set->entries.begin());
  });
  return code == VORN_TUNING_OK ? index : code;
}

int32_t vorn_tuning_annotate(vorn_tuning_set* set, int32_t index, const char* name,
                             const char* notes, vorn_tuning_fault* fault) {
  return guarded(fault, nullptr, [&] {
    if (!entry_at(set, index)) refuse_argument("no such entry");
    std::string texts[] = {text_argument(name, "name"), text_argument(notes, "notes")};
    set->entries[size_t(index)].name.swap(texts[0]);
    set->entries[size_t(index)].notes.swap(texts[1]);
  });
}

int32_t vorn_tuning_save(const vorn_tuning_set* set, const char* path, vorn_tuning_fault* fault) {
  return guarded(fault, path, [&] {
    if (!set || !path) refuse_argument("no set or no file name");
    if (set->entries.empty()) refuse_argument("the set has no entries");
    write_file(path, to_json(*set));
  });
}

size_t vorn_tuning_json(const vorn_tuning_set* set, char* buffer, size_t size) {
  size_t length = 0;
  if (set) guarded(nullptr, nullptr, [&] { length = hand_out(to_json(*set), buffer, size); });
  return length;
}

size_t vorn_tuning_c_header(const vorn_tuning_set* set, const char* name, char* buffer,
                            size_t size) {
  size_t length = 0;
  if (set && !set->entries.empty() && is_identifier(name)) {
    guarded(nullptr, nullptr, [&] { length = hand_out(to_c_header(*set, name), buffer, size); });
  }
  return length;
}

const vorn_tuning_field* vorn_tuning_field_at(int32_t index) {
  return index >= 0 && index < kFields ? &kFieldTable[index] : nullptr;
}

int32_t vorn_tuning_check(const ycnr_ynr_tuning_param* luma, const ycnr_cnr_tuning_param* chroma,
                          vorn_tuning_fault* fault) {
  return guarded(fault, nullptr, [&] { check_records(luma, chroma); });
}

const char* vorn_tuning_result_text(int32_t code) {
  switch (code) {
    case VORN_TUNING_OK:
      return "done";
    case VORN_TUNING_ARGUMENT:
      return "an argument cannot be used";
    case VORN_TUNING_INVALID:
      return "not a sound tuning set";
    case VORN_TUNING_IO:
      return "a file cannot be read or written";
    case VORN_TUNING_MEMORY:
      return "no memory left";
    default:
      return code > 0 ? "an index" : "an unknown result";
  }
}

const char* vorn_tuning_version() {
  return VORN_TUNING_VERSION;
}
