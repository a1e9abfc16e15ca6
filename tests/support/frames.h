// Frames, tunings and handles for tests that go through the library's calls.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/content.h"
#include "tests/support/random.h"
#include "vorn_ycnr_ext.h"

namespace vorn_test {

inline size_t frame_bytes(int width, int height) {
  return static_cast<size_t>(width) * static_cast<size_t>(height) * 3 / 2;
}

// A contiguous frame between guard bytes, `shift` bytes past an aligned address.
class frame {
 public:
  frame(int width, int height, int shift = 0);
  frame(frame&&) = default;

  void paint(content c, random_source& random);
  void draw(uint64_t seed) {
    random_source random(seed);
    paint(content::texture, random);
  }
  void fill(uint8_t value) { std::fill_n(data(), size_, value); }
  void take(const std::vector<uint8_t>& bytes) { std::copy(bytes.begin(), bytes.end(), data()); }

  uint8_t* data() { return memory_.data() + begin_; }
  const uint8_t* data() const { return memory_.data() + begin_; }
  size_t size() const { return size_; }
  std::vector<uint8_t> bytes() const { return {data(), data() + size_}; }
  size_t luma_bytes() const {
    return static_cast<size_t>(image.width) * static_cast<size_t>(image.height);
  }
  bool guards_intact() const;

  _tag_uni_image image;  // size and first plane as a caller fills them in

 private:
  static constexpr size_t kGuard = 256;
  static uint8_t guard_at(size_t i) { return static_cast<uint8_t>(i * 37 + 11); }

  size_t begin_, size_;
  std::vector<uint8_t> memory_;
};

// Where two frames differ first: "luma byte x of row y: got a, want b", or "" when they are the
// same.
std::string first_difference(const frame& got, const frame& want);

struct tuning {
  ycnr_ynr_tuning_param ynr = {1, 3, {40, 40, 40, 40, 40}, {5, 7, 7, 7, 7}, 64, 0, 0};
  ycnr_cnr_tuning_param cnr = {1, 20, 6, 2, 1, 8, 8, 0, 0, 0, 0};
  Denoise_Parameters_t params = {0x1234567890abcdefu, &ynr, &cnr};

  tuning() = default;
  tuning(int luma, int chroma) {
    ynr.enable = luma;
    cnr.enable = chroma;
  }
  tuning(const tuning& other) : ynr(other.ynr), cnr(other.cnr) {}
  tuning& operator=(const tuning& other) {
    ynr = other.ynr;
    cnr = other.cnr;
    return *this;
  }
};

// Both algorithms on at everyday strength.
tuning everyday();
// Any tuning that is worth running: every field at its ends now and then.
tuning random_tuning(random_source& random);
std::string text(const tuning& t);

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
  int run(frame& src, frame& dst, tuning& with, bool fine = false) const {
    const auto process = fine ? vorn_ycnr_process_fine : vorn_ycnr_process;
    return process(handle_, &src.image, &dst.image, &with.params);
  }

 private:
  denoise_handle_t* handle_;
};

// The library logs nothing while the object lives.
class quiet_log {
 public:
  quiet_log() : former_(vorn_ycnr_set_log_level(0)) {}
  ~quiet_log() {
    vorn_ycnr_set_log_level(former_);
    vorn_ycnr_set_log_level(-1);
  }
  quiet_log(const quiet_log&) = delete;
  quiet_log& operator=(const quiet_log&) = delete;

 private:
  int former_;
};

}  // namespace vorn_test
