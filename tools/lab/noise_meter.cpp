#include "tools/lab/noise_meter.h"

#include <algorithm>

#include "tools/error.h"

namespace vorn::tool {

vorn_noise_frame noise_view(const frame& f) {
  const int32_t stride = f.padded_width;
  vorn_noise_frame view{f.luma(), f.chroma(), f.chroma() + 1, f.width, f.height, stride, stride, 2};
  if (f.gray) view.u = view.v = nullptr;
  return view;
}

noise_curve curve_of(const vorn_noise& measured) {
  noise_curve curve;
  curve.all = measured;
  for (int i = 0; i < measured.classes; ++i) {
    const vorn_noise_class& c = measured.class_at[i];
    curve.classes.push_back({c.brightness, c.luma, c.u, c.v, c.blocks});
  }
  curve.y = measured.luma;
  curve.u = measured.u;
  curve.v = measured.v;
  curve.correlation_y = measured.luma_correlation;
  curve.correlation_uv = measured.chroma_correlation;
  return curve;
}

noise_curve measure_noise(const std::vector<frame>& frames, noise_scene scene) {
  if (frames.empty()) return {};
  std::vector<vorn_noise_frame> views;
  for (const frame& f : frames) views.push_back(noise_view(f));
  const int32_t kind = scene == noise_scene::burst  ? VORN_NOISE_BURST
                       : scene == noise_scene::flat ? VORN_NOISE_FLAT
                                                    : VORN_NOISE_ANY;
  vorn_noise measured;
  const int32_t code = vorn_tuning_measure(views.data(), int32_t(views.size()), kind, &measured);
  if (code != VORN_TUNING_OK) throw error("noise", vorn_tuning_result_text(code));
  return curve_of(measured);
}

std::string doubt_of(const noise_curve& curve) {
  switch (curve.all.doubt) {
    case VORN_NOISE_TEXTURE:
      return "hardly anything in the picture is flat: texture may count as noise, the figures are "
             "upper "
             "bounds";
    case VORN_NOISE_FEW:
      return "too small, or too much of it black, white or of one value: nothing to measure noise "
             "in";
    default:
      return "";
  }
}

noise_gains gains_of(const noise_curve& measured, const noise_model& model) {
  const vorn_noise_sensor sensor = {model.full_well, model.read_noise};
  noise_gains gains;
  vorn_tuning_gain_for(&measured.all, &sensor, &gains.luma, &gains.chroma);
  return gains;
}

noise_curve model_curve(const noise_model& model) {
  std::vector<frame> frames;
  for (int level = 8; level < 256; level += 16) {
    frame f = make_frame(192, 160);
    std::fill(f.luma(), f.chroma(), static_cast<uint8_t>(level));
    noise_model own = model;
    own.seed += static_cast<uint64_t>(level);
    add_noise(f, own);
    frames.push_back(std::move(f));
  }
  return measure_noise(frames, noise_scene::flat);
}

}  // namespace vorn::tool
