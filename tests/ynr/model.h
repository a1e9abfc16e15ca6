// The luma rules written straight from their formulas, one pixel at a time, and planes to try them
// on. Shares no code with the library but the refined reciprocal, which has tests of its own.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "api/vorn_ycnr.h"
#include "runtime/kernels.h"
#include "runtime/reciprocal.h"

namespace model {

// A plane with `border` pixels on every side, in one buffer of its own.
struct plane {
  int width, height, stride, border;
  std::vector<unsigned char> bytes;
  plane(int w, int h, int b = 8, int extra = 0)
      : width(w), height(h), stride(w + 2 * b + extra), border(b) {
    bytes.resize(static_cast<size_t>(stride) * (h + 2 * b));
  }
  unsigned char* at(int x, int y) {
    return bytes.data() + static_cast<ptrdiff_t>(y + border) * stride + x + border;
  }
  _tag_uni_image image() {
    _tag_uni_image i{};
    i.width = width;
    i.height = height;
    i.plane[0] = at(0, 0);
    i.stride[0] = stride;
    return i;
  }
};

// Fills: smooth ramps with noise (weights of all sizes), pure noise, extremes, flat.
enum fill { kTexture, kNoise, kExtremes, kFlat, kFills };

inline void paint(plane* p, fill how, unsigned seed) {
  std::mt19937 random(seed);
  for (int y = -p->border; y < p->height + p->border; ++y) {
    for (int x = -p->border; x < p->width + p->border; ++x) {
      const int noise = static_cast<int>(random() >> 8);
      int v = 77;
      if (how == kTexture) v = 100 + 3 * ((x / 7 + y / 5) % 9) + noise % 11 + (x % 31 == 0) * 90;
      if (how == kNoise) v = noise;
      if (how == kExtremes) v = noise % 3 ? (noise & 1) * 255 : 255 * ((x + y) & 1);
      *p->at(x, y) = static_cast<unsigned char>(v);
    }
  }
}

struct sums {
  unsigned total = 256;
  unsigned pixel[16];
};

inline int distance(plane* p, int x, int y, int dx, int dy) {
  int d = 0;
  for (int k = 0; k < 16; ++k)
    d += std::min(49,
                  std::abs(*p->at(x + k % 4, y + k / 4) - *p->at(x + dx + k % 4, y + dy + k / 4)));
  return d;
}

// Weighted sums of the block at (x, y) over rings 1..rings.
inline sums block_sums(plane* p, int x, int y, int rings, const int* map, int m) {
  sums s;
  for (int k = 0; k < 16; ++k) s.pixel[k] = 256u * *p->at(x + k % 4, y + k / 4);
  for (int d = 1; d <= rings; ++d) {
    for (int dy = -d; dy <= d; dy += d) {
      for (int dx = -d; dx <= d; dx += d) {
        if (dx == 0 && dy == 0) continue;
        const int index = std::max(1, std::min(799, (distance(p, x, y, dx, dy) * 64 + m / 2) / m));
        const unsigned w = static_cast<unsigned>(map[index]);
        s.total += w;
        for (int k = 0; k < 16; ++k) s.pixel[k] += w * *p->at(x + dx + k % 4, y + dy + k / 4);
      }
    }
  }
  return s;
}

inline unsigned char scalar_pixel(const sums& s, int k) {
  return static_cast<unsigned char>((s.pixel[k] + s.total / 2) / s.total);
}

inline unsigned char vector_pixel(const sums& s, int k) {
  const float product =
      static_cast<float>(s.pixel[k]) * vorn::refined_reciprocal(static_cast<float>(s.total));
  const float rounded = 0.5f + product;
  return static_cast<unsigned char>(static_cast<unsigned>(rounded));
}

// A weight map with weights of all sizes: support is the first index of weight 0.
inline std::vector<int> weight_map(int intensity) {
  std::vector<int> map(800, 0);
  map[0] = 256;
  for (int d = 1; d < 800; ++d) {
    if (intensity < 1) break;
    const double e = static_cast<float>(std::exp(-static_cast<double>(
        static_cast<float>(d * d) * (1.0f / static_cast<float>(intensity * intensity)))));
    map[d] = std::min(255, static_cast<int>(255.0 * e + 0.5));
  }
  return map;
}

// Runs a check once per kernel form that this machine has, and restores the form in force.
template <typename Check>
void for_every_form(Check check) {
  const vorn::kernel_form before = vorn::active_kernel_form();
  for (int i = 0; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<vorn::kernel_form>(i);
    if (!vorn::use_kernel_form(form)) continue;
    SCOPED_TRACE(vorn::kernel_form_name(form));
    check();
  }
  vorn::use_kernel_form(before);
}

}  // namespace model
