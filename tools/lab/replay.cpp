#include "tools/lab/replay.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <tuple>

#include "tools/error.h"
#include "tools/picture/output_file.h"

namespace vorn::tool {
namespace {

enum class dump_kind {
  luma_tuning,
  chroma_tuning,
  luma_input,
  luma_output,
  chroma_input,
  chroma_output
};

struct dump_file {
  dump_kind kind;
  std::string path;
  std::string stamp;
  int64_t seconds = 0;
  int width = 0;
  int height = 0;
};

// Local time without daylight rules: only differences count.
int64_t seconds_of(const std::string& stamp) {
  tm t = {};
  t.tm_year = std::atoi(stamp.substr(0, 4).c_str()) - 1900;
  t.tm_mon = std::atoi(stamp.substr(4, 2).c_str()) - 1;
  t.tm_mday = std::atoi(stamp.substr(6, 2).c_str());
  t.tm_hour = std::atoi(stamp.substr(8, 2).c_str());
  t.tm_min = std::atoi(stamp.substr(10, 2).c_str());
  t.tm_sec = std::atoi(stamp.substr(12, 2).c_str());
  return timegm(&t);
}

bool parse_name(const std::string& path, dump_file& dump) {
  // The save path is put before the name as it stands, so anything may precede it.
  static const std::regex kTuning("(?:.*_)?([0-9]{14})_(ynr2|cnr4)_turning_param\\.txt");
  static const std::regex kFrame(
      ".*(ynr2|cnr4)_(input|output)_([0-9]{1,6})x([0-9]{1,6})_([0-9]{14})\\.yuv");
  const std::string name = path.substr(path.rfind('/') + 1);
  std::smatch m;
  if (name.size() > 255) return false;
  dump.path = path;
  if (std::regex_match(name, m, kTuning)) {
    dump.kind = m[2] == "ynr2" ? dump_kind::luma_tuning : dump_kind::chroma_tuning;
    dump.stamp = m[1];
  } else if (std::regex_match(name, m, kFrame)) {
    const bool luma = m[1] == "ynr2", input = m[2] == "input";
    dump.kind = luma ? (input ? dump_kind::luma_input : dump_kind::luma_output)
                     : (input ? dump_kind::chroma_input : dump_kind::chroma_output);
    dump.width = std::atoi(m[3].str().c_str());
    dump.height = std::atoi(m[4].str().c_str());
    dump.stamp = m[5];
  } else {
    return false;
  }
  dump.seconds = seconds_of(dump.stamp);
  return true;
}

// Dumps by kind and size (0x0 for texts), each list by rising time.
class dump_index {
 public:
  explicit dump_index(const std::vector<dump_file>& dumps) {
    for (const dump_file& dump : dumps)
      lists_[key(dump.kind, dump.width, dump.height)].push_back(&dump);
  }
  // The latest dump of a kind and size that is not after `seconds`; of those of one second the one
  // that comes first. Null when there is none within kLongestFrame.
  const dump_file* latest(dump_kind kind, int width, int height, int64_t seconds) const {
    const auto found = lists_.find(key(kind, width, height));
    if (found == lists_.end()) return nullptr;
    const auto& list = found->second;
    const auto before = [](const dump_file* d, int64_t s) { return d->seconds < s; };
    const auto next = std::lower_bound(list.begin(), list.end(), seconds + 1, before);
    if (next == list.begin()) return nullptr;
    const int64_t at = (*std::prev(next))->seconds;
    if (seconds - at > kLongestFrame) return nullptr;
    return *std::lower_bound(list.begin(), next, at, before);
  }

 private:
  using list_key = std::tuple<dump_kind, int, int>;
  static list_key key(dump_kind kind, int width, int height) { return {kind, width, height}; }
  std::map<list_key, std::vector<const dump_file*>> lists_;
};

// Puts the dumps of one directory together. `dumps` is sorted by time.
class case_finder {
 public:
  case_finder(const std::vector<dump_file>& dumps, std::vector<std::string>& notes)
      : dumps_(dumps), index_(dumps), notes_(notes) {}

  std::vector<replay_case> find() {
    find_outputs();
    for (const dump_file& dump : dumps_) {
      if (dump.kind == dump_kind::luma_input || dump.kind == dump_kind::chroma_input) add(dump);
    }
    for (const dump_file& dump : dumps_) {
      if (dump.kind == dump_kind::chroma_output && !claimed_.count(&dump)) add_joint(dump);
    }
    for (const dump_file& dump : dumps_) {
      if (is_output(dump) && !claimed_.count(&dump))
        notes_.push_back(dump.path + ": no input frame and tuning fit its time and size");
    }
    return std::move(cases_);
  }

 private:
  static bool is_output(const dump_file& dump) {
    return dump.kind == dump_kind::luma_output || dump.kind == dump_kind::chroma_output;
  }

  // Of the outputs whose latest input is the same, the earliest is that input's.
  void find_outputs() {
    for (const dump_file& dump : dumps_) {
      if (!is_output(dump)) continue;
      const dump_kind kind =
          dump.kind == dump_kind::luma_output ? dump_kind::luma_input : dump_kind::chroma_input;
      const dump_file* const input = index_.latest(kind, dump.width, dump.height, dump.seconds);
      if (input) outputs_.emplace(input, &dump);
    }
  }

