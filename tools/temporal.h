// Steadies a denoised stream: where nothing moves, a frame is blended with the one before it.
//
// Runs after the filter, on its results, so that motion is judged on pictures with little noise
// left. Luma is cut into blocks of 8x8. A block is still when the mean of its absolute differences
// to the former result, and the difference of the block means of luma and of both chroma planes,
// stay within what the noise explains. A still block takes 11/16 of the
// former result; towards 1.5 times the limit that share falls to nothing, and a block takes the
// least share of the blocks around it, between whose centres shares are interpolated. No sample
// moves by more than two deviations of that noise, so what the test misses leaves no ghost. A
// frame in which most blocks move is a cut and stays as it is. Integers only: the same bytes on
// every machine.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/picture/frame.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

class temporal_blend {
 public:
  // Blends f, the next frame of the stream as t has denoised it, with the result of the call
  // before. The first frame, and one of another size, stay as they are.
  void run(frame& f, const tuning& t);

  // Frames taken for the first after a cut.
  int cuts() const { return cuts_; }

 private:
  std::optional<frame> former_;
  std::vector<uint8_t> shares_, least_;
  int cuts_ = 0;
};

}  // namespace vorn::tool
