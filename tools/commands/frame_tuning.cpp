#include "tools/commands/frame_tuning.h"

#include <cmath>
#include <cstdio>

#include "tools/error.h"
#include "tools/lab/noise_meter.h"

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

frame_tuning::frame_tuning(const tuning_options& options, const vorn_noise_sensor* sensor)
    : options_(options), automatic_(!(options.gain > 0)), sensor_(sensor) {
  if (!automatic_) {
    chosen_ = options.resolve();
    return;
  }
  const std::string text = tuning_set_to_json(options.load_set());
  vorn_tuning_fault fault;
  set_ = vorn_tuning_parse(text.data(), text.size(), options.file.c_str(), &fault);
  if (set_ == nullptr) throw error("", fault.text);
}

frame_tuning::~frame_tuning() {
  vorn_tuning_free(set_);
}

const tuning& frame_tuning::of(const frame& f) {
  said_.clear();
  if (!automatic_) return chosen_;
  const vorn_noise_frame view = noise_view(f);
  tuning t;
  const int32_t code = vorn_tuning_follow(&follower_, set_, sensor_, &view, &t.luma, &t.chroma);
  if (code != VORN_TUNING_OK) throw error("gain auto", vorn_tuning_result_text(code));
  // Who names strengths wants them used.
  if (!options_.overrides.empty()) t.luma.enable = t.chroma.enable = 1;
  chosen_ = options_.applied_to(t);
  if (follower_.changed != 0) say();
  return chosen_;
}

void frame_tuning::say() {
  const vorn_noise_follower& f = follower_;
  const noise_curve curve = curve_of(f.noise);
  if (f.luma_entry > 0 || f.chroma_entry > 0) {
    char noise[80];
    std::snprintf(noise, sizeof noise, "; noise %.1f and %.1f grey levels", f.noise.luma,
                  std::hypot(f.noise.u, f.noise.v) / std::sqrt(2.0));
    said_ = "gain auto: " + entry_text("luma", f.luma_gain, f.luma_entry) + ", " +
            entry_text("chroma", f.chroma_gain, f.chroma_entry) + noise;
  } else {
    said_ = f.noise.found != 0 ? "gain auto: too little noise, left as it is"
                               : "gain auto: no noise found, left as it is";
  }
  const std::string doubt = doubt_of(curve);
  if (!doubt.empty()) said_ += "; doubtful: " + doubt;
}

}  // namespace vorn::tool
