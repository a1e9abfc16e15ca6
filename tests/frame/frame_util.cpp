#include "tests/frame/frame_util.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/log.h"
#include "vorn_ycnr_ext.h"

namespace frame_util {

int effort() {
  const char* value = std::getenv("VORN_TEST_EFFORT");
  return value ? std::max(1, std::atoi(value)) : 1;
}

uint64_t random_source::next() {
  uint64_t z = state += 0x9e3779b97f4a7c15u;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return z ^ (z >> 31);
}

int random_source::between(int low, int high) {
  const auto range = static_cast<uint64_t>(static_cast<int64_t>(high) - low) + 1;
  return static_cast<int>(low + static_cast<int64_t>((next() >> 16) % range));
}

int random_source::pick(std::initializer_list<int> values) {
  return values.begin()[between(0, static_cast<int>(values.size()) - 1)];
}

const char* content_name(content c) {
  static const char* const names[kContents] = {"noise",   "flat",  "extremes", "ramp",
                                               "texture", "spike", "saturated"};
  return names[static_cast<int>(c)];
}

namespace {

uint8_t byte(int v) {
  return static_cast<uint8_t>(std::clamp(v, 0, 255));
}

// Tiles of differing brightness with slanted borders, fine stripes in some, noise over all.
int textured(int x, int y, int base, int strength, random_source& random) {
  const int tile = (x + y / 3) / 24 + 7 * (y / 20);
  const int level = (tile * 53 + base) % 200 + 20;
  const int stripes = tile % 3 == 0 ? ((x / 2 + y) % 2 ? 14 : -14) : 0;
  int noise = 0;
  for (int i = 0; i < 4; ++i) noise += random.between(-strength, strength);
  return level + stripes + noise / 2;
}

}  // namespace

void paint(uint8_t* data, int width, int height, int stride, int channels, content c,
           random_source& random) {
  int flat[2], slope[2];
  for (int k = 0; k < 2; ++k) {
    flat[k] = random.pick({0, 1, 64, 127, 128, 129, 200, 254, 255});
    slope[k] = random.between(1, 9);
  }
  const int strength = random.pick({2, 4, 8, 16});
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int k = 0; k < channels; ++k) {
        int v = 0;
        switch (c) {
          case content::noise:
            v = random.between(0, 255);
            break;
          case content::flat:
            v = flat[k];
            break;
          case content::extremes:
            v = random.one_in(2) ? 255 : 0;
            break;
          case content::ramp:
            v = ((x + 2 * y) * slope[k] / 8 + flat[k]) % 256;
            break;
          case content::texture:
            v = channels == 1 ? textured(x, y, flat[0], strength, random)
                              : 128 + (textured(x, y, flat[k], strength, random) - 120) / 3;
            break;
          case content::spike:
            v = random.one_in(97) ? 255 - flat[k] : flat[k];
            break;
          case content::saturated:
            v = ((x / 9 + y / 7 + k) % 2 ? 245 : 12) + random.between(-9, 9);
            break;
        }
        data[static_cast<size_t>(y) * stride + x * channels + k] = byte(v);
      }
}

frame::frame(int width, int height, int shift)
    : begin_(kGuard + shift),
      width_(width),
      height_(height),
      memory_(static_cast<size_t>(width) * height * 3 / 2 + 2 * kGuard + 16) {
  for (size_t i = 0; i < memory_.size(); ++i) memory_[i] = static_cast<uint8_t>(i * 37 + 11);
}

void frame::paint(content c, random_source& random) {
  frame_util::paint(data(), width_, height_, width_, 1, c, random);
  const size_t luma = static_cast<size_t>(width_) * height_;
  frame_util::paint(data() + luma, width_ / 2, height_ / 2, width_ / 2 * 2, 2, c, random);
  for (size_t i = luma + static_cast<size_t>(width_ / 2 * 2) * (height_ / 2); i < size(); ++i)
    data()[i] = static_cast<uint8_t>(random.next());  // of odd sizes
}

bool frame::guards_intact() const {
  for (size_t i = 0; i < memory_.size(); ++i) {
    if (i == begin_) i += size();
    if (memory_[i] != static_cast<uint8_t>(i * 37 + 11)) return false;
  }
  return true;
}

_tag_uni_image frame::image() {
  _tag_uni_image record;
  std::memset(&record, 0x5a, sizeof record);  // the entry points must not look at the rest
  record.width = width_;
  record.height = height_;
  record.plane[0] = data();
  return record;
}

tuning everyday() {
  tuning t = {};
  t.ynr = {1, 4, {20, 30, 40, 40, 40}, {5, 7, 7, 7, 7}, 80, 0, 0};
  t.cnr = {1, 12, 18, 2, 1, 8, 8, 0, 0, 0, 0};
  return t;
}

tuning random_tuning(random_source& random) {
  tuning t = {};
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

uint64_t hash_bytes(const uint8_t* data, size_t size, uint64_t hash) {
  for (size_t i = 0; i < size; ++i) hash = (hash ^ data[i]) * 0x100000001b3u;
  return hash;
}

std::string first_difference(const frame& got, const frame& want) {
  size_t differing = 0, first = 0;
  for (size_t i = got.size(); i-- > 0;)
    if (got.data()[i] != want.data()[i]) {
      ++differing;
      first = i;
    }
  if (differing == 0) return "";
  const size_t luma = static_cast<size_t>(got.width()) * got.height();
  const size_t at = first < luma ? first : first - luma;
  char line[160];
  std::snprintf(line, sizeof line,
                "%zu bytes differ, first: %s byte %zu of row %zu: got %d, want %d", differing,
                first < luma ? "luma" : "chroma", at % got.width(), at / got.width(),
                got.data()[first], want.data()[first]);
  return line;
}

denoiser::denoiser(int width, int height) {
  nr_log_Level = 0;
  ycnr_init_param size = {width, height};
  handle = vorn_ycnr_init(&size);
  nr_log_Level = 0;
}

denoiser::~denoiser() {
  if (handle) vorn_ycnr_deinit(handle);
}

int denoiser::run(frame& src, frame& dst, tuning& t, bool fine) const {
  _tag_uni_image from = src.image(), to = dst.image();
  Denoise_Parameters_t parameters = {0x1234567890abcdefu, &t.ynr, &t.cnr};
  return (fine ? vorn_ycnr_process_fine : vorn_ycnr_process)(handle, &from, &to, &parameters);
}

}  // namespace frame_util
