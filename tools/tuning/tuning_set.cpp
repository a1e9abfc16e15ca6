#include "tools/tuning/tuning_set.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "tools/error.h"
#include "tools/picture/output_file.h"

namespace vorn::tool {

extern const char* const kDefaultTuningJson;

namespace {

static_assert(sizeof(ycnr_ynr_tuning_param) == kLumaFields * sizeof(int32_t), "fields in a row");
static_assert(sizeof(ycnr_cnr_tuning_param) == kChromaFields * sizeof(int32_t), "fields in a row");

// In the order of the records.
constexpr tuning_field kFields[kTuningFields] = {
    {true, "enable", -1, "enable"},
    {true, "layer", -1, "layer"},
    {true, "pIntensity", 0, "0pIntensity"},
    {true, "pIntensity", 1, "1pIntensity"},
    {true, "pIntensity", 2, "2pIntensity"},
    {true, "pIntensity", 3, "3pIntensity"},
    {true, "pIntensity", 4, "4pIntensity"},
    {true, "pRadius", 0, "0pRadius"},
    {true, "pRadius", 1, "1pRadius"},
    {true, "pRadius", 2, "2pRadius"},
    {true, "pRadius", 3, "3pRadius"},
    {true, "pRadius", 4, "4pRadius"},
    {true, "param0", -1, "param0"},
    {true, "param1", -1, "param1"},
    {true, "param2", -1, "param2"},
    {false, "enable", -1, "enable"},
    {false, "range_factor", -1, "range_factor"},
    {false, "smooth_radius", -1, "smooth_radius"},
    {false, "scale", -1, "scale"},
    {false, "step", -1, "step"},
    {false, "color_edge_u", -1, "color_edge_u"},
    {false, "color_edge_v", -1, "color_edge_v"},
    {false, "saturation", -1, "saturation"},
    {false, "param0", -1, "param0"},
    {false, "param1", -1, "param1"},
    {false, "param2", -1, "param2"},
};
constexpr int kLevels = 5;

// JSON text as a tree that remembers the line of every value, which messages need.
struct node {
  enum kind_t { object, array, integer, real, text, other };
  kind_t kind = other;
  int line = 0;
  int64_t whole = 0;
  double number = 0;  // of integers too
  std::string string;
  std::vector<std::pair<std::string, node>> members;
  std::vector<node> items;
};

// Feeds the parser and counts lines. Copies share the counter.
struct line_iterator {
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;
  const char* at;
  int* line;
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

class tree_builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  tree_builder(const std::string& file, const int* line) : file_(file), line_(line) {}
  node take() { return std::move(root_); }

  bool null() override { return add({}); }
  bool boolean(bool) override { return add({}); }
  bool number_integer(number_integer_t value) override { return add_integer(value); }
  bool number_unsigned(number_unsigned_t value) override {
    constexpr uint64_t kLargest = std::numeric_limits<int64_t>::max();
    return add_integer(int64_t(std::min<uint64_t>(value, kLargest)));
  }
  bool number_float(number_float_t value, const string_t&) override {
    node n;
    n.kind = node::real;
    n.number = value;
    return add(std::move(n));
  }
  bool string(string_t& value) override {
    node n;
    n.kind = node::text;
    n.string = value;
    return add(std::move(n));
  }
  bool binary(binary_t&) override { return add({}); }
  bool start_object(size_t) override { return open(node::object); }
  bool start_array(size_t) override { return open(node::array); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool key(string_t& value) override {
    for (const auto& [name, member] : stack_.back()->members) {
      if (name == value) fail(*line_, "\"" + value + "\" is there twice");
    }
    key_ = value;
    key_line_ = *line_;
    return true;
  }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception& e) override {
    std::string what = e.what();  // "[json.exception...] parse error at line 3, column 5: cause"
    const size_t colon = what.find(": ");
    fail(*line_, "not JSON: " + (colon == std::string::npos ? what : what.substr(colon + 2)));
  }

  [[noreturn]] void fail(int line, const std::string& cause) const {
    throw error(file_ + ":" + std::to_string(line), cause);
  }

