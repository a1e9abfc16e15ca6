#include "tuning/noise/follow.h"

#include <algorithm>
#include <cmath>

namespace vorn::noise {
namespace {

constexpr int kFirst = 4, kEvery = 30;
constexpr double kUsualStep = 0.5, kDoubtedStep = 0.125;
constexpr double kLeap = 1.5;
constexpr double kHold = 0.65;
constexpr double kNoNoise = 0.25;  // the gain that stands for none
// Of the first entry's gain: below it is off, above it on again.
constexpr double kOff = 0.35, kOn = 0.5;

double moved(double from, double to, double share) {
  return std::exp2(std::log2(from) + share * (std::log2(to) - std::log2(from)));
}

}  // namespace

bool is_due(const vorn_noise_follower& f) {
  return f.frames < kFirst || f.leapt != 0 || f.frames % kEvery == 0;
}

void take(vorn_noise_follower* f, const vorn_noise_sensor* sensor) {
  double luma = 0, chroma = 0;
  vorn_tuning_gain_for(&f->noise, sensor, &luma, &chroma);
  luma = std::max(luma, kNoNoise);
  chroma = std::max(chroma, kNoNoise);
  if (f->frames == 0 || !(f->luma_gain > 0)) {
    f->luma_gain = luma;
    f->chroma_gain = chroma;
    return;
  }
  const bool sure = f->noise.doubt == VORN_NOISE_SURE;
  const bool far = std::fabs(std::log2(luma / f->luma_gain)) > kLeap;
  double step = sure ? kUsualStep : kDoubtedStep;
  if (f->frames < kFirst) {
    step = 1.0 / (f->frames + 1);
  } else if (far && sure) {
    step = f->leapt != 0 ? 1 : 0;
  }
  f->leapt = far && sure && f->leapt == 0 && f->frames >= kFirst;
  f->luma_gain = moved(f->luma_gain, luma, step);
  f->chroma_gain = moved(f->chroma_gain, chroma, step);
}

double entry_for(const vorn_tuning_set* set, double gain, double now) {
  const double first = vorn_tuning_gain(set, 0);
  if (gain < first * (now > 0 ? kOff : kOn)) return 0;
  if (now > 0 && std::fabs(std::log2(gain / now)) <= kHold) return now;
  return vorn_tuning_gain(set, vorn_tuning_nearest(set, gain));
}

}  // namespace vorn::noise
