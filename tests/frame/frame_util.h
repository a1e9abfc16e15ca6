// What the whole-frame programs share: a small generator of numbers that is the same on every
// machine, picture contents made by formula, frames between guard bytes, and tunings drawn at
// random over everything a tuning can say.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "api/vorn_ycnr.h"

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
  int run(frame& src, frame& dst, tuning& t) const;
};

}  // namespace frame_util
