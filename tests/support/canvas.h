// A single plane in the middle of a larger block, for tests of stages.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/model/model.h"
#include "tests/support/content.h"

namespace vorn_test {

// Random bytes inside and around, all of which same() compares, so that a row left untouched and a
// write outside show alike. Copies start with the same bytes.
class canvas {
 public:
  canvas(int width, int height, int stride, random_source& random)
      : margin_(static_cast<size_t>(stride) * 8 + 128),
        memory_(margin_ * 2 + static_cast<size_t>(stride) * static_cast<size_t>(height)) {
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
    vorn_test::paint(data(), record_.width, record_.height, record_.stride[0], 1, c, random);
  }
  // Row by row, without padding between them.
  void set(const std::vector<uint8_t>& samples) {
    for (int y = 0; y < record_.height; ++y)
      std::copy_n(samples.begin() + y * record_.width, record_.width, &at(y, 0));
  }
  std::vector<uint8_t> samples() const {
    std::vector<uint8_t> all;
    for (int y = 0; y < record_.height; ++y) all.insert(all.end(), row(y), row(y) + record_.width);
    return all;
  }

  _tag_uni_image* image() { return &record_; }
  model::plane plane() { return model::of(record_); }
  uint8_t* data() { return record_.plane[0]; }
  uint8_t& at(int y, int x) { return row(y)[x]; }
  uint8_t at(int y, int x) const { return row(y)[x]; }
  bool same(const canvas& other) const { return memory_ == other.memory_; }

 private:
  uint8_t* row(int y) const {
    return record_.plane[0] + static_cast<ptrdiff_t>(y) * record_.stride[0];
  }

  size_t margin_;
  std::vector<uint8_t> memory_;
  _tag_uni_image record_;
};

inline canvas noisy(int width, int height, uint64_t seed, int stride = 0) {
  random_source random(seed);
  return canvas(width, height, stride ? stride : width, random);
}

inline canvas painted(int width, int height, int stride, random_source& random) {
  canvas c(width, height, stride, random);
  c.paint(any_content(random), random);
  return c;
}

// A mask of the caller's, with zeros: blocks and pairs that are left as they were.
inline canvas random_mask(int width, int height, random_source& random) {
  canvas mask(width, height, width + random.between(0, 5), random);
  const int zeros = random.pick({2, 3, 8, 1000}), smooth = random.one_in(3);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      mask.at(y, x) =
          static_cast<uint8_t>(random.one_in(zeros) ? 0
                               : smooth             ? random.between(64, 191)
                                        : random.pick({1, 3, 16, 63, 64, 65, 100, 128, 200, 255}));
  return mask;
}

}  // namespace vorn_test