  std::string text_of(const dump_file& input, dump_kind kind) const {
    const dump_file* const text = index_.latest(kind, 0, 0, input.seconds);
    return text ? text->path : std::string();
  }

  static replay_case case_of(const dump_file& input) {
    replay_case c;
    c.width = input.width;
    c.height = input.height;
    c.stamp = input.stamp;
    c.input = input.path;
    return c;
  }

  void add(const dump_file& input) {
    replay_case c = case_of(input);
    c.luma = input.kind == dump_kind::luma_input;
    c.chroma = !c.luma;
    std::string& text = c.luma ? c.luma_tuning : c.chroma_tuning;
    text = text_of(input, c.luma ? dump_kind::luma_tuning : dump_kind::chroma_tuning);
    if (text.empty()) {
      notes_.push_back(input.path + ": no " + (c.luma ? "ynr2" : "cnr4") +
                       " tuning text fits its time");
      return;
    }
    const auto output = outputs_.find(&input);
    if (output != outputs_.end()) {
      claimed_.insert(output->second);
      c.output = output->second->path;
    }
    cases_.push_back(c);
  }

  // A result of chroma whose own input was not dumped: both algorithms ran from the luma input.
  void add_joint(const dump_file& result) {
    const dump_file* const input =
        index_.latest(dump_kind::luma_input, result.width, result.height, result.seconds);
    if (!input) return;
    replay_case c = case_of(*input);
    c.luma = c.chroma = true;
    c.luma_tuning = text_of(*input, dump_kind::luma_tuning);
    c.chroma_tuning = text_of(*input, dump_kind::chroma_tuning);
    c.output = result.path;
    if (c.luma_tuning.empty() || c.chroma_tuning.empty()) return;
    claimed_.insert(&result);
    cases_.push_back(c);
  }

  const std::vector<dump_file>& dumps_;
  const dump_index index_;
  std::vector<std::string>& notes_;
  std::map<const dump_file*, const dump_file*> outputs_;  // of an input
  std::set<const dump_file*> claimed_;
  std::vector<replay_case> cases_;
};

}  // namespace

std::string replay_case::result_name() const {
  return std::string(chroma ? "cnr4" : "ynr2") + "_output_" + std::to_string(width) + "x" +
         std::to_string(height) + "_" + stamp + ".yuv";
}

std::vector<replay_case> find_replay_cases(const std::vector<std::string>& files,
                                           std::vector<std::string>& notes) {
  std::vector<dump_file> dumps;
  for (const std::string& file : files) {
    dump_file dump;
    if (parse_name(file, dump)) dumps.push_back(dump);
  }
  std::stable_sort(dumps.begin(), dumps.end(),
                   [](const dump_file& a, const dump_file& b) { return a.seconds < b.seconds; });
  return case_finder(dumps, notes).find();
}

frame read_dump_frame(const std::string& path, int width, int height) {
  if (!frame_size_ok(width, height)) throw error(path, "no size that can be processed");
  const int64_t want = int64_t(width) * height * 3 / 2;
  frame f;
  f.width = f.padded_width = width;
  f.height = f.padded_height = height;
  f.data = read_file(path);
  if (int64_t(f.data.size()) != want) {
    throw error(path, std::to_string(f.data.size()) + " bytes, but a frame of its size has " +
                          std::to_string(want));
  }
  return f;
}

byte_difference compare_bytes(const frame& ours, const frame& theirs) {
  byte_difference d;
  d.bytes = int64_t(ours.data.size());
  const int width = ours.padded_width;
  const int64_t luma_size = int64_t(ours.luma_size());
  d.left = d.top = 1 << 30;
  int64_t sum = 0;
  for (int64_t i = 0; i < d.bytes; i++) {
    const int gap = std::abs(int(ours.data[i]) - int(theirs.data[i]));
    if (gap == 0) continue;
    const bool luma = i < luma_size;
    const int64_t at = luma ? i : i - luma_size;
    int x = int(at % width), y = int(at / width);
    if (!luma) x /= 2;
    if (d.luma + d.chroma == 0) {
      d.first_in_luma = luma;
      d.first_x = x;
      d.first_y = y;
    }
    const int scale = luma ? 1 : 2;
    d.left = std::min(d.left, x * scale);
    d.top = std::min(d.top, y * scale);
    d.right = std::max(d.right, x * scale);
    d.bottom = std::max(d.bottom, y * scale);
    (luma ? d.luma : d.chroma)++;
    d.largest = std::max(d.largest, gap);
    sum += gap;
  }
  if (d.luma + d.chroma) d.mean = double(sum) / double(d.luma + d.chroma);
  return d;
}

std::string describe(const byte_difference& d) {
  const int64_t count = d.luma + d.chroma;
  if (count == 0) return "identical";
  char text[320];
  std::snprintf(text, sizeof text,
                "%lld of %lld bytes differ (%lld luma, %lld chroma), by up to %d, %.2f on average; "
                "first in %s at %d,%d; all within %d,%d to %d,%d",
                static_cast<long long>(count), static_cast<long long>(d.bytes),
                static_cast<long long>(d.luma), static_cast<long long>(d.chroma), d.largest, d.mean,
                d.first_in_luma ? "luma" : "chroma", d.first_x, d.first_y, d.left, d.top, d.right,
                d.bottom);
  return text;
}

}  // namespace vorn::tool
