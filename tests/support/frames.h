// Frames and tunings for tests that go through the four calls.
#pragma once

#include <cstdint>
#include <vector>

#include "vorn_ycnr.h"

namespace vorn_test {

inline size_t frame_bytes(int width, int height) {
  return static_cast<size_t>(width) * static_cast<size_t>(height) * 3 / 2;
}

// A frame in memory of its own, with guard bytes before and behind it.
class frame {
 public:
  static constexpr size_t kGuard = 64;

  frame(int width, int height) : size_(frame_bytes(width, height)), bytes_(size_ + 2 * kGuard) {
    image.width = width;
    image.height = height;
    image.plane[0] = bytes_.data() + kGuard;
    fill(0xee, 0);
  }

  // Shaded content with noise: low bits of a small generator, the same on every machine.
  void draw(uint32_t seed) {
    fill(0xee, 0);
    uint32_t state = seed * 2654435761u + 1;
    const int width = image.width;
    for (size_t i = 0; i < size_; ++i) {
      state = state * 1664525u + 1013904223u;
      const size_t x = i % static_cast<size_t>(width), y = i / static_cast<size_t>(width);
      const int shade = static_cast<int>(64 + (x * 3 + y * 2) % 128);
      image.plane[0][i] = static_cast<uint8_t>(shade + static_cast<int>(state >> 28) - 8);
    }
  }

  void fill(uint8_t guard, uint8_t value) {
    for (size_t i = 0; i < bytes_.size(); ++i)
      bytes_[i] = i < kGuard || i >= kGuard + size_ ? guard : value;
  }

  bool guards_intact() const {
    for (size_t i = 0; i < kGuard; ++i)
      if (bytes_[i] != 0xee || bytes_[bytes_.size() - 1 - i] != 0xee) return false;
    return true;
  }

  std::vector<uint8_t> bytes() const { return {image.plane[0], image.plane[0] + size_}; }
  size_t luma_bytes() const {
    return static_cast<size_t>(image.width) * static_cast<size_t>(image.height);
  }

  _tag_uni_image image = {};

 private:
  size_t size_;
  std::vector<uint8_t> bytes_;
};

struct tuning {
  ycnr_ynr_tuning_param ynr = {1, 3, {40, 40, 40, 40, 40}, {5, 7, 7, 7, 7}, 64, 0, 0};
  ycnr_cnr_tuning_param cnr = {1, 20, 6, 2, 1, 8, 8, 0, 0, 0, 0};
  Denoise_Parameters_t params = {0, &ynr, &cnr};

  tuning() = default;
  tuning(int luma, int chroma) {
    ynr.enable = luma;
    cnr.enable = chroma;
  }
  tuning(const tuning& other) : ynr(other.ynr), cnr(other.cnr) {}
  tuning& operator=(const tuning&) = delete;
};

// A handle for one frame size, closed at the end.
class denoiser {
 public:
  denoiser(int width, int height) {
    ycnr_init_param size = {width, height};
    handle_ = vorn_ycnr_init(&size);
  }
  ~denoiser() {
    if (handle_) vorn_ycnr_deinit(handle_);
  }
  denoiser(const denoiser&) = delete;
  denoiser& operator=(const denoiser&) = delete;

  denoise_handle_t* get() const { return handle_; }
  int run(frame& src, frame& dst, tuning& with) {
    return vorn_ycnr_process(handle_, &src.image, &dst.image, &with.params);
  }

 private:
  denoise_handle_t* handle_;
};

}  // namespace vorn_test
