#include "tuning/reader.h"

#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tuning/fields.h"

namespace vorn::tunings {
namespace {

// Feeds the parser and counts lines. Copies share the counter.
struct line_iterator {
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;
  const char* at;
  int32_t* line;
  reference operator*() const { return *at; }
  line_iterator& operator++() {
    if (*at == '\n') ++*line;
    ++at;
    return *this;
  }
  line_iterator operator++(int) {
    line_iterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const line_iterator& other) const { return at == other.at; }
  bool operator!=(const line_iterator& other) const { return at != other.at; }
};

// The keys of the objects; a record's are those of the field table.
constexpr const char* kRootKeys[] = {"$schema", "format",      "version",
                                     "name",    "description", "entries"};
enum { kSchemaKey, kFormatKey, kVersionKey, kNameKey, kDescriptionKey, kEntriesKey };
constexpr unsigned kRootNeeds = 1u << kFormatKey | 1u << kVersionKey | 1u << kEntriesKey;
constexpr const char* kEntryKeys[] = {"gain", "name", "notes", "luma", "chroma"};
enum { kGainKey, kEntryNameKey, kNotesKey, kLumaKey, kChromaKey };
constexpr unsigned kEntryNeeds = 1u << kGainKey | 1u << kLumaKey | 1u << kChromaKey;

// One JSON value that is no object and no array.
struct scalar {
  enum kind_t { number, text, other } kind = other;
  double value = 0;
  const std::string* string = nullptr;
  std::string shown;  // for messages
};

// Takes the parser's events straight into the set: what is not expected where the reader stands is
// refused at once, so that no text makes it build anything large or deep.
class set_builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit set_builder(const int32_t* line) : line_(line) {}
  set take() { return std::move(set_); }

  bool null() override { return take_scalar({scalar::other, 0, nullptr, "null"}); }
  bool boolean(bool value) override {
    return take_scalar({scalar::other, 0, nullptr, value ? "true" : "false"});
  }
  bool number_integer(number_integer_t value) override {
    return take_scalar({scalar::number, double(value), nullptr, std::to_string(value)});
  }
  bool number_unsigned(number_unsigned_t value) override {
    return take_scalar({scalar::number, double(value), nullptr, std::to_string(value)});
  }
  bool number_float(number_float_t value, const string_t& written) override {
    return take_scalar({scalar::number, value, nullptr, printable(written, 24)});
  }
  bool string(string_t& value) override {
    return take_scalar({scalar::text, 0, &value, "\"" + printable(value, 24) + "\""});
  }
  bool binary(binary_t&) override { return false; }  // not in JSON text

  bool start_object(size_t) override {
    if (place_ == before) {
      place_ = root;
      begin_line_ = *line_;
    } else if (place_ == entries) {
      place_ = in_entry;
      entry_line_ = *line_;
      entry_seen_ = 0;
      entry_ = {};
    } else if (place_ == in_entry && (key_ == kLumaKey || key_ == kChromaKey)) {
      place_ = record;
      luma_ = key_ == kLumaKey;
      record_line_ = key_line_;
      seen_ = 0;
    } else {
      refuse("an object");
    }
    return true;
  }
  bool start_array(size_t) override {
    if (place_ == root && key_ == kEntriesKey) {
      place_ = entries;
    } else if (place_ == record && kFieldTable[key_].level == 0) {
      place_ = levels;
      level_ = 0;
    } else {
      refuse("an array");
    }
    return true;
  }
  bool end_array() override {
    if (place_ == entries) {
      if (set_.entries.empty()) fail(key_line_, "entries", "\"entries\" is empty");
      place_ = root;
    } else {
      if (level_ != kLevels) refuse_levels("");
      place_ = record;
    }
    return true;
  }
  bool end_object() override {
    if (place_ == root) {
      need(kRootKeys, kRootNeeds, root_seen_, begin_line_);
      place_ = after;
    } else if (place_ == in_entry) {
      need(kEntryKeys, kEntryNeeds, entry_seen_, entry_line_);
      set_.entries.push_back(std::move(entry_));
      place_ = entries;
    } else {
      for (int i = first_field(); i < last_field(); i++) {
        if (kFieldTable[i].level > 0 || seen_ >> i & 1) continue;
        const std::string name = group() + kFieldTable[i].key;
        fail(record_line_, name, "field \"" + name + "\" is missing");
      }
      place_ = in_entry;
    }
    return true;
  }
  bool key(string_t& name) override {
    key_line_ = *line_;
    if (place_ == root) {
      key_ = find(kRootKeys, std::size(kRootKeys), name, root_seen_);
    } else if (place_ == in_entry) {
      key_ = find(kEntryKeys, std::size(kEntryKeys), name, entry_seen_);
    } else {
      key_ = first_field();
      while (key_ < last_field() && (kFieldTable[key_].level > 0 || name != kFieldTable[key_].key))
        key_++;
      if (key_ == last_field()) unknown(name);
      mark(seen_, key_, group() + name);
    }
    return true;
  }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception& e) override {
    // "[json.exception...] parse error at line 3, column 5: cause" or "[json.exception...] cause"
    std::string what = e.what();
    what.erase(0, what.find("] ") + 2);
    if (what.rfind("parse error at", 0) == 0) what.erase(0, what.find(": ") + 2);
    fail(*line_, "", "not JSON: " + printable(what, 300));
  }

 private:
  enum place_t { before, root, entries, in_entry, record, levels, after };

  [[noreturn]] static void fail(int32_t line, const std::string& field, const std::string& cause) {
    throw error{VORN_TUNING_INVALID, cause, field, line};
  }

