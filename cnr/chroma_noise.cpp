#include "cnr/chroma_noise.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr int kSide = 8;  // of a block on level 0, half on level 1
constexpr int kMostBlocks = 4096;
constexpr int kActivities = 1024;  // the last one holds all that is livelier

struct plane {
  const uint8_t* first;
  ptrdiff_t stride;
};

plane plane_of(const _tag_uni_image& image) {
  return {image.plane[0], image.width};
}

// Sums over the block with its corner at (x, y).

// of the steps to the right and down
unsigned activity(plane p, int x, int y) {
  unsigned sum = 0;
  for (int r = 0; r < kSide; ++r) {
    const uint8_t* s = p.first + (y + r) * p.stride + x;
    for (int c = 0; c < kSide; ++c)
      sum += static_cast<unsigned>(std::abs(s[c + 1] - s[c]) + std::abs(s[c + p.stride] - s[c]));
  }
  return sum;
}

// of the second differences in both directions
unsigned differences(plane p, int x, int y, int side) {
  unsigned sum = 0;
  for (int r = 0; r < side; ++r) {
    const uint8_t* s = p.first + (y + r) * p.stride + x;
    for (int c = 0; c < side; ++c) {
      const int twice = 2 * s[c];
      sum += static_cast<unsigned>(std::abs(twice - s[c - 1] - s[c + 1]) +
                                   std::abs(twice - s[c - p.stride] - s[c + p.stride]));
    }
  }
  return sum;
}

struct sums {
  uint32_t blocks, fine, coarse;
};

}  // namespace

int vorn::chroma_coarseness(const _tag_uni_image& guide, const chroma_planes& fine,
                            const chroma_planes& coarse) {
  // Whole blocks with a sample around them on both levels.
  const int columns = (coarse.u.width - 1) / (kSide / 2) - 1;
  const int rows = (coarse.u.height - 1) / (kSide / 2) - 1;
  if (columns < 1 || rows < 1) return kFineGrained;
  int step = 1;
  while (int64_t{columns / step + 1} * (rows / step + 1) > kMostBlocks) ++step;

  sums by_activity[kActivities] = {};
  uint32_t count = 0;
  const plane luma = plane_of(guide);
  for (int row = 1; row <= rows; row += step) {
    for (int column = 1; column <= columns; column += step, ++count) {
      const int x = column * kSide, y = row * kSide;
      const unsigned a = std::min<unsigned>(activity(luma, x, y) / 2, kActivities - 1);
      sums& s = by_activity[a];
      ++s.blocks;
      s.fine +=
          differences(plane_of(fine.u), x, y, kSide) + differences(plane_of(fine.v), x, y, kSide);
      s.coarse += differences(plane_of(coarse.u), x / 2, y / 2, kSide / 2) +
                  differences(plane_of(coarse.v), x / 2, y / 2, kSide / 2);
    }
  }
  uint64_t blocks = 0, on_fine = 0, on_coarse = 0;
  for (const sums& s : by_activity) {
    blocks += s.blocks;
    on_fine += s.fine;
    on_coarse += s.coarse;
    if (4 * blocks >= count) break;
  }
  if (on_fine == 0) return kFineGrained;
  return static_cast<int>(std::min<uint64_t>(4 * 256 * on_coarse / on_fine, INT32_MAX));
}
