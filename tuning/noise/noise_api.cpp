// The C calls of vorn_noise.h; no exception leaves from here.
#include <new>

#include "tuning/noise/follow.h"
#include "tuning/noise/meter.h"
#include "tuning/noise/sensor.h"
#include "vorn_noise.h"

namespace {

bool usable(const vorn_noise_frame& f) {
  if (f.luma == nullptr || f.width < 1 || f.height < 1 || f.luma_stride < f.width) return false;
  if (int64_t(f.width) * f.height > int64_t{1} << 30) return false;
  if ((f.u == nullptr) != (f.v == nullptr)) return false;
  if (f.u == nullptr) return true;
  return (f.chroma_step == 1 || f.chroma_step == 2) &&
         f.chroma_stride >= (int64_t(f.width) + 1) / 2 * f.chroma_step;
}

bool is_sensor(const vorn_noise_sensor* sensor) {
  return sensor == nullptr || (sensor->full_well > 0 && sensor->read_noise >= 0);
}

}  // namespace

int32_t vorn_tuning_measure(const vorn_noise_frame* frames, int32_t count, int32_t scene,
                            vorn_noise* result) {
  if (frames == nullptr || result == nullptr || count < 1) return VORN_TUNING_ARGUMENT;
  if (scene < VORN_NOISE_ANY || scene > VORN_NOISE_BURST) return VORN_TUNING_ARGUMENT;
  if (scene == VORN_NOISE_BURST && count < 2) return VORN_TUNING_ARGUMENT;
  for (int32_t i = 0; i < count; ++i) {
    if (!usable(frames[i])) return VORN_TUNING_ARGUMENT;
    const bool other = frames[i].width != frames[0].width || frames[i].height != frames[0].height ||
                       (frames[i].u == nullptr) != (frames[0].u == nullptr);
    if (scene == VORN_NOISE_BURST && other) return VORN_TUNING_ARGUMENT;
  }
  try {
    vorn::noise::measure(frames, count, scene, result);
    return VORN_TUNING_OK;
  } catch (const std::bad_alloc&) {
    return VORN_TUNING_MEMORY;
  }
}

int32_t vorn_tuning_gain_for(const vorn_noise* noise, const vorn_noise_sensor* sensor,
                             double* luma_gain, double* chroma_gain) {
  if (noise == nullptr || luma_gain == nullptr || chroma_gain == nullptr)
    return VORN_TUNING_ARGUMENT;
  const vorn_noise_sensor own = sensor != nullptr ? *sensor : vorn::noise::kDefaultSensor;
  if (!is_sensor(sensor) || noise->classes < 0 || noise->classes > VORN_NOISE_CLASSES)
    return VORN_TUNING_ARGUMENT;
  *luma_gain = *chroma_gain = 0;
  if (noise->found == 0) return VORN_TUNING_INVALID;
  vorn::noise::gains_for(*noise, own, luma_gain, chroma_gain);
  return VORN_TUNING_OK;
}

int32_t vorn_tuning_follow(vorn_noise_follower* follower, const vorn_tuning_set* set,
                           const vorn_noise_sensor* sensor, const vorn_noise_frame* frame,
                           ycnr_ynr_tuning_param* luma, ycnr_cnr_tuning_param* chroma) {
  using namespace vorn::noise;
  if (follower == nullptr || set == nullptr || frame == nullptr || luma == nullptr ||
      chroma == nullptr || vorn_tuning_count(set) < 1 || !usable(*frame) || !is_sensor(sensor))
    return VORN_TUNING_ARGUMENT;
  follower->measured = follower->changed = 0;
  if (is_due(*follower)) {
    const int32_t code = vorn_tuning_measure(frame, 1, VORN_NOISE_ANY, &follower->noise);
    if (code != VORN_TUNING_OK) return code;
    take(follower, sensor);
    follower->measured = 1;
    const double y = entry_for(set, follower->luma_gain, follower->luma_entry);
    const double uv = entry_for(set, follower->chroma_gain, follower->chroma_entry);
    follower->changed =
        follower->frames == 0 || y != follower->luma_entry || uv != follower->chroma_entry;
    follower->luma_entry = y;
    follower->chroma_entry = uv;
  }
  if (follower->frames < INT32_MAX) ++follower->frames;
  const auto index_of = [&](double entry) {
    return vorn_tuning_nearest(set, entry > 0 ? entry : vorn_tuning_gain(set, 0));
  };
  vorn_tuning_get(set, index_of(follower->luma_entry), luma, nullptr);
  vorn_tuning_get(set, index_of(follower->chroma_entry), nullptr, chroma);
  if (!(follower->luma_entry > 0)) luma->enable = 0;
  if (!(follower->chroma_entry > 0)) chroma->enable = 0;
  return VORN_TUNING_OK;
}
