#include "bench/blocks.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "runtime/kernel_form.h"
#include "ynr/block_processors.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"
#include "ynr/window.h"

namespace bench {

namespace {

constexpr int kIntensity = 45;

// The mask value of the block at (x, y): a column per block in row 0, or for 5x5 both axes scaled
// by the ratio of the widths.
int mask_at(const _tag_uni_image& mask, int radius, int width, int x, int y) {
  if (radius != 5) return mask.plane[0][x / 4];
  return mask.plane[0][mask.width * y / width * mask.stride[0] + mask.width * x / width];
}

void block(int radius, unsigned char* c, int s, unsigned char* out, int out_stride, int* map,
           int m) {
  int acc[vorn::kAccWords];
  if (radius == 3)
    ProcessBlock4x4_3x3(c, c - s, c + s, s, out, out_stride, map, acc, m);
  else if (radius == 5)
    ProcessBlock4x4_5x5(c, c - s, c + s, c - 2 * s, c + 2 * s, s, out, out_stride, map, acc, m);
  else
    ProcessBlock4x4_7x7(c, c - s, c + s, c - 2 * s, c + 2 * s, c - 3 * s, c + 3 * s, s, out,
                        out_stride, map, acc, m);
}

void pair(int radius, unsigned char* c, int s, unsigned char* out, int out_stride, int* map,
          int m_left, int m_right) {
  int left[vorn::kAccWords], right[vorn::kAccWords];
  if (radius == 3)
    ProcessBlock4x4_3x3_neon(c, c - s, c + s, s, out, out_stride, map, left, right, m_left,
                             m_right);
  else if (radius == 5)
    ProcessBlock4x4_5x5_neon(c, c - s, c + s, c - 2 * s, c + 2 * s, s, out, out_stride, map, left,
                             right, m_left, m_right);
  else
    ProcessBlock4x4_7x7_neon(c, c - s, c + s, c - 2 * s, c + 2 * s, c - 3 * s, c + 3 * s, s, out,
                             out_stride, map, left, right, m_left, m_right);
}

void filter(scene& s, int radius, bool pairs) {
  int map[vorn::kMapSize];
  MakeWeightMap(map, static_cast<float>(kIntensity), vorn::kMapSize);
  const _tag_uni_image& src = *s.d.luma()->out;
  for (int y = 0; y < src.height; y += 4) {
    unsigned char* in = src.plane[0] + static_cast<ptrdiff_t>(y) * src.stride[0];
    unsigned char* out = s.detail.plane[0] + static_cast<ptrdiff_t>(y) * s.detail.stride[0];
    const auto value = [&](int x) { return mask_at(s.mask, radius, src.width, x, y); };
    int x = 0;
    for (; pairs && x + 8 <= src.width; x += 8)
      pair(radius, in + x, src.stride[0], out + x, s.detail.stride[0], map, value(x), value(x + 4));
    for (; x < src.width; x += 4)
      block(radius, in + x, src.stride[0], out + x, s.detail.stride[0], map, value(x));
  }
}

void compare(scene& s, int radius, bool pairs) {
  nlm_denoise_process(s.d.luma(), s.d.luma()->out, &s.dst, &s.mask, kIntensity, radius);
  filter(s, radius, pairs);
  for (int y = 0; y < s.height; ++y)
    for (int x = 0; x < s.width; ++x) {
      const int wanted = s.dst.plane[0][static_cast<ptrdiff_t>(y) * s.dst.stride[0] + x];
      const int found = s.detail.plane[0][static_cast<ptrdiff_t>(y) * s.detail.stride[0] + x];
      if (found == wanted || (!pairs && found == wanted + 1)) continue;
      std::fprintf(stderr, "blocks_%dx%d: (%d, %d) is %d, the library's is %d\n", radius, radius, x,
                   y, found, wanted);
      std::exit(1);
    }
}

}  // namespace

void filter_by_blocks(scene& s, int radius) {
  static bool compared[8][2];
  const bool pairs = vorn::active_kernel_form() != vorn::kernel_form::scalar;
  if (!compared[radius][pairs]) {
    compare(s, radius, pairs);
    compared[radius][pairs] = true;
  }
  filter(s, radius, pairs);
}

}  // namespace bench