 private:
  bool add_integer(int64_t value) {
    node n;
    n.kind = node::integer;
    n.whole = value;
    n.number = double(value);
    return add(std::move(n));
  }
  bool add(node n) {
    place(std::move(n));
    return true;
  }
  // The parser reads one character past a number, which may be the line's end; a member's line is
  // therefore that of its key.
  node* place(node n) {
    if (stack_.empty()) {
      n.line = *line_;
      root_ = std::move(n);
      return &root_;
    }
    node& parent = *stack_.back();
    if (parent.kind == node::object) {
      n.line = key_line_;
      parent.members.emplace_back(key_, std::move(n));
      return &parent.members.back().second;
    }
    n.line = n.kind == node::object ? *line_ : parent.line;
    parent.items.push_back(std::move(n));
    return &parent.items.back();
  }
  bool open(node::kind_t kind) {
    constexpr size_t kDeepest = 8;  // a set needs 4
    if (stack_.size() >= kDeepest) fail(*line_, "nested too deep for a tuning set");
    node n;
    n.kind = kind;
    stack_.push_back(place(std::move(n)));  // stays valid: only the deepest vector grows
    return true;
  }
  bool close() {
    stack_.pop_back();
    return true;
  }

  const std::string& file_;
  const int* line_;
  node root_;
  std::vector<node*> stack_;
  std::string key_;
  int key_line_ = 0;
};

// Turns the tree into a set.
class set_reader {
 public:
  explicit set_reader(const std::string& file) : file_(file) {}

  tuning_set read(const node& root) const {
    need(root, node::object, "the file", "an object");
    allow(root, {"$schema", "format", "version", "name", "description", "entries"}, "");
    const node& format = member(root, "format", "");
    if (format.kind != node::text || format.string != kFormat) {
      fail(format, std::string("\"format\" must be \"") + kFormat + "\"");
    }
    const node& version = member(root, "version", "");
    if (version.kind != node::integer || version.whole != 1) fail(version, "\"version\" must be 1");
    tuning_set set;
    for (const auto& [key, value] : root.members) {
      if (key == "name") set.name = text(value, key);
      if (key == "description") set.description = text(value, key);
    }
    const node& entries = member(root, "entries", "");
    need(entries, node::array, "\"entries\"", "an array");
    if (entries.items.empty()) fail(entries, "\"entries\" is empty");
    for (const node& item : entries.items) {
      tuning_entry entry = read_entry(item);
      if (!set.entries.empty() && !(set.entries.back().gain < entry.gain)) {
        fail(member(item, "gain", ""), "\"gain\" must rise from entry to entry");
      }
      set.entries.push_back(entry);
    }
    return set;
  }

  static constexpr const char* kFormat = "vorn-ycnr tuning set";

 private:
  tuning_entry read_entry(const node& item) const {
    need(item, node::object, "an entry", "an object");
    allow(item, {"gain", "luma", "chroma"}, "");
    tuning_entry entry;
    const node& gain = member(item, "gain", "");
    if (gain.kind != node::integer && gain.kind != node::real)
      fail(gain, "\"gain\" must be a number");
    if (!(gain.number > 0 && gain.number <= 1e6)) fail(gain, "\"gain\" must be above 0, up to 1e6");
    entry.gain = gain.number;
    for (const bool luma : {true, false}) {
      const std::string group = luma ? "luma" : "chroma";
      const node& record = member(item, group, "");
      need(record, node::object, "\"" + group + "\"", "an object");
      std::vector<std::string> keys;
      for (int i = 0; i < kTuningFields; i++) {
        if (kFields[i].luma == luma) keys.push_back(kFields[i].key);
      }
      allow(record, keys, group + ".");
      for (int i = 0; i < kTuningFields; i++) {
        const tuning_field& field = kFields[i];
        if (field.luma != luma) continue;
        const std::string name = group + "." + field.key;
        const node* value = &member(record, field.key, group + ".");
        if (field.level >= 0) {
          if (value->kind != node::array || value->items.size() != kLevels) {
            fail(*value, "\"" + name + "\" must be an array of five numbers, level 0 first");
          }
          value = &value->items[field.level];
        }
        if (value->kind != node::integer || value->whole < std::numeric_limits<int32_t>::min() ||
            value->whole > std::numeric_limits<int32_t>::max()) {
          fail(*value, "\"" + name + "\" must be a whole number of 32 bits");
        }
        set_field(entry.values, i, int32_t(value->whole));
      }
    }
    return entry;
  }

