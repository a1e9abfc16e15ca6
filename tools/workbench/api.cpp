#include "tools/workbench/api.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <set>

#include "tools/error.h"
#include "tools/lab/area_json.h"
#include "tools/lab/chart.h"
#include "tools/lab/chart_finder.h"
#include "tools/lab/metrics.h"
#include "tools/lab/noise_meter.h"
#include "tools/lab/report_page.h"

namespace vorn::tool {
namespace {

using json = nlohmann::ordered_json;

int64_t whole(const json& request, const char* key, int64_t low, int64_t high, int64_t absent) {
  const auto at = request.find(key);
  if (at == request.end()) return absent;
  if (!at->is_number_integer() || at->get<int64_t>() < low || at->get<int64_t>() > high)
    throw error(
        key, "must be a whole number from " + std::to_string(low) + " to " + std::to_string(high));
  return at->get<int64_t>();
}

std::string text(const json& request, const char* key, const std::string& absent) {
  const auto at = request.find(key);
  if (at == request.end()) return absent;
  if (!at->is_string()) throw error(key, "must be a text");
  return at->get<std::string>();
}

bool flag(const json& request, const char* key) {
  const auto at = request.find(key);
  return at != request.end() && at->is_boolean() && at->get<bool>();
}

tuning tuning_from(const json& list) {
  if (!list.is_array() || list.size() != kTuningFields)
    throw error("values", "must be " + std::to_string(kTuningFields) + " whole numbers");
  tuning t = {};
  for (int i = 0; i < kTuningFields; ++i) {
    const json& v = list[size_t(i)];
    if (!v.is_number_integer() || v.get<int64_t>() < INT32_MIN || v.get<int64_t>() > INT32_MAX)
      throw error(tuning_field_at(i).key, "must be a whole number of 32 bits");
    set_field(t, i, v.get<int32_t>());
  }
  return t;
}

tuning values_of(const json& request) {
  const auto at = request.find("values");
  if (at == request.end()) throw error("values", "are missing");
  return tuning_from(*at);
}

json values_json(const tuning& t) {
  json list = json::array();
  for (int i = 0; i < kTuningFields; ++i) list.push_back(get_field(t, i));
  return list;
}

json set_json(const tuning_set& set) {
  json entries = json::array();
  for (const tuning_entry& e : set.entries)
    entries.push_back({{"gain", e.gain}, {"values", values_json(e.values)}});
  return {{"name", set.name}, {"description", set.description}, {"entries", entries}};
}

// The set that the page works on. What its fields may hold is checked where it is written.
tuning_set set_from(const json& request) {
  const auto at = request.find("set");
  if (at == request.end() || !at->is_object()) throw error("set", "is missing");
  tuning_set set;
  set.name = text(*at, "name", "");
  set.description = text(*at, "description", "");
  const auto entries = at->find("entries");
  if (entries == at->end() || !entries->is_array() || entries->empty())
    throw error("entries", "are missing");
  for (const json& e : *entries) {
    if (!e.is_object() || !e.contains("gain") || !e["gain"].is_number() || !e.contains("values"))
      throw error("entries", "need a gain and values each");
    set.entries.push_back({e["gain"].get<double>(), tuning_from(e["values"])});
  }
  return set;
}

json finite(double v) {
  return std::isfinite(v) ? json(v) : json(nullptr);
}

json quality_json(const frame& f, const frame& clean, bool slow) {
  json out = {{"psnr_y", finite(psnr(luma_view(f), luma_view(clean)))},
              {"psnr_u", finite(psnr(u_view(f), u_view(clean)))},
              {"psnr_v", finite(psnr(v_view(f), v_view(clean)))},
              {"shift_y", mean(luma_view(f)) - mean(luma_view(clean))}};
  if (slow) {
    out["ssim_y"] = ssim(luma_view(f), luma_view(clean));
    out["lost_texture"] = lost_texture(f, clean);
  }
  return out;
}

json curve_json(const frame& f) {
  const noise_curve curve = measure_noise({f}, noise_scene::any);
  json classes = json::array();
  for (const noise_class& k : curve.classes)
    classes.push_back({{"brightness", k.brightness}, {"y", k.y}, {"u", k.u}, {"v", k.v}});
  return {{"classes", classes}, {"y", curve.y}, {"u", curve.u}, {"v", curve.v}};
}

const char* phase_name(search_job::phase at) {
  static const char* const kNames[] = {"idle", "running", "stopping", "done", "failed"};
  return kNames[int(at)];
}

}  // namespace

size_t workbench_api::picture_of(const json& request) const {
  return size_t(whole(request, "picture", 0, int64_t(project_.inputs().size()) - 1, 0));
}

json workbench_api::state(const json&) {
  json pictures = json::array();
  for (const bench_input& input : project_.inputs())
    pictures.push_back(
        {{"name", input.name}, {"gain", input.gain}, {"clean", !input.clean.empty()}});
  json fields = json::array();
  for (int i = 0; i < kTuningFields; ++i) {
    const tuning_field& field = tuning_field_at(i);
    fields.push_back({{"luma", field.luma}, {"key", field.key}, {"level", field.level}});
  }
  const std::string draft = set_.draft();
  json kept = draft.empty() ? json(nullptr) : json::parse(draft, nullptr, false);
  return {{"pictures", pictures},
          {"fields", fields},
          {"set", set_json(set_.loaded())},
          {"file", set_.path()},
          {"draft", kept.is_discarded() ? json(nullptr) : kept}};
}

pixels workbench_api::view(const json& request) {
  view_request r;
  r.picture = picture_of(request);
  r.values = values_of(request);
  r.shown = version_of(text(request, "version", "after"));
  r.plane = channel_of(text(request, "channel", "rgb"));
  r.level = int(whole(request, "level", 0, 4, 0));
  r.amplify = int(whole(request, "amplify", 1, 128, 8));
  constexpr int64_t kSide = 1 << 20;
  r.x = int(whole(request, "x", -kSide, kSide, 0));
  r.y = int(whole(request, "y", -kSide, kSide, 0));
  r.width = int(whole(request, "width", 1, kSide, 1));
  r.height = int(whole(request, "height", 1, kSide, 1));
  r.reduce = int(whole(request, "reduce", 1, 64, 1));
  return viewer_.render(r);
}

// Size of the picture and its gain: from its name, else that of the default set's noise that it is
// like, 0 where no noise is found.
json workbench_api::size(const json& request) {
  const size_t index = picture_of(request);
  const auto p = project_.picture(index);
  double gain = project_.inputs()[index].gain;
  if (!(gain > 0)) gain = gains_of(measure_noise({p->noisy}, noise_scene::any)).luma;
  return {{"width", p->noisy.width}, {"height", p->noisy.height}, {"gain", finite(gain)}};
}

// The quality where there is a clean version; slow adds SSIM and texture.
json workbench_api::figures(const json& request) {
  const size_t index = picture_of(request);
  const auto p = project_.picture(index);
  const bool slow = flag(request, "slow");
  json out = json::object();
  if (!p->has_clean()) return out;
  out["after"] = quality_json(*viewer_.denoised(index, values_of(request)), p->clean, slow);
  if (flag(request, "before")) out["before"] = quality_json(p->noisy, p->clean, slow);
  return out;
}

std::shared_ptr<const frame> workbench_api::chart_of(size_t picture) {
  const std::lock_guard<std::mutex> lock(charts_mutex_);
  const auto at = charts_.find(picture);
  if (at != charts_.end()) return at->second;
  std::shared_ptr<const frame> chart;
  frame found = find_chart(project_.picture(picture)->noisy);
  if (found.width > 0) {
    for (const auto& [index, other] : charts_)  // one copy for all pictures of a size
      if (other && other->width == found.width && other->height == found.height) chart = other;
    if (!chart) chart = std::make_shared<frame>(std::move(found));
  }
  return charts_[picture] = chart;
}

// The parts of the test chart that a patch's figures are made for; none in other pictures.
json workbench_api::regions(const json& request) {
  const auto chart = chart_of(picture_of(request));
  json list = json::array();
  if (!chart) return {{"regions", list}};
  static const char* const kNames[] = {"grey", "edge", "leaves"};
  for (const auto& [kind, place] : chart_regions(chart->width, chart->height))
    list.push_back({{"kind", kNames[int(kind)]},
                    {"x", place.x},
                    {"y", place.y},
                    {"width", place.width},
                    {"height", place.height}});
  return {{"regions", list}};
}

// The test chart needs no clean version: it is drawn.
json workbench_api::patch(const json& request) {
  const size_t index = picture_of(request);
  const auto p = project_.picture(index);
  const auto after = viewer_.denoised(index, values_of(request));
  constexpr int64_t kSide = 1 << 20;
  const rectangle r = {
      int(whole(request, "x", -kSide, kSide, 0)), int(whole(request, "y", -kSide, kSide, 0)),
      int(whole(request, "width", 1, kSide, 1)), int(whole(request, "height", 1, kSide, 1))};
  const auto chart = p->has_clean() || !p->noisy.full_range ? nullptr : chart_of(index);
  const frame* const clean = p->has_clean() ? &p->clean : chart.get();
  const auto of = [&](const frame& f) { return area_json(f, r, clean); };
  json out = {{"before", of(p->noisy)}, {"after", of(*after)}};
  if (clean) out["clean"] = of(*clean);
  return out;
}

json workbench_api::weights(const json& request) {
  const block_weights w = viewer_.weights(
      picture_of(request), values_of(request), int(whole(request, "level", 0, 4, 0)),
      int(whole(request, "x", 0, 1 << 20, 0)), int(whole(request, "y", 0, 1 << 20, 0)));
  return {{"x", w.x},
          {"y", w.y},
          {"window", w.window},
          {"mask", w.mask},
          {"distance", w.distance},
          {"weight", w.weight}};
}

json workbench_api::noise(const json& request) {
  const size_t index = picture_of(request);
  const auto p = project_.picture(index);
  return {{"before", curve_json(p->noisy)},
          {"after", curve_json(*viewer_.denoised(index, values_of(request)))}};
}

json workbench_api::search_start(const json& request) {
  search_options options;
  options.luma = text(request, "half", "both") != "chroma";
  options.chroma = text(request, "half", "both") != "luma";
  options.goal = objective_of(text(request, "objective", "psnr"));
  options.rounds = int(whole(request, "rounds", 1, 10, 2));
  const tuning first = values_of(request);
  std::vector<tuning_sample> samples;
  const auto list = request.find("pictures");
  if (list == request.end() || !list->is_array() || list->empty() || list->size() > 64)
    throw error("pictures", "must name 1 to 64 pictures");
  for (const json& index : *list) {
    const size_t i = picture_of({{"picture", index}});
    const auto p = project_.picture(i);
    if (!p->has_clean())
      throw error(project_.inputs()[i].name, "has no clean version to search with");
    samples.push_back({project_.inputs()[i].name, p->clean, p->noisy});
  }
  if (!search_.start(std::move(samples), first, options))
    throw error("", "a search is running already");
  return search_state(request);
}

json workbench_api::search_state(const json&) {
  const search_job::status s = search_.now();
  return {{"phase", phase_name(s.at)}, {"done", s.done},
          {"total", s.total},          {"note", s.note},
          {"seconds", s.seconds},      {"best", s.has_best ? values_json(s.best) : json(nullptr)}};
}

json workbench_api::search_stop(const json& request) {
  search_.stop();
  return search_state(request);
}

json workbench_api::keep(const json& request) {
  set_.keep_draft(request.dump());
  return json::object();
}

json workbench_api::drop(const json&) {
  set_.drop_draft();
  return json::object();
}

json workbench_api::save(const json& request) {
  try {
    return {{"file",
             set_.save(set_from(request), text(request, "as", ""), flag(request, "overwrite"))}};
  } catch (const set_file::conflict& fault) {
    return {{"conflict", fault.what()}};
  }
}

std::string workbench_api::file(const json& request) {
  const std::string kind = text(request, "kind", "");
  if (kind == "set") return tuning_set_to_json(set_from(request));
  if (kind == "c") return tuning_set_to_c_header(set_from(request), "camera");
  const tuning values = values_of(request);
  if (kind == "dump") return luma_to_dump_text(values) + "\n" + chroma_to_dump_text(values);
  if (kind != "report") throw error(kind, "is no kind of file");
  const size_t index = picture_of(request);
  const auto p = project_.picture(index);
  report_entry entry;
  entry.gain = request.value("gain", 0.0);
  entry.label = text(request, "label", "");
  entry.values = values;
  entry.pictures.push_back(make_report_picture(project_.inputs()[index].name, p->noisy,
                                               *viewer_.denoised(index, values), p->clean,
                                               report_pixels(1)));
  return render_report("Noise reduction of " + project_.inputs()[index].name,
                       text(request, "label", ""), {entry});
}

}  // namespace vorn::tool
