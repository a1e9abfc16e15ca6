// The library's calls for one frame size, with an `error` instead of a result code. Beside
// machine.cpp, which asks for the kernels' name, the only unit of the tool that calls the library.
#pragma once

#include <string>
#include <vector>

#include "tools/picture/frame.h"
#include "tools/tuning/tuning_set.h"
#include "vorn_ycnr.h"

namespace vorn::tool {

struct stage_time {
  std::string name;  // as the library names it: "layer 0 nlm_denoise_process"
  double ms = 0;
};

class denoiser {
 public:
  // The padded size of the frames to come. workers (1..4) changes the time alone; where the system
  // has no threads for them, fewer do.
  denoiser(int padded_width, int padded_height, int workers = 4);
  ~denoiser();
  denoiser(const denoiser&) = delete;
  denoiser& operator=(const denoiser&) = delete;

  int width() const { return width_; }
  int height() const { return height_; }

  // Denoises f in place. Different denoisers may run on different threads at the same time. A frame
  // that is smaller than the library takes with this tuning is enlarged for it, by repeating the
  // last column and row, and cropped again.
  void run(frame& f, const tuning& t);

  // The same, and the time of every stage in the order they ran; the last entry is "whole frame".
  std::vector<stage_time> run_timed(frame& f, const tuning& t);

  ycnr_capability_param capability();

 private:
  int32_t process(frame& f, tuning& t);

  int width_;
  int height_;
  denoise_handle_t* handle_ = nullptr;
  std::vector<uint8_t> result_;
};

// Keeps the library's log quiet up to errors, unless the user names a property file of his own.
// Call once, before the first denoiser.
void quiet_library_log();

}  // namespace vorn::tool
