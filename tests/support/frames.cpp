#include "tests/support/frames.h"

#include <cstdio>
#include <cstring>

namespace vorn_test {

frame::frame(int width, int height, int shift)
    : begin_(kGuard + static_cast<size_t>(shift)),
      size_(frame_bytes(width, height)),
      memory_(size_ + 2 * kGuard + 16) {
  for (size_t i = 0; i < memory_.size(); ++i) memory_[i] = guard_at(i);
  std::memset(&image, 0x5a, sizeof image);  // nobody may look at the rest
  image.width = width;
  image.height = height;
  image.plane[0] = memory_.data() + begin_;
}

void frame::paint(content c, random_source& random) {
  const int width = image.width, height = image.height, pairs = width / 2;
  vorn_test::paint(data(), width, height, width, 1, c, random);
  vorn_test::paint(data() + luma_bytes(), pairs, height / 2, 2 * pairs, 2, c, random);
  for (size_t i = luma_bytes() + static_cast<size_t>(2 * pairs) * (height / 2); i < size(); ++i)
    data()[i] = static_cast<uint8_t>(random.next());  // of odd sizes
}

bool frame::guards_intact() const {
  for (size_t i = 0; i < memory_.size(); ++i) {
    if (i == begin_) i += size_;
    if (memory_[i] != guard_at(i)) return false;
  }
  return true;
}

tuning everyday() {
  tuning t;
  t.ynr = {1, 4, {20, 30, 40, 40, 40}, {5, 7, 7, 7, 7}, 80, 0, 0};
  t.cnr = {1, 12, 18, 2, 1, 8, 8, 0, 0, 0, 0};
  return t;
}

tuning random_tuning(random_source& random) {
  tuning t;
  const int both = random.between(0, 5);
  t.ynr.enable = both != 1;
  t.cnr.enable = both != 0;
  t.ynr.layer = random.one_in(12) ? random.pick({1, 6, -1}) : random.between(2, 5);
  for (int l = 0; l < 5; ++l) {
    t.ynr.pIntensity[l] = random.one_in(4)
                              ? random.pick({0, -3, 1, 2, 255, 5000, 100000, INT32_MAX})
                              : random.between(1, 80);
    t.ynr.pRadius[l] =
        random.one_in(8) ? random.pick({0, 1, 2, 4, 6, 8, 9, -7}) : random.pick({3, 5, 7});
  }
  t.ynr.param0 = random.one_in(4)
                     ? random.pick({INT32_MIN, -1, 0, 63, 64, 65, 112, 5000, INT32_MAX})
                     : random.between(0, 300);
  t.ynr.param1 = random.between(-9, 9);
  t.cnr.range_factor = random.one_in(4) ? random.pick({0, 1, 2, 255, 1000, 46341, -5, INT32_MIN})
                                        : random.between(1, 60);
  t.cnr.smooth_radius = random.one_in(4) ? random.pick({0, 1, 2, 300, -6, INT32_MAX, INT32_MIN})
                                         : random.between(1, 40);
  t.cnr.scale = random.one_in(8) ? random.pick({3, -1, 7}) : random.between(0, 2);
  t.cnr.step =
      random.one_in(6) ? random.pick({0, -1, 50, INT32_MAX, 1 << 30}) : random.between(1, 4);
  for (int* edge : {&t.cnr.color_edge_u, &t.cnr.color_edge_v})
    *edge = random.one_in(5) ? random.pick({0, 255, -8, 5000, 1 << 20, INT32_MAX, INT32_MIN})
                             : random.between(1, 24);
  t.cnr.saturation =
      random.one_in(2) ? 0 : random.pick({1, 4, 16, -8, -16, -32, 127, -128, 128, 300, INT32_MIN});
  t.cnr.param0 = random.between(-9, 9);
  return t;
}

std::string text(const tuning& t) {
  char line[512];
  std::snprintf(line, sizeof line,
                "luma %d layers %d intensity %d %d %d %d %d radius %d %d %d %d %d param0 %d | "
                "chroma %d factor %d radius %d scale %d step %d edges %d %d saturation %d",
                t.ynr.enable, t.ynr.layer, t.ynr.pIntensity[0], t.ynr.pIntensity[1],
                t.ynr.pIntensity[2], t.ynr.pIntensity[3], t.ynr.pIntensity[4], t.ynr.pRadius[0],
                t.ynr.pRadius[1], t.ynr.pRadius[2], t.ynr.pRadius[3], t.ynr.pRadius[4],
                t.ynr.param0, t.cnr.enable, t.cnr.range_factor, t.cnr.smooth_radius, t.cnr.scale,
                t.cnr.step, t.cnr.color_edge_u, t.cnr.color_edge_v, t.cnr.saturation);
  return line;
}

std::string first_difference(const frame& got, const frame& want) {
  size_t differing = 0, first = 0;
  for (size_t i = got.size(); i-- > 0;)
    if (got.data()[i] != want.data()[i]) {
      ++differing;
      first = i;
    }
  if (differing == 0) return "";
  const size_t luma = got.luma_bytes(), width = static_cast<size_t>(got.image.width);
  const size_t at = first < luma ? first : first - luma;
  char line[160];
  std::snprintf(line, sizeof line,
                "%zu bytes differ, first: %s byte %zu of row %zu: got %d, want %d", differing,
                first < luma ? "luma" : "chroma", at % width, at / width, got.data()[first],
                want.data()[first]);
  return line;
}

}  // namespace vorn_test
