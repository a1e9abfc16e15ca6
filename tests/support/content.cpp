#include "tests/support/content.h"

#include <algorithm>
#include <cstddef>

namespace vorn_test {

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

}  // namespace vorn_test
