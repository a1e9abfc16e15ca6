#include "base/exported/noise.h"

#include <climits>
#include <cstdint>
#include <memory>
#include <new>
#include <random>

#include "base/log.h"
#include "base/noise.h"

int addNoiseToImage(_tag_uni_image* img, unsigned seed, int low, int high) {
  const int width = img->width;
  const int height = img->height;
  if (width < 1 || height < 1) return 0;
  // Offsets into the noise row are 16-bit numbers: 3 * width - 1 has to fit.
  if (width > (SHRT_MAX + 1) / 3) {
    VORN_LOGE("width %d is more than %d\n", width, (SHRT_MAX + 1) / 3);
    return -1;
  }
  const int row_length = 4 * width;
  std::unique_ptr<int16_t[]> noise_row(new (std::nothrow) int16_t[row_length]());
  std::unique_ptr<int16_t[]> offsets(new (std::nothrow) int16_t[height]());
  if (!noise_row || !offsets) {
    VORN_LOGE("malloc failed\n");
    return -1;
  }

  std::mt19937 engine(seed + static_cast<unsigned>(width >> 4));
  const vorn::uniform_int16 draw_noise(static_cast<int16_t>(low), static_cast<int16_t>(high));
  for (int i = 0; i < row_length; ++i) noise_row[i] = draw_noise(engine);
  engine.seed(seed + static_cast<unsigned>(width >> 2));
  // A window of width entries that starts at any offset stays inside the noise row.
  const vorn::uniform_int16 draw_offset(0, static_cast<int16_t>(3 * width - 1));
  for (int y = 0; y < height; ++y) offsets[y] = draw_offset(engine);

  unsigned char* row = img->plane[0];
  for (int y = 0; y < height; ++y, row += img->stride[0]) {
    const int16_t* noise = &noise_row[offsets[y]];
    for (int x = 0; x < width; ++x) {
      const int sum = row[x] + noise[x];
      row[x] = static_cast<unsigned char>(sum < 0 ? 0 : sum > 255 ? 255 : sum);
    }
  }
  return 0;
}
