// The lines of ask_tell.h, written and read.
#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/error.h"
#include "tools/numbers.h"
#include "tools/tuning/ask_tell.h"

namespace vorn::tool {
namespace {

using json = nlohmann::ordered_json;

// File names may be bytes that are no UTF-8.
std::string text_of(const json& j) {
  return j.dump(-1, ' ', false, json::error_handler_t::replace);
}

// A fraction is none, and none is cut to one.
int64_t whole(const json& j) {
  if (!j.is_number_integer()) throw error(j.dump(), "is no whole number");
  return j.get<int64_t>();
}

json fields_of(const tuning& t, bool luma) {
  json values = json::array();
  for (int i = 0; i < kTuningFields; ++i)
    if (tuning_field_at(i).luma == luma) values.push_back(get_field(t, i));
  return values;
}

void read_fields(const json& values, bool luma, tuning& t) {
  const int first = luma ? 0 : kLumaFields, count = luma ? kLumaFields : kChromaFields;
  if (!values.is_array() || values.size() != static_cast<size_t>(count))
    throw error(luma ? "luma" : "chroma", "is no list of " + std::to_string(count) + " numbers");
  for (int i = 0; i < count; ++i) set_field(t, first + i, static_cast<int32_t>(whole(values[i])));
}

json figures_of(const sample_figures& f, bool luma) {
  json j = {{"mse", f.mse}, {"ssim", f.ssim}};
  if (luma) j["lost_texture"] = f.lost_texture;
  return j;
}

void read_figures(const json& j, bool luma, sample_figures& f) {
  f.mse = j.at("mse").get<double>();
  f.ssim = j.at("ssim").get<double>();
  if (luma) f.lost_texture = j.at("lost_texture").get<double>();
  if (!(f.mse >= 0 && std::isfinite(f.mse))) throw error("mse", "must be finite and 0 or more");
}

void read_question(const json& j, question& q) {
  q.id = whole(j.at("ask"));
  q.gain = j.at("gain").get<double>();
  q.sample = whole(j.at("sample"));
  q.all = j.value("all", false);
  q.values = {};
  q.what = j.value("input", false) ? question::kind::input
           : j.contains("chroma")  ? question::kind::chroma
                                   : question::kind::luma;
  if (q.what == question::kind::input) return;
  read_fields(j.at("luma"), true, q.values);
  if (q.what == question::kind::chroma) read_fields(j.at("chroma"), false, q.values);
}

void read_job(const json& j, job_lines& job) {
  if (whole(j.at("protocol")) != kAskTellProtocol)
    throw error("protocol", "is not " + std::to_string(kAskTellProtocol));
  job.version = j.at("version").get<std::string>();
  job.folder = j.at("folder").get<std::string>();
  job.arguments = j.at("arguments").get<std::vector<std::string>>();
}

}  // namespace

std::string to_line(const question& q) {
  json j = {{"ask", q.id}, {"gain", q.gain}, {"sample", q.sample}};
  if (q.what == question::kind::input) j["input"] = true;
  if (q.what != question::kind::input) j["luma"] = fields_of(q.values, true);
  if (q.what == question::kind::chroma) j["chroma"] = fields_of(q.values, false);
  if (q.all) j["all"] = true;
  return text_of(j);
}

std::string to_line(const answer& a) {
  json j = {{"tell", a.id}};
  if (!a.error.empty()) {
    j["error"] = a.error;
  } else {
    j["luma"] = figures_of(a.figures.luma, true);
    j["chroma"] = figures_of(a.figures.chroma, false);
  }
  return text_of(j);
}

line_kind parse_line(const std::string& line, job_lines& job, question& q) {
  try {
    const json j = json::parse(line);
    if (j.contains("ask")) {
      read_question(j, q);
      return line_kind::question;
    }
    if (j.contains("job")) {
      read_job(j.at("job"), job);
      return line_kind::job;
    }
    if (j.contains("end")) return line_kind::end;
    if (j.contains("progress") || j.contains("found")) return line_kind::other;
  } catch (const json::exception& fault) {
    throw error("", fault.what());
  }
  throw error("", "none of job, ask, progress, found, end");
}

bool parse_answer(const std::string& line, answer& a) {
  try {
    const json j = json::parse(line);
    if (j.contains("stop")) return false;
    a.id = whole(j.at("tell"));
    a.error = j.value("error", std::string());
    if (!a.error.empty()) return true;
    read_figures(j.at("luma"), true, a.figures.luma);
    read_figures(j.at("chroma"), false, a.figures.chroma);
    return true;
  } catch (const json::exception& fault) {
    throw error("", fault.what());
  }
}

std::string job_line(const job_lines& job, const std::vector<std::pair<double, size_t>>& samples) {
  json gains = json::array();
  for (const auto& [gain, count] : samples) gains.push_back({{"gain", gain}, {"samples", count}});
  return text_of({{"job",
                   {{"protocol", kAskTellProtocol},
                    {"version", job.version},
                    {"folder", job.folder},
                    {"arguments", job.arguments},
                    {"gains", gains}}}});
}

std::string progress_line(double gain, int step, int steps, const std::string& note, double done) {
  return text_of(
      {{"progress",
        {{"gain", gain}, {"step", step}, {"steps", steps}, {"note", note}, {"done", done}}}});
}

std::string found_line(double gain, int trials, bool stopped,
                       const std::vector<std::pair<double, double>>& halves) {
  json j = {{"gain", gain}, {"trials", trials}, {"stopped", stopped}};
  constexpr const char* kNames[] = {"luma", "chroma"};
  for (size_t i = 0; i < halves.size() && i < 2; ++i)
    if (halves[i].second > 0)
      j[kNames[i]] = {{"before", halves[i].first}, {"after", halves[i].second}};
  return text_of({{"found", j}});
}

std::string end_line(bool stopped, const std::string& output, const std::string& error) {
  json j = {{"stopped", stopped}, {"output", output}};
  if (!error.empty()) j["error"] = error;
  return text_of({{"end", j}});
}

}  // namespace vorn::tool
