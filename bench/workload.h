// What the benchmarks work on: a denoiser with a chosen number of workers, a noisy frame with
// shading and texture, and the tuning that the published figures are for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/handle.h"
#include "cnr/cnr_handle.h"
#include "vorn_ycnr.h"
#include "ynr/ynr_handle.h"

namespace bench {

// One or both algorithms with the tuning that the published figures are for, or both with an entry
// of the default set, by its gain.
enum class algorithms { luma, chroma, both, gain_1, gain_8, gain_64 };

struct named_algorithms {
  const char* name;
  algorithms which;
};
constexpr named_algorithms kAlgorithms[] = {
    {"both", algorithms::both},     {"luma", algorithms::luma},
    {"chroma", algorithms::chroma}, {"gain-1", algorithms::gain_1},
    {"gain-8", algorithms::gain_8}, {"gain-64", algorithms::gain_64}};

// Without a gain: luma 4 layers with windows 5/7/7/7 and the built-in mask; chroma on two levels,
// radius 18, taps 2 apart.
struct tuning {
  ycnr_ynr_tuning_param ynr{};
  ycnr_cnr_tuning_param cnr{};
  Denoise_Parameters_t parameters{};
  explicit tuning(algorithms which);
  tuning(const tuning&) = delete;
};

// Shading, gratings and noise of sigma 4, the same at every run.
std::vector<uint8_t> noisy_frame(int width, int height);

// A record over the bytes of a frame.
_tag_uni_image frame_image(std::vector<uint8_t>& bytes, int width, int height);

// A denoiser whose stages run on `workers` (1..4) threads.
class denoiser {
 public:
  denoiser(int width, int height, int workers);
  ~denoiser();
  denoiser(const denoiser&) = delete;

  denoise_handle_t* handle() { return handle_; }
  cnr_handle_t* chroma() { return handle_->cnr; }
  ynr_handle_t* luma() { return handle_->ynr; }

 private:
  denoise_handle_t* handle_;
};

}  // namespace bench
