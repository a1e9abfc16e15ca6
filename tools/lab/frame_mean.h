// The mean of a burst: frames of one still scene laid upon each other.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/lab/alignment.h"
#include "tools/picture/frame.h"

namespace vorn::tool {

// What is known of a frame of the burst against the first one.
struct burst_frame {
  displacement moved;
  double brightness = 0;           // mean of luma
  const char* left_out = nullptr;  // why it does not count
};

burst_frame look_at(const frame& f, const frame& first);

// Leaves out what is far from the others: in brightness (a flash, a flicker of the light), in what
// differs after alignment (something moved, the camera blurred), or displaced by more than can be
// aligned. The first frame stays, as all others are laid upon it.
void leave_out_odd_ones(std::vector<burst_frame>& burst);

// Adds up frames, each moved back by its displacement: whole pixels as they are, anything else by
// cubic interpolation (Catmull-Rom). Displacements below a tenth of a pixel count as none.
class frame_sum {
 public:
  explicit frame_sum(const frame& first);
  void add(const frame& f, const displacement& moved);
  // Rounded; where no frame reaches, the first frame's sample.
  frame mean() const;
  int count() const { return count_; }

 private:
  struct channel {
    std::vector<float> sum, weight;
  };
  frame first_;
  channel luma_, u_, v_;
  int count_ = 0;
};

}  // namespace vorn::tool
