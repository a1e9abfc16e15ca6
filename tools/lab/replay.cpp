#include "tools/lab/replay.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>

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

// The latest dump of a kind that is not after `seconds`; frames must have the size, too.
const dump_file* latest(const std::vector<dump_file>& dumps, dump_kind kind, int64_t seconds,
                        int width, int height) {
  const dump_file* best = nullptr;
  for (const dump_file& dump : dumps) {
    if (dump.kind != kind || dump.seconds > seconds || seconds - dump.seconds > kLongestFrame)
      continue;
    if (width && (dump.width != width || dump.height != height)) continue;
    if (!best || dump.seconds > best->seconds) best = &dump;
  }
  return best;
}

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

  std::vector<replay_case> cases;
  std::vector<const dump_file*> claimed;
  // The earliest output whose latest input is this one.
  const auto output_of = [&](const dump_file& input, dump_kind output_kind) {
    for (const dump_file& dump : dumps) {
      if (dump.kind != output_kind || dump.width != input.width || dump.height != input.height)
        continue;
      if (latest(dumps, input.kind, dump.seconds, dump.width, dump.height) != &input) continue;
      if (std::find(claimed.begin(), claimed.end(), &dump) != claimed.end()) continue;
      claimed.push_back(&dump);
      return dump.path;
    }
    return std::string();
  };
  const auto tuning_of = [&](const dump_file& input, dump_kind kind) {
    const dump_file* const text = latest(dumps, kind, input.seconds, 0, 0);
    return text ? text->path : std::string();
  };
  for (const dump_file& input : dumps) {
    const bool luma = input.kind == dump_kind::luma_input;
    if (!luma && input.kind != dump_kind::chroma_input) continue;
    replay_case c;
    c.luma = luma;
    c.chroma = !luma;
    c.width = input.width;
    c.height = input.height;
    c.stamp = input.stamp;
    c.input = input.path;
    std::string& text = luma ? c.luma_tuning : c.chroma_tuning;
    text = tuning_of(input, luma ? dump_kind::luma_tuning : dump_kind::chroma_tuning);
    if (text.empty()) {
      notes.push_back(input.path + ": no " + (luma ? "ynr2" : "cnr4") +
                      " tuning text fits its time");
      continue;
    }
    c.output = output_of(input, luma ? dump_kind::luma_output : dump_kind::chroma_output);
    cases.push_back(c);
  }
  // Results of chroma whose own input was not dumped: both algorithms ran from the luma input.
  for (const dump_file& result : dumps) {
    if (result.kind != dump_kind::chroma_output ||
        std::find(claimed.begin(), claimed.end(), &result) != claimed.end()) {
      continue;
    }
    const dump_file* const input =
        latest(dumps, dump_kind::luma_input, result.seconds, result.width, result.height);
    if (!input) continue;
    replay_case c;
    c.luma = c.chroma = true;
    c.width = result.width;
    c.height = result.height;
    c.stamp = input->stamp;
    c.input = input->path;
    c.luma_tuning = tuning_of(*input, dump_kind::luma_tuning);
    c.chroma_tuning = tuning_of(*input, dump_kind::chroma_tuning);
    c.output = result.path;
    if (c.luma_tuning.empty() || c.chroma_tuning.empty()) continue;
    claimed.push_back(&result);
    cases.push_back(c);
  }
  for (const dump_file& dump : dumps) {
    const bool output =
        dump.kind == dump_kind::luma_output || dump.kind == dump_kind::chroma_output;
    if (output && std::find(claimed.begin(), claimed.end(), &dump) == claimed.end()) {
      notes.push_back(dump.path + ": no input frame and tuning fit its time and size");
    }
  }
  return cases;
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
