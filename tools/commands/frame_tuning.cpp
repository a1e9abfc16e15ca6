#include "tools/commands/frame_tuning.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/error.h"
#include "tools/lab/noise_meter.h"
#include "tools/numbers.h"

namespace vorn::tool {
namespace {

std::string entry_text(const char* plane, double gain, double entry) {
  char text[80];
  if (entry > 0) {
    std::snprintf(text, sizeof text, "%s %.3g (entry %g)", plane, gain, entry);
  } else {
    std::snprintf(text, sizeof text, "%s left as it is", plane);
  }
  return text;
}

}  // namespace

frame_tuning::frame_tuning(const tuning_options& options, int iso)
    : options_(options), automatic_(!(options.gain > 0)) {
  if (!automatic_) {
    chosen_ = options.resolve();
    return;
  }
  if (!options.sensor_file.empty()) profile_ = read_sensor_profile(options.sensor_file);
  if (profile_ && iso > 0) {
    take_iso(iso);
    return;
  }
  measuring_ = true;
  if (options.file.empty()) profile_.reset();  // measured gains are the default set's
  tuning_set set = options.load_set();
  if (!profile_) {
    add_follower(set);
    return;
  }
  tuning_set luma = set, chroma = set;
  for (size_t i = 0; i < set.entries.size(); ++i) {
    const noise_gains like = profile_->like_default(set.entries[i].gain);
    luma.entries[i].gain = like.luma;
    chroma.entries[i].gain = like.chroma;
  }
  add_follower(luma);
  add_follower(chroma);
}

frame_tuning::~frame_tuning() {
  for (const following& f : followers_) vorn_tuning_free(f.set);
}

void frame_tuning::add_follower(const tuning_set& set) {
  const std::string text = tuning_set_to_json(set);
  vorn_tuning_fault fault;
  followers_.emplace_back();
  followers_.back().set =
      vorn_tuning_parse(text.data(), text.size(), options_.file.c_str(), &fault);
  if (followers_.back().set == nullptr) throw error("", fault.text);
}

void frame_tuning::take_iso(int iso) {
  const double gain = iso / profile_->iso_at_gain_1;
  const auto [luma, chroma] = options_.entries_for(gain);
  tuning t = luma.values;
  t.chroma = chroma.values.chroma;
  chosen_ = options_.applied_to(t);
  const noise_gains like =
      options_.file.empty() ? profile_->like_default(gain) : noise_gains{gain, gain};
  said_ = "gain auto: ISO " + std::to_string(iso) + " is gain " + short_number(gain) + " of " +
          profile_->name + ": " + entry_text("luma", like.luma, luma.gain) + ", " +
          entry_text("chroma", like.chroma, chroma.gain);
}

const tuning& frame_tuning::of(const frame& f) {
  if (!measuring_) {
    if (frames_++ > 0) said_.clear();
    return chosen_;
  }
  said_.clear();
  const vorn_noise_frame view = noise_view(f);
  tuning t;
  for (following& one : followers_) {
    tuning half;
    const int32_t code =
        vorn_tuning_follow(&one.state, one.set, nullptr, &view, &half.luma, &half.chroma);
    if (code != VORN_TUNING_OK) throw error("gain auto", vorn_tuning_result_text(code));
    if (&one == &followers_.front()) t.luma = half.luma;
    t.chroma = half.chroma;
  }
  // Who names strengths wants them used.
  if (!options_.overrides.empty()) t.luma.enable = t.chroma.enable = 1;
  chosen_ = options_.applied_to(t);
  if (followers_.front().state.changed != 0 || followers_.back().state.changed != 0) say();
  return chosen_;
}

void frame_tuning::say() {
  const vorn_noise_follower &luma = followers_.front().state, &chroma = followers_.back().state;
  const vorn_noise& noise = luma.noise;
  noise_gains gains{luma.luma_gain, chroma.chroma_gain};
  noise_gains entries{luma.luma_entry, chroma.chroma_entry};
  if (profile_) {
    gains = profile_->from_default(gains);
    // 0 stands for none.
    const noise_gains own = profile_->from_default(
        {std::max(entries.luma, kLowestGain), std::max(entries.chroma, kLowestGain)});
    if (entries.luma > 0) entries.luma = own.luma;
    if (entries.chroma > 0) entries.chroma = own.chroma;
  }
  if (entries.luma > 0 || entries.chroma > 0) {
    char text[80];
    std::snprintf(text, sizeof text, "; noise %.1f and %.1f grey levels", noise.luma,
                  std::hypot(noise.u, noise.v) / std::sqrt(2.0));
    said_ = "gain auto: " + entry_text("luma", gains.luma, entries.luma) + ", " +
            entry_text("chroma", gains.chroma, entries.chroma) + text;
  } else {
    said_ = noise.found != 0 ? "gain auto: too little noise, left as it is"
                             : "gain auto: no noise found, left as it is";
  }
  const std::string doubt = doubt_of(curve_of(noise));
  if (!doubt.empty()) said_ += "; doubtful: " + doubt;
}

}  // namespace vorn::tool
