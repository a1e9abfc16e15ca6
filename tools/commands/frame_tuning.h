// The tuning of every frame of a stream or picture: from the options alone where they name a gain,
// else from the noise of the frames themselves (vorn_tuning_follow).
#pragma once

#include <string>

#include "tools/commands/commands.h"
#include "tools/picture/frame.h"
#include "vorn_noise.h"

namespace vorn::tool {

// Frames come in their order, on one thread.
class frame_tuning {
 public:
  // sensor: the one whose gains the set is for; null for the default set's. It must stay.
  explicit frame_tuning(const tuning_options& options, const vorn_noise_sensor* sensor = nullptr);
  ~frame_tuning();
  frame_tuning(const frame_tuning&) = delete;
  frame_tuning& operator=(const frame_tuning&) = delete;

  const tuning& of(const frame& f);

  // What the last frame changed and why, like "gain auto: luma 5.8 (entry 8), chroma 4.1 (entry 4);
  // noise 4.9 and 2.6 grey levels"; empty where nothing changed or the gain was given.
  const std::string& said() const { return said_; }

 private:
  void say();

  const tuning_options options_;
  const bool automatic_;
  const vorn_noise_sensor* sensor_;
  vorn_tuning_set* set_ = nullptr;
  vorn_noise_follower follower_{};
  tuning chosen_{};
  std::string said_;
};

}  // namespace vorn::tool
