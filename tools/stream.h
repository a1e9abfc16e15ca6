// Frames of a stream through several denoisers at a time, given out in their order.
//
// One thread reads, some filter, one writes; a frame is written as soon as it and all before it are
// done, so a live stream is not held up by the frames to come. At most plan.denoisers + 2 frames
// are in memory beside the denoisers' own.
#pragma once

#include <functional>

#include "tools/picture/frame.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

struct stream_steps {
  // Gives the next frame, or false at the end. On the calling thread.
  std::function<bool(frame&)> read;
  // The tuning of a frame; in the frames' order, on the calling thread.
  std::function<tuning(const frame&)> tune;
  // Takes the results in order, on another thread than read.
  std::function<void(frame&)> write;
};

// How a stream of frames of this size shares `processors`: denoisers at a time and workers of each.
// The denoisers' memory stays within about a gigabyte.
struct stream_plan {
  int denoisers = 1;
  int workers = 4;
};
stream_plan plan_stream(int width, int height, int processors);

// Bytes are those of one denoiser after the other. Rethrows the first fault of any step; frames
// before it have been written.
void denoise_stream(const stream_steps& steps, int processors);

}  // namespace vorn::tool
