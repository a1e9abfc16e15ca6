#include "tools/lab/report_page.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>

#include "tools/lab/area_json.h"
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
  // Scores of the search are in dB, whatever the objective; points of SSIM are not.
  const tuning_score& any = sweep.scores.front();
  const double factor = goal == objective::ssim && any.value > 0 ? any.ssim / any.value : 1;
  json explored = json::array();
  for (const auto& [value, score] : sweep.explored)
    explored.push_back({value, std::round(score * factor * 1e4) / 1e4});
  return {{"label", field.key + level},
          {"half", field.luma ? "luma" : "chroma"},
          {"unit", unit},
          {"least", goal == objective::ssim ? 0.001 : 0.05},
          {"chosen", sweep.chosen},
          {"points", points},
          {"explored", explored}};
}

json picture_json(const report_picture& p, const report_entry& entry) {
  json j = {{"name", p.name},
            {"width", p.before.width},
            {"height", p.before.height},
            {"whole", {p.width, p.height}},
            {"at", {p.x, p.y}},
            {"clean", p.clean.width > 0},
            {"y", plane_png(p, luma_view)},
            {"u", plane_png(p, u_view)},
            {"v", plane_png(p, v_view)}};
  if (p.clean.width > 0) {
    j["quality"] = {{"before", quality_json(p.quality_before)},
                    {"after", quality_json(p.quality_after)}};
  }
  j["noise"] = {{"before", curve_json(p.noise_before)}, {"after", curve_json(p.noise_after)}};
  if (entry.from_model) j["noise"]["model"] = curve_json(model_curve(entry.model));
  json stages = json::array();
  for (const stage_time& s : p.stages) stages.push_back({{"name", s.name}, {"ms", s.ms}});
  j["stages"] = stages;
  j["areas"] = json::parse(p.areas);
  return j;
}

std::string areas_of(const frame& before, const frame& after, const frame& clean,
                     const std::vector<rectangle>& patches) {
  json areas = json::array();
  const frame* const reference = clean.width > 0 ? &clean : nullptr;
  for (const rectangle& r : patches) {
    const std::string name = std::to_string(r.x) + "," + std::to_string(r.y) + "," +
                             std::to_string(r.width) + "x" + std::to_string(r.height);
    areas.push_back({{"name", name},
                     {"before", area_json(before, r, reference)},
                     {"after", area_json(after, r, reference)}});
    if (reference) areas.back()["clean"] = area_json(clean, r, reference);
  }
  return areas.dump();
}

// The part of f from x, y, both even.
frame part(const frame& f, int x, int y, int width, int height) {
  if (f.width == 0) return {};
  frame out = make_frame(width, height);
  out.gray = f.gray;
  out.full_range = f.full_range;
  for (int row = 0; row < height; ++row)
    std::memcpy(out.luma() + size_t(row) * out.padded_width,
                f.luma() + size_t(y + row) * f.padded_width + x, size_t(width));
  for (int row = 0; row < out.chroma_height(); ++row)
    std::memcpy(out.chroma() + size_t(row) * out.padded_width,
                f.chroma() + size_t(y / 2 + row) * f.padded_width + x, size_t(out.padded_width));
  pad_edges(out);
  return out;
}

}  // namespace

int64_t report_pixels(size_t pictures) {
  // Three versions with half a sample of chroma each; noise hardly shrinks as PNG, and base64 makes
  // three bytes four.
  constexpr int64_t kPage = 11'500'000, kBytesPerPixel = 6;
  return kPage / kBytesPerPixel / int64_t(std::max<size_t>(1, pictures));
}

report_picture make_report_picture(const std::string& name, const frame& before, const frame& after,
                                   const frame& clean, int64_t most_pixels,
                                   const std::vector<rectangle>& patches) {
  report_picture p;
  p.areas = areas_of(before, after, clean, patches);
  p.name = name;
  p.width = before.width;
  p.height = before.height;
  if (clean.width > 0) {
    p.quality_before = compare_frames(before, clean);
    p.quality_after = compare_frames(after, clean);
  }
  p.noise_before = measure_noise({before}, noise_scene::any);
  p.noise_after = measure_noise({after}, noise_scene::any);
  int width = before.width, height = before.height;
  const double pixels = double(width) * height;
  if (pixels > double(most_pixels)) {  // of the picture's own shape, unless a side gets too short
    const double share = std::sqrt(double(most_pixels) / pixels);
    width = std::max(2, int(width * share) & ~1);
    height = std::max(2, int(std::min<double>(height, double(most_pixels) / width)) & ~1);
  }
  p.x = (before.width - width) / 2 & ~1;
  p.y = (before.height - height) / 2 & ~1;
  p.before = part(before, p.x, p.y, width, height);
  p.after = part(after, p.x, p.y, width, height);
  p.clean = part(clean, p.x, p.y, width, height);
  return p;
}

std::string render_report(const std::string& title, const std::string& subtitle,
                          const std::vector<report_entry>& entries) {
  json data = {{"title", title}, {"subtitle", subtitle}, {"entries", json::array()}};
  for (const report_entry& entry : entries) {
    json j = {{"gain", entry.gain}, {"label", entry.label}, {"tuning", tuning_json(entry.values)}};
    j["pictures"] = json::array();
    for (const report_picture& p : entry.pictures) j["pictures"].push_back(picture_json(p, entry));
    j["left_out"] = entry.pictures_left_out;
    if (entry.against) {
      j["against"] = tuning_json(*entry.against);
      j["names"] = {{"before", entry.before_name}, {"after", entry.after_name}};
    }
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
  // File names may hold anything; replace what is not text, and open or end no element or comment.
  const std::string plain = data.dump(-1, ' ', false, json::error_handler_t::replace);
  std::string text;
  text.reserve(plain.size());
  for (char c : plain) {
    if (c == '<') {
      text += "\\u003c";
    } else {
      text += c;
    }
  }

  std::string page = kReportPageHtml;
  const std::string mark = "@REPORT_DATA@";
  page.replace(page.find(mark), mark.size(), text);
  return page;
}

}  // namespace vorn::tool
