// What the whole-frame programs share: a small generator of numbers that is the same on every
// machine, picture contents made by formula, frames between guard bytes, and tunings drawn at
// random over everything a tuning can say.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/model/model.h"
#include "vorn_ycnr.h"

namespace frame_util {

// Multiplies the number of random trials: the environment variable VORN_TEST_EFFORT, or 1.
int effort();

// SplitMix64: a counter through a mixing function.
struct random_source {
  uint64_t state;
  explicit random_source(uint64_t seed) : state(seed) {}
  uint64_t next();
  int between(int low, int high);  // inclusive
  bool one_in(int n) { return between(1, n) == 1; }
  int pick(std::initializer_list<int> values);
};

enum class content { noise, flat, extremes, ramp, texture, spike, saturated };
constexpr int kContents = 7;
const char* content_name(content c);

// Fills a plane, or an interleaved chroma plane (channels 2).
void paint(uint8_t* data, int width, int height, int stride, int channels, content c,
           random_source& random);

// An image in the middle of a larger block. Twins start with the same bytes.
class canvas {
 public:
  canvas(int width, int height, int stride, random_source& random)
      : margin_(static_cast<size_t>(stride) * 8 + 128),
        memory_(margin_ * 2 + static_cast<size_t>(stride) * height) {
    for (uint8_t& b : memory_) b = static_cast<uint8_t>(random.next());
    record_ = {};
    record_.width = width;
    record_.height = height;
    record_.plane[0] = memory_.data() + margin_;
    record_.stride[0] = stride;
  }
  canvas(const canvas& from) : margin_(from.margin_), memory_(from.memory_), record_(from.record_) {
    record_.plane[0] = memory_.data() + margin_;
  }
  canvas& operator=(const canvas&) = delete;

  void paint(content c, random_source& random) {
    frame_util::paint(data(), record_.width, record_.height, record_.stride[0], 1, c, random);
  }
  _tag_uni_image* image() { return &record_; }
  model::plane plane() { return model::of(record_); }
  uint8_t* data() { return record_.plane[0]; }
  uint8_t& at(int y, int x) { return plane().at(y, x); }
  bool same(const canvas& other) const { return memory_ == other.memory_; }

 private:
  size_t margin_;
  std::vector<uint8_t> memory_;
  _tag_uni_image record_;
};

inline canvas noisy(int width, int height, uint64_t seed, int stride = 0) {
  random_source random(seed);
  return canvas(width, height, stride ? stride : width, random);
}

inline content any_content(random_source& random) {
  return static_cast<content>(random.between(0, kContents - 1));
}

inline canvas painted(int width, int height, int stride, random_source& random) {
  canvas c(width, height, stride, random);
  c.paint(any_content(random), random);
  return c;
}

// One frame of width * height * 3 / 2 bytes with guard bytes on both sides, `shift` bytes past an
// aligned address.
class frame {
 public:
  frame(int width, int height, int shift = 0);
  void paint(content c, random_source& random);
  uint8_t* data() { return memory_.data() + begin_; }
  const uint8_t* data() const { return memory_.data() + begin_; }
  size_t size() const { return memory_.size() - 2 * kGuard - 16; }
  bool guards_intact() const;
  _tag_uni_image image();  // first plane pointer and size, as a caller would fill it
  int width() const { return width_; }
  int height() const { return height_; }

 private:
  static constexpr size_t kGuard = 256;
  size_t begin_;
  int width_;
  int height_;
  std::vector<uint8_t> memory_;
};

struct tuning {
  ycnr_ynr_tuning_param ynr;
  ycnr_cnr_tuning_param cnr;
};

// Both algorithms on at everyday strength.
tuning everyday();
// Any tuning that is worth running: every field at its ends now and then.
tuning random_tuning(random_source& random);
std::string text(const tuning& t);

// 64-bit FNV-1a over bytes, continuing from `hash`.
constexpr uint64_t kHashStart = 0xcbf29ce484222325u;
uint64_t hash_bytes(const uint8_t* data, size_t size, uint64_t hash = kHashStart);

// Where two frames differ first: "Y (x, y): got a, want b", or "" when they are the same.
std::string first_difference(const frame& got, const frame& want);

// A handle with logging off; null when the size is refused.
struct denoiser {
  denoise_handle_t* handle;
  denoiser(int width, int height);
  ~denoiser();
  denoiser(const denoiser&) = delete;
  denoiser& operator=(const denoiser&) = delete;
  int run(frame& src, frame& dst, tuning& t, bool fine = false) const;
};

}  // namespace frame_util
