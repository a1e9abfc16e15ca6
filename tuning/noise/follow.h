// Follows the noise of a stream: which frames are measured, and how the gain in use changes.
//
// The first kFirst frames are measured and their gains averaged (in stops); then every kEvery-th
// frame moves the gain half the way, a doubted one an eighth. A leap of kLeap stops is measured
// again on the next frame and taken at once when it stands: a cut, or light switched on. An entry
// stays in use until the gain is kHold stops from it, so that no gain between two entries makes the
// picture pump. Far below the set's first entry nothing is filtered.
#pragma once

#include "vorn_noise.h"

namespace vorn::noise {

// Whether this frame, the follower's frames-th, is to be measured.
bool is_due(const vorn_noise_follower& f);
// Takes f->noise, just measured, into the gains.
void take(vorn_noise_follower* f, const vorn_noise_sensor* sensor);
// The set's entry for a gain, when the entry of gain `now` (0: none) is in use; 0: filter nothing.
double entry_for(const vorn_tuning_set* set, double gain, double now);

}  // namespace vorn::noise
