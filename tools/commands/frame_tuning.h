// The tuning of every frame of a stream or picture: from the options alone where they name a gain;
// from the ISO of the file's EXIF data where the camera's profile is there to say what it means;
// else from the noise of the frames themselves (vorn_tuning_follow).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/lab/sensor_profile.h"
#include "tools/picture/frame.h"
#include "vorn_noise.h"

namespace vorn::tool {

// Frames come in their order, on one thread.
class frame_tuning {
 public:
  // iso: of the frames, 0 where it is not known.
  explicit frame_tuning(const tuning_options& options, int iso = 0);
  ~frame_tuning();
  frame_tuning(const frame_tuning&) = delete;
  frame_tuning& operator=(const frame_tuning&) = delete;

  const tuning& of(const frame& f);

  // What the last frame changed and why, like "gain auto: luma 5.8 (entry 8), chroma 4.1 (entry 4);
  // noise 4.9 and 2.6 grey levels"; empty where nothing changed or the gain was given.
  const std::string& said() const { return said_; }

 private:
  // A set whose gains are the default set's, and its gain for these frames.
  struct following {
    vorn_tuning_set* set = nullptr;
    vorn_noise_follower state{};
  };

  void take_iso(int iso);
  void add_follower(const tuning_set& set);
  void say();

  const tuning_options options_;
  const bool automatic_;
  std::optional<sensor_profile> profile_;  // that the gains of the set belong to
  // One, or one for luma and one for chroma where a profile says other gains for the two.
  std::vector<following> followers_;
  bool measuring_ = false;
  int64_t frames_ = 0;
  tuning chosen_{};
  std::string said_;
};

}  // namespace vorn::tool
