#include "tools/lab/report_page.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/lab/metrics.h"
#include "tools/picture/picture_io.h"

namespace vorn::tool {

// Written by the build from report_page.html.
extern const char* const kReportPageHtml;

namespace {

using json = nlohmann::ordered_json;

std::string base64(const std::vector<uint8_t>& bytes) {
  static const char* const kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t left = bytes.size() - i;
    const uint32_t group = uint32_t{bytes[i]} << 16 | (left > 1 ? uint32_t{bytes[i + 1]} << 8 : 0) |
                           (left > 2 ? uint32_t{bytes[i + 2]} : 0);
    text += kDigits[group >> 18];
    text += kDigits[group >> 12 & 63];
    text += left > 1 ? kDigits[group >> 6 & 63] : '=';
    text += left > 2 ? kDigits[group & 63] : '=';
  }
  return text;
}

// The same plane of the three versions of a picture as the three channels of one PNG.
std::string plane_png(const report_picture& p, plane_view (*view)(const frame&)) {
  const bool has_clean = p.clean.width > 0;
  const plane_view before = view(p.before), after = view(p.after);
  const plane_view clean = has_clean ? view(p.clean) : before;
  rgb_image image;
  image.width = before.width;
  image.height = before.height;
  image.data.reserve(size_t(before.width) * before.height * 3);
  for (int y = 0; y < before.height; ++y) {
    for (int x = 0; x < before.width; ++x) {
      const ptrdiff_t at = y * before.stride + x * before.step;
      image.data.push_back(before.data[at]);
      image.data.push_back(after.data[at]);
      image.data.push_back(has_clean ? clean.data[at] : uint8_t{0});
    }
  }
  return "data:image/png;base64," + base64(encode_png(image));
}

// JSON has no infinity: identical pictures count as 99 dB.
double finite(double decibels) {
  return std::isfinite(decibels) ? decibels : 99.0;
}

json quality_json(const quality& q) {
  return {{"psnr_y", finite(q.psnr_y)}, {"psnr_u", finite(q.psnr_u)}, {"psnr_v", finite(q.psnr_v)},
          {"ssim_y", q.ssim_y},         {"ssim_u", q.ssim_u},         {"ssim_v", q.ssim_v},
          {"shift_y", q.mean_shift_y},  {"shift_u", q.mean_shift_u},  {"shift_v", q.mean_shift_v}};
}

json score_json(const tuning_score& s) {
  return {{"psnr", finite(s.psnr)}, {"ssim", s.ssim}, {"lost_texture", s.lost_texture}};
}

json curve_json(const noise_curve& curve) {
  json list = json::array();
  for (const noise_class& k : curve.classes)
    list.push_back({{"brightness", k.brightness}, {"y", k.y}, {"u", k.u}, {"v", k.v}});
  return list;
}

json tuning_json(const tuning& t) {
  json halves[2] = {json::object(), json::object()};
  for (int i = 0; i < kTuningFields; ++i) {
    const tuning_field& field = tuning_field_at(i);
    json& half = halves[field.luma ? 0 : 1];
    if (field.level < 0) {
      half[field.key] = get_field(t, i);
    } else {
      half[field.key].push_back(get_field(t, i));
    }
  }
  return {{"luma", halves[0]}, {"chroma", halves[1]}};
}

json sweep_json(const parameter_sweep& sweep, objective goal) {
  const tuning_field& field = tuning_field_at(sweep.field);
  json points = json::array();
  for (size_t i = 0; i < sweep.values.size(); ++i) {
    const tuning_score& s = sweep.scores[i];
    const double y = goal == objective::ssim ? s.ssim : s.value;
    points.push_back({{"x", sweep.values[i]}, {"y", y}});
  }
  const std::string level = field.level >= 0 ? "[" + std::to_string(field.level) + "]" : "";
  const char* const unit = goal == objective::ssim  ? "SSIM"
                           : goal == objective::mix ? "PSNR - texture, dB"
                                                    : "PSNR, dB";
  return {{"label", field.key + level},
          {"half", field.luma ? "luma" : "chroma"},
          {"unit", unit},
          {"least", goal == objective::ssim ? 0.001 : 0.05},
          {"chosen", sweep.chosen},
          {"points", points}};
}

json picture_json(const report_picture& p, const report_entry& entry) {
  json j = {{"name", p.name},
            {"width", p.before.width},
            {"height", p.before.height},
            {"clean", p.clean.width > 0},
            {"y", plane_png(p, luma_view)},
            {"u", plane_png(p, u_view)},
            {"v", plane_png(p, v_view)}};
  if (p.clean.width > 0) {
    j["quality"] = {{"before", quality_json(compare_frames(p.before, p.clean))},
                    {"after", quality_json(compare_frames(p.after, p.clean))}};
  }
  j["noise"] = {{"before", curve_json(measure_noise({p.before}, noise_scene::any))},
                {"after", curve_json(measure_noise({p.after}, noise_scene::any))}};
  if (entry.from_model) j["noise"]["model"] = curve_json(model_curve(entry.model));
  json stages = json::array();
  for (const stage_time& s : p.stages) stages.push_back({{"name", s.name}, {"ms", s.ms}});
  j["stages"] = stages;
  return j;
}

}  // namespace

std::string render_report(const std::string& title, const std::string& subtitle,
                          const std::vector<report_entry>& entries) {
  json data = {{"title", title}, {"subtitle", subtitle}, {"entries", json::array()}};
  for (const report_entry& entry : entries) {
    json j = {{"gain", entry.gain}, {"label", entry.label}, {"tuning", tuning_json(entry.values)}};
    j["pictures"] = json::array();
    for (const report_picture& p : entry.pictures) j["pictures"].push_back(picture_json(p, entry));
    j["sweeps"] = json::array();
    for (const parameter_sweep& s : entry.sweeps) j["sweeps"].push_back(sweep_json(s, entry.goal));
    if (entry.scored) {
      j["scores"] = {{"luma_before", score_json(entry.luma_before)},
                     {"luma_after", score_json(entry.luma_after)},
                     {"chroma_before", score_json(entry.chroma_before)},
                     {"chroma_after", score_json(entry.chroma_after)}};
    }
    data["entries"].push_back(j);
  }
  // File names may hold anything; replace what is not text, and end no script element early.
  std::string text = data.dump(-1, ' ', false, json::error_handler_t::replace);
  for (size_t at = 0; (at = text.find("</", at)) != std::string::npos; at += 3)
    text.replace(at, 2, "<\\/");

  std::string page = kReportPageHtml;
  const std::string mark = "@REPORT_DATA@";
  page.replace(page.find(mark), mark.size(), text);
  return page;
}

}  // namespace vorn::tool