  [[noreturn]] void fail(const node& at, const std::string& cause) const {
    throw error(file_ + ":" + std::to_string(at.line), cause);
  }
  void need(const node& n, node::kind_t kind, const std::string& what, const char* form) const {
    if (n.kind != kind) fail(n, what + " must be " + form);
  }
  void allow(const node& n, const std::vector<std::string>& keys, const std::string& prefix) const {
    for (const auto& [key, value] : n.members) {
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        fail(value, "unknown field \"" + prefix + key + "\"");
      }
    }
  }
  const node& member(const node& n, const std::string& key, const std::string& prefix) const {
    for (const auto& [name, value] : n.members) {
      if (name == key) return value;
    }
    fail(n, "field \"" + prefix + key + "\" is missing");
  }
  std::string text(const node& n, const std::string& key) const {
    if (n.kind != node::text) fail(n, "\"" + key + "\" must be a text");
    return n.string;
  }

  const std::string& file_;
};

std::string to_dump_text(const tuning& t, bool luma) {
  std::string text;
  for (int i = 0; i < kTuningFields; i++) {
    if (kFields[i].luma != luma) continue;
    text += std::string(kFields[i].dump_name) + " " + std::to_string(get_field(t, i)) + " \n";
  }
  return text;
}

std::string gain_text(double gain) {
  return gain == std::floor(gain) ? std::to_string(int64_t(gain)) : nlohmann::json(gain).dump();
}

}  // namespace

const tuning_field& tuning_field_at(int index) {
  return kFields[index];
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
  const tuning_entry* best = &entries.front();
  for (const tuning_entry& entry : entries) {
    if (std::fabs(std::log2(entry.gain / gain)) < std::fabs(std::log2(best->gain / gain))) {
      best = &entry;
    }
  }
  return *best;
}

tuning_set parse_tuning_set(const std::string& text, const std::string& file_name) {
  int line = 1;
  tree_builder builder(file_name, &line);
  const char* const begin = text.data();
  nlohmann::json::sax_parse(line_iterator{begin, &line}, line_iterator{begin + text.size(), &line},
                            &builder);
  return set_reader(file_name).read(builder.take());
}

tuning_set read_tuning_set(const std::string& path) {
  return parse_tuning_set(read_text_file(path), path == "-" ? "standard input" : path);
}

std::string tuning_set_to_json(const tuning_set& set) {
  // Written by hand, one record a line: sets are read and compared by people.
  std::string out =
      "{\n  \"format\": " + nlohmann::json(set_reader::kFormat).dump() + ",\n  \"version\": 1";
  if (!set.name.empty()) out += ",\n  \"name\": " + nlohmann::json(set.name).dump();
  if (!set.description.empty()) {
    out += ",\n  \"description\": " + nlohmann::json(set.description).dump();
  }
  out += ",\n  \"entries\": [";
  for (size_t e = 0; e < set.entries.size(); e++) {
    const tuning_entry& entry = set.entries[e];
    out += (e ? ",\n" : "\n") + std::string("    { \"gain\": ") + gain_text(entry.gain);
    for (const bool luma : {true, false}) {
      out += std::string(",\n      \"") + (luma ? "luma" : "chroma") + "\": { ";
      bool first = true;
      for (int i = 0; i < kTuningFields; i++) {
        const tuning_field& field = kFields[i];
        if (field.luma != luma) continue;
        if (field.level <= 0) {
          out += (first ? "\"" : ", \"") + std::string(field.key) +
                 "\": " + (field.level == 0 ? "[" : "");
        } else {
          out += ", ";
        }
        out += std::to_string(get_field(entry.values, i));
        if (field.level == kLevels - 1) out += "]";
        first = false;
      }
      out += " }";
    }
    out += " }";
  }
  return out + "\n  ]\n}\n";
}

const tuning_set& default_tuning_set() {
  static const tuning_set set = parse_tuning_set(kDefaultTuningJson, "default tuning set");
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
           !(kFields[index].luma == luma && name == kFields[index].dump_name)) {
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
    if (kFields[i].luma == luma && !seen[i]) {
      fail(std::max(line, 1), std::string("field \"") + kFields[i].dump_name + "\" is missing");
    }
  }
  return luma;
}

}  // namespace vorn::tool
