#include "bench/workload.h"

#include <cmath>
#include <cstdlib>

#include "base/log.h"
#include "runtime/exported/pool.h"
#include "runtime/pool.h"
#include "vorn_tuning.h"

namespace bench {

namespace {

void take_default(double gain, tuning* to) {
  vorn_tuning_set* set = vorn_tuning_default(nullptr);
  if (!set || vorn_tuning_for_gain(set, gain, &to->ynr, &to->cnr) != VORN_TUNING_OK) std::abort();
  vorn_tuning_free(set);
}

}  // namespace

tuning::tuning(algorithms which) {
  parameters.ynr = &ynr;
  parameters.cnr = &cnr;
  const double gain = which == algorithms::gain_1    ? 1
                      : which == algorithms::gain_8  ? 8
                      : which == algorithms::gain_64 ? 64
                                                     : 0;
  if (gain != 0) {
    take_default(gain, this);
    return;
  }
  ynr.enable = which != algorithms::chroma;
  ynr.layer = 4;
  for (int& intensity : ynr.pIntensity) intensity = 45;
  for (int& radius : ynr.pRadius) radius = 7;
  ynr.pRadius[0] = 5;
  ynr.param0 = 190;
  cnr.enable = which != algorithms::luma;
  cnr.range_factor = 20;
  cnr.smooth_radius = 18;
  cnr.scale = 2;
  cnr.step = 1;
  cnr.color_edge_u = 8;
  cnr.color_edge_v = 9;
}

std::vector<uint8_t> noisy_frame(int width, int height) {
  std::vector<uint8_t> bytes(static_cast<size_t>(width) * static_cast<size_t>(height) * 3 / 2);
  uint64_t state = 0x9e3779b97f4a7c15u;
  // Sum of four uniform values, scaled to a deviation of 4.
  const auto noise = [&state] {
    int sum = 0;
    for (int i = 0; i < 4; ++i) {
      state ^= state << 13;
      state ^= state >> 7;
      state ^= state << 17;
      sum += static_cast<int>(state >> 56) - 128;
    }
    return sum * 4 / 148;
  };
  const auto clipped = [](double v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); };
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const bool texture = (x / 128 + y / 128) % 2 != 0;
      const double grating = texture ? 24 * std::sin(0.35 * x) * std::sin(0.21 * y) : 0;
      bytes[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)] =
          clipped(60 + 120.0 * x / width + 40.0 * y / height + grating + noise());
    }
  uint8_t* uv = bytes.data() + static_cast<size_t>(width) * static_cast<size_t>(height);
  for (int y = 0; y < height / 2; ++y)
    for (int x = 0; x < width; ++x)
      *uv++ = clipped(128 + 40 * std::sin(0.004 * x) + (x % 2 ? 20.0 * y / height : 0) + noise());
  return bytes;
}

_tag_uni_image frame_image(std::vector<uint8_t>& bytes, int width, int height) {
  _tag_uni_image image{};
  image.type = VORN_IMAGE_YUV420SP;
  image.width = width;
  image.height = height;
  image.plane[0] = bytes.data();
  image.plane[1] = bytes.data() + static_cast<size_t>(width) * static_cast<size_t>(height);
  image.stride[0] = image.stride[1] = width;
  return image;
}

denoiser::denoiser(int width, int height, int workers) {
  ycnr_init_param size = {width, height};
  handle_ = vorn_ycnr_init(&size);
  nr_log_Level = 0;
  if (!handle_) std::abort();
  if (workers == 4) return;
  vorn_threadpool_destroy(handle_->pool);
  vorn_threadpool_init(&handle_->pool, workers);
  handle_->cnr->pool = handle_->ynr->pool = handle_->pool;
}

denoiser::~denoiser() {
  vorn_ycnr_deinit(handle_);
}

}  // namespace bench
