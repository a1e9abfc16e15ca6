#include "tools/lab/sensor_profile.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/error.h"
#include "tools/picture/output_file.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

using json = nlohmann::ordered_json;

constexpr const char* kFormat = "vorn-ycnr sensor profile";
constexpr int kVersion = 1;

// Six digits are more than any fit knows.
double rounded(double value) {
  if (value == 0 || !std::isfinite(value)) return value;
  const double scale = std::pow(10.0, 5 - std::floor(std::log10(std::abs(value))));
  return std::round(value * scale) / scale;
}

// Fields of one object of the file, each an `error` where it is missing or out of its range.
class fields {
 public:
  fields(const json& object, std::string where) : object_(object), where_(std::move(where)) {
    if (!object.is_object()) throw error(where_, "must be an object");
  }
  const json& at(const char* key) const {
    if (!object_.contains(key)) throw error(where_, std::string("\"") + key + "\" is missing");
    return object_.at(key);
  }
  double number(const char* key, double lowest, double highest) const {
    return checked(at(key), key, lowest, highest);
  }
  std::vector<double> numbers(const char* key, size_t most) const {
    const json& list = at(key);
    if (!list.is_array() || list.size() > most)
      throw error(where_, std::string("\"") + key + "\" must be a list of up to " +
                              std::to_string(most) + " numbers");
    std::vector<double> values;
    for (const json& item : list) values.push_back(checked(item, key, 0, 255));
    return values;
  }

 private:
  double checked(const json& value, const char* key, double lowest, double highest) const {
    if (!value.is_number() || !(value.get<double>() >= lowest && value.get<double>() <= highest))
      throw error(where_, std::string("\"") + key + "\" must be a number from " +
                              json(lowest).dump() + " to " + json(highest).dump());
    return value.get<double>();
  }
  const json& object_;
  const std::string where_;
};

json row_json(const sensor_row& row) {
  const auto list = [](const std::vector<double>& values) {
    json out = json::array();
    for (const double v : values) out.push_back(rounded(v));
    return out;
  };
  return {{"gain", rounded(row.gain)},
          {"luma", rounded(row.luma)},
          {"u", rounded(row.u)},
          {"v", rounded(row.v)},
          {"luma_correlation", rounded(row.luma_correlation)},
          {"chroma_correlation", rounded(row.chroma_correlation)},
          {"luma_levels", list(row.luma_levels)},
          {"chroma_levels", list(row.chroma_levels)},
          {"like_luma", rounded(row.like.luma)},
          {"like_chroma", rounded(row.like.chroma)}};
}

sensor_row row_of(const json& object, const std::string& where) {
  const fields f(object, where);
  sensor_row row;
  row.gain = f.number("gain", 1e-3, 1e6);
  row.luma = f.number("luma", 0, 255);
  row.u = f.number("u", 0, 255);
  row.v = f.number("v", 0, 255);
  row.luma_correlation = f.number("luma_correlation", -1, 1);
  row.chroma_correlation = f.number("chroma_correlation", -1, 1);
  row.luma_levels = f.numbers("luma_levels", VORN_NOISE_LEVELS);
  row.chroma_levels = f.numbers("chroma_levels", 2);
  row.like = {f.number("like_luma", 1e-3, 1e6), f.number("like_chroma", 1e-3, 1e6)};
  return row;
}

// y at x of the curve through the points (from, to), on logarithmic axes; slope 1 beyond its ends.
double along(const std::vector<sensor_row>& rows, double x,
             const double& (*from)(const sensor_row&), const double& (*to)(const sensor_row&)) {
  if (x <= from(rows.front())) return x / from(rows.front()) * to(rows.front());
  if (x >= from(rows.back())) return x / from(rows.back()) * to(rows.back());
  size_t i = 1;
  while (from(rows[i]) < x) ++i;
  const double share =
      std::log(x / from(rows[i - 1])) / std::log(from(rows[i]) / from(rows[i - 1]));
  return to(rows[i - 1]) * std::pow(to(rows[i]) / to(rows[i - 1]), share);
}

const double& gain_of(const sensor_row& row) {
  return row.gain;
}
const double& luma_of(const sensor_row& row) {
  return row.like.luma;
}
const double& chroma_of(const sensor_row& row) {
  return row.like.chroma;
}

}  // namespace

noise_gains sensor_profile::like_default(double gain) const {
  return {along(rows, gain, gain_of, luma_of), along(rows, gain, gain_of, chroma_of)};
}

noise_gains sensor_profile::from_default(const noise_gains& like) const {
  return {along(rows, like.luma, luma_of, gain_of), along(rows, like.chroma, chroma_of, gain_of)};
}

sensor_profile parse_sensor_profile(const std::string& text, const std::string& file_name) {
  const json all = json::parse(text, nullptr, false);
  if (all.is_discarded()) throw error(file_name, "is no JSON text");
  const fields f(all, file_name);
  if (f.at("format") != kFormat)
    throw error(file_name, std::string("\"format\" must be \"") + kFormat + "\"");
  f.number("version", kVersion, kVersion);
  sensor_profile p;
  if (!f.at("name").is_string()) throw error(file_name, "\"name\" must be a text");
  p.name = f.at("name").get<std::string>();
  p.iso_at_gain_1 = f.number("iso_at_gain_1", 1, 1e6);
  p.model.full_well = f.number("full_well", 10, 1e6);
  p.model.read_noise = f.number("read_noise", 0, 1e3);
  p.model.red_balance = f.number("red_balance", 0.1, 16);
  p.model.blue_balance = f.number("blue_balance", 0.1, 16);
  p.model.luma_blur = f.number("luma_blur", 0, 1);
  p.model.chroma_blur = f.number("chroma_blur", 0, 4);
  p.model.chroma_strength = f.number("chroma_strength", 0, 16);
  const json& list = f.at("gains");
  if (!list.is_array() || list.empty() || list.size() > 256)
    throw error(file_name, "\"gains\" must be a list of 1 to 256 objects");
  for (const json& object : list) {
    const std::string where = file_name + ": \"gains\" " + std::to_string(p.rows.size());
    p.rows.push_back(row_of(object, where));
    if (p.rows.size() < 2) continue;
    const sensor_row &below = p.rows[p.rows.size() - 2], &row = p.rows.back();
    if (row.gain <= below.gain || row.like.luma <= below.like.luma ||
        row.like.chroma <= below.like.chroma)
      throw error(where, "\"gain\", \"like_luma\" and \"like_chroma\" must rise");
  }
  return p;
}

sensor_profile read_sensor_profile(const std::string& path) {
  return parse_sensor_profile(read_text_file(path), path == "-" ? "standard input" : path);
}

std::string sensor_profile_to_json(const sensor_profile& p) {
  json list = json::array();
  for (const sensor_row& row : p.rows) list.push_back(row_json(row));
  const json all = {{"format", kFormat},
                    {"version", kVersion},
                    {"name", p.name},
                    {"iso_at_gain_1", rounded(p.iso_at_gain_1)},
                    {"full_well", rounded(p.model.full_well)},
                    {"read_noise", rounded(p.model.read_noise)},
                    {"red_balance", rounded(p.model.red_balance)},
                    {"blue_balance", rounded(p.model.blue_balance)},
                    {"luma_blur", rounded(p.model.luma_blur)},
                    {"chroma_blur", rounded(p.model.chroma_blur)},
                    {"chroma_strength", rounded(p.model.chroma_strength)},
                    {"gains", list}};
  return all.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace vorn::tool