  std::string group() const { return luma_ ? "luma." : "chroma."; }
  int first_field() const { return luma_ ? 0 : kLumaFields; }
  int last_field() const { return luma_ ? kLumaFields : kFields; }

  [[noreturn]] void unknown(const std::string& name) const {
    const std::string full = (place_ == record ? group() : "") + printable(name, 40);
    fail(key_line_, full, "unknown field \"" + full + "\"");
  }
  void mark(unsigned& seen, int index, const std::string& name) const {
    if (seen >> index & 1) fail(key_line_, name, "\"" + name + "\" is there twice");
    seen |= 1u << index;
  }
  int find(const char* const* keys, size_t count, const std::string& name, unsigned& seen) const {
    for (size_t i = 0; i < count; i++) {
      if (name != keys[i]) continue;
      mark(seen, int(i), name);
      return int(i);
    }
    unknown(name);
  }
  template <size_t count>
  static void need(const char* const (&keys)[count], unsigned needed, unsigned seen, int32_t line) {
    for (size_t i = 0; i < count; i++) {
      if ((needed & ~seen) >> i & 1) {
        fail(line, keys[i], std::string("field \"") + keys[i] + "\" is missing");
      }
    }
  }

  // Says what should stand where the reader is, instead of what was found.
  [[noreturn]] void refuse(const std::string& found) const {
    std::string field, wanted;
    if (place_ == before) fail(*line_, "", "the file must be an object, not " + found);
    if (place_ == entries) fail(*line_, "", "an entry must be an object, not " + found);
    if (place_ == root) {
      field = kRootKeys[key_];
      wanted = key_ == kEntriesKey   ? "an array"
               : key_ == kVersionKey ? "1"
               : key_ == kFormatKey  ? "\"" + std::string(kFormat) + "\""
                                     : "a text";
    } else if (place_ == in_entry) {
      field = kEntryKeys[key_];
      wanted = key_ == kGainKey                         ? kGainRange
               : key_ == kLumaKey || key_ == kChromaKey ? "an object"
                                                        : "a text";
    } else {
      if (kFieldTable[key_].level >= 0 && (place_ == record || level_ == kLevels)) {
        refuse_levels(place_ == record ? ", not " + found : "");
      }
      const vorn_tuning_field& at = kFieldTable[place_ == record ? key_ : key_ + level_];
      field = field_name(at);
      wanted = range_text(at);
    }
    fail(key_line_, field, "\"" + field + "\" must be " + wanted + ", not " + found);
  }
  [[noreturn]] void refuse_levels(const std::string& found) const {
    const std::string name = group() + kFieldTable[key_].key;
    fail(key_line_, name,
         "\"" + name + "\" must be an array of five numbers, level 0 first" + found);
  }

  std::string text_of(const scalar& s) const {
    if (s.kind != scalar::text || !is_text(*s.string)) refuse(s.shown);
    return *s.string;
  }

  bool take_scalar(const scalar& s) {
    if (place_ == root) {
      if (key_ == kNameKey) {
        set_.name = text_of(s);
      } else if (key_ == kDescriptionKey) {
        set_.description = text_of(s);
      } else if (key_ == kSchemaKey) {
        text_of(s);
      } else if (key_ == kFormatKey) {
        if (s.kind != scalar::text || *s.string != kFormat) refuse(s.shown);
      } else if (key_ != kVersionKey || s.kind != scalar::number || s.value != 1) {
        refuse(s.shown);
      }
    } else if (place_ == in_entry) {
      take_entry_scalar(s);
    } else if (place_ == record && kFieldTable[key_].level < 0) {
      take_number(s, key_);
    } else if (place_ == levels) {
      if (level_ == kLevels) refuse_levels("");
      take_number(s, key_ + level_);
      level_++;
    } else {
      refuse(s.shown);
    }
    return true;
  }
  void take_entry_scalar(const scalar& s) {
    if (key_ == kEntryNameKey) {
      entry_.name = text_of(s);
    } else if (key_ == kNotesKey) {
      entry_.notes = text_of(s);
    } else if (key_ == kGainKey && s.kind == scalar::number && is_gain(s.value)) {
      if (!set_.entries.empty() && !(set_.entries.back().gain < s.value)) {
        fail(key_line_, "gain", "\"gain\" must rise from entry to entry");
      }
      entry_.gain = s.value;
    } else {
      refuse(s.shown);
    }
  }
  void take_number(const scalar& s, int index) {
    // Whole numbers of 32 bits are exact as doubles.
    if (s.kind != scalar::number || s.value != std::floor(s.value) || std::fabs(s.value) > 1e10 ||
        !in_range(kFieldTable[index], int64_t(s.value))) {
      refuse(s.shown);
    }
    set_field(entry_, index, int32_t(s.value));
  }

  const int32_t* line_;
  set set_;
  entry entry_;
  place_t place_ = before;
  bool luma_ = false;
  int key_ = 0;    // index into the keys of the object at hand; into kFieldTable in a record
  int level_ = 0;  // items of the array at hand so far
  unsigned root_seen_ = 0, entry_seen_ = 0, seen_ = 0;  // keys that were there, a bit each
  // The parser reads one character past a number, which may be the line's end; the line of a value
  // is therefore that of its key.
  int32_t key_line_ = 1;
  int32_t begin_line_ = 1, entry_line_ = 1, record_line_ = 1;
};

}  // namespace

set read_json(const char* text, size_t size) {
  if (size > kLargestText) throw error{VORN_TUNING_INVALID, "larger than 4 MiB: no tuning set"};
  int32_t line = 1;
  set_builder builder(&line);
  nlohmann::json::sax_parse(line_iterator{text, &line}, line_iterator{text + size, &line},
                            &builder);
  return builder.take();
}

}  // namespace vorn::tunings
