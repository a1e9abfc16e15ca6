#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tests/model/model.h"

namespace model {
namespace {

// Float to int as the Arm conversion: toward zero, saturating.
int truncated(float v) {
  if (v >= 2147483648.0f) return INT32_MAX;
  if (v < -2147483648.0f) return INT32_MIN;
  return static_cast<int>(v);
}

int divided(int a, int b) {
  return b == 0 ? 0 : a / b;
}

uint8_t mask_byte(int t) {
  return static_cast<uint8_t>(std::max(16, std::min(255, wrap_add(t, 64))));
}

}  // namespace

// The eight-bit estimate: x = m * 2^e with m in [1/2, 1) is cut to nine bits, the reciprocal of
// the middle of that interval is rounded to eight fraction bits. Then two steps of
// r * (2 - x * r), the bracket with one rounding.
float refined_reciprocal(float x) {
  int exponent;
  const double m = std::frexp(static_cast<double>(x), &exponent);
  const double middle = (std::floor(m * 512.0) + 0.5) / 512.0;
  const double estimate = std::floor(256.0 / middle + 0.5) / 256.0;
  float r = static_cast<float>(std::ldexp(estimate, -exponent));
  for (int step = 0; step < 2; ++step) {
    const float bracket = std::fma(-x, r, 2.0f);
    r = r * bracket;
  }
  return r;
}

void weight_map(int* map, float sigma, int count) {
  map[0] = 256;
  const int s = truncated(sigma * sigma);
  const float inverse = 1.0f / static_cast<float>(s);
  for (int d = 1; d < count; ++d) {
    const float t = static_cast<float>(d * d) * inverse;
    const double e = static_cast<double>(std::exp(-t));
    map[d] = static_cast<int>(std::fmin(std::floor(std::fma(e, 255.0, 0.5)), 255.0));
  }
}

// Columns in whole groups of eight use floats, the rest integers; the two may differ by one.
void pre_mask(plane mask, int width, int height, int strength) {
  const int columns = width / 4, r = width / 8 + height / 8;
  const int k = strength > 63 ? wrap_mul(4, wrap_add(strength, -64)) : 56;
  const float s = static_cast<float>(1.0 / r);
  for (int y = 0; y < height / 4; ++y)
    for (int x = 0; x < columns; ++x) {
      const int d = std::abs(x - width / 8) + std::abs(y - height / 8);
      int t;
      if (x < columns / 8 * 8) {
        const float f = static_cast<float>(d) * s;
        t = truncated(f * static_cast<float>(k));
        t = truncated(f * static_cast<float>(t));
        t = truncated(f * static_cast<float>(t));
      } else {
        t = divided(wrap_mul(k, d), r);
        t = divided(wrap_mul(t, d), r);
        t = divided(wrap_mul(t, d), r);
      }
      mask.at(y, x) = mask_byte(t);
    }
}

void pre_mask_sliced(plane mask, int width, int height) {
  const int r = width / 8 + height / 8;
  for (int y = 0; y < height / 4; ++y)
    for (int x = 0; x < width / 4; ++x) {
      const int d = std::abs(x - width / 8) + std::abs(y - height / 8);
      int t = divided(wrap_mul(d, 256), r);
      t = divided(wrap_mul(t, d), r);
      t = divided(wrap_mul(t, d), r);
      mask.at(y, x) = mask_byte(t);
    }
}

void expand_border(plane p, int n) {
  const auto copy_rows = [&](int from) {
    for (int y = 0; y < n; ++y) std::memcpy(&p.at(y, 0), &p.at(from, 0), p.width);
  };
  for (int y = n; y < p.height - n; ++y)
    for (int x = 0; x < n; ++x) {
      p.at(y, x) = p.at(y, n);
      p.at(y, p.width - n + x) = p.at(y, p.width - n - 1);
    }
  copy_rows(n);
  for (int y = p.height - n; y < p.height; ++y)
    std::memcpy(&p.at(y, 0), &p.at(p.height - n - 1, 0), p.width);
}

void block(plane src, plane guide, int y, int x, int rings, const int* map, int m, rule how,
           uint8_t out[16]) {
  int weights = 256;
  int sums[16];
  for (int k = 0; k < 16; ++k) sums[k] = 256 * src.at(y + k / 4, x + k % 4);
  for (int d = 1; d <= rings; ++d)
    for (int dy = -d; dy <= d; dy += d)
      for (int dx = -d; dx <= d; dx += d) {
        if (dx == 0 && dy == 0) continue;
        int distance = 0;
        for (int k = 0; k < 16; ++k)
          distance += std::min(
              std::abs(guide.at(y + k / 4, x + k % 4) - guide.at(y + dy + k / 4, x + dx + k % 4)),
              49);
        int index;
        if (how == rule::scalar) {
          index = divided(distance * 64 + m / 2, m);
        } else {
          const float product =
              static_cast<float>(distance * 64) * refined_reciprocal(static_cast<float>(m));
          const float sum = 0.5f + product;
          index = truncated(sum);
        }
        const int w = map[std::max(1, std::min(799, index))];
        weights += w;
        for (int k = 0; k < 16; ++k) sums[k] += w * src.at(y + dy + k / 4, x + dx + k % 4);
      }
  for (int k = 0; k < 16; ++k) {
    if (how == rule::scalar) {
      out[k] = static_cast<uint8_t>((sums[k] + weights / 2) / weights);
    } else {
      const float product =
          static_cast<float>(sums[k]) * refined_reciprocal(static_cast<float>(weights));
      const float sum = 0.5f + product;
      out[k] = static_cast<uint8_t>(truncated(sum));
    }
  }
}

namespace {

void store(plane dst, int y, int x, const uint8_t block[16]) {
  for (int k = 0; k < 16; ++k) dst.at(y + k / 4, x + k % 4) = block[k];
}

// The mask value of the block column at x. Windows 3 and 7 read the mask's first row only, one
// byte per block; window 5 scales both axes by the ratio of the widths.
int mask_value(const plane* mask, plane src, int window, int y, int x) {
  if (!mask) return 64;
  if (window != 5) return mask->at(0, std::min(x / 4, mask->width - 1));
  const int row = std::min(wrap_mul(mask->width, y) / src.width, mask->height - 1);
  const int column = std::min(wrap_mul(mask->width, x) / src.width, mask->width - 1);
  return mask->at(row, column);
}

void walk(plane src, plane guide, plane dst, const plane* mask, const int* map, int window,
          rule pairs) {
  const int rings = window / 2;
  uint8_t out[16];
  for (int y = 0; y < src.height; y += 4) {
    const int paired = src.width / 8 * 8;
    for (int x = 0; x < paired; x += 8) {
      const int left = mask_value(mask, src, window, y, x);
      const int right = mask_value(mask, src, window, y, x + 4);
      if (left != 0 && right != 0) {
        block(src, guide, y, x, rings, map, left, pairs, out);
        store(dst, y, x, out);
        block(src, guide, y, x + 4, rings, map, right, pairs, out);
        store(dst, y, x + 4, out);
      } else if (left != 0 || right != 0) {  // always the left block, with the value that is set
        block(src, guide, y, x, rings, map, left != 0 ? left : right, rule::scalar, out);
        store(dst, y, x, out);
      }
    }
    for (int x = paired; x < src.width; x += 4) {
      const int value = mask_value(mask, src, window, y, x);
      if (value == 0) continue;
      block(src, guide, y, x, rings, map, value, rule::scalar, out);
      store(dst, y, x, out);
    }
  }
}

}  // namespace

void window(plane src, plane dst, const plane* mask, int intensity, int radius) {
  if (radius == 3 || radius == 5 || radius == 7) {
    int map[800];
    weight_map(map, static_cast<float>(intensity), 800);
    walk(src, src, dst, mask, map, radius, rule::vector);
    return;
  }
  for (int y = 0; y < dst.height; ++y) std::memcpy(&dst.at(y, 0), &src.at(y, 0), dst.width);
}

void window_guided(plane src, plane guide, plane dst, const plane* mask, int intensity) {
  int map[800];
  weight_map(map, static_cast<float>(intensity), 800);
  walk(src, guide, dst, mask, map, 5, rule::scalar);
}

namespace {

constexpr int kBorder = 8;

struct bordered {
  std::vector<uint8_t> memory;
  plane whole;
  plane inner;
  bordered(int width, int height)
      : memory(static_cast<size_t>(width + 16) * (height + 16)),
        whole{memory.data(), width + 16, height + 16, width + 16},
        inner{memory.data() + kBorder * (width + 16) + kBorder, width, height, width + 16} {}
};

void copy(plane from, plane to) {
  for (int y = 0; y < to.height; ++y) std::memcpy(&to.at(y, 0), &from.at(y, 0), to.width);
}

// The mean of four windows over grids that begin at (-dx, -dy).
void four_grids(plane level, plane dst, const plane* mask, int intensity, int radius) {
  struct grid {
    int dx, dy, window;
  };
  constexpr int kTenths[] = {12, 11, 10};  // strength of windows 3, 5, 7
  std::vector<int> sums(static_cast<size_t>(level.width) * level.height);
  for (const grid g : {grid{0, 0, 7}, grid{2, 2, 7}, grid{2, 0, 3}, grid{0, 2, 3}}) {
    const int64_t from = kTenths[radius / 2 - 1], to = kTenths[g.window / 2 - 1];
    const int64_t strength = std::min<int64_t>((intensity * to + from / 2) / from, INT32_MAX);
    bordered result(level.width + g.dx, level.height + g.dy);
    window({&level.at(-g.dy, -g.dx), level.width + g.dx, level.height + g.dy, level.stride},
           result.inner, mask, static_cast<int>(strength), g.window);
    for (size_t i = 0; i < sums.size(); ++i)
      sums[i] += result.inner.at(static_cast<int>(i) / level.width + g.dy,
                                 static_cast<int>(i) % level.width + g.dx);
  }
  for (size_t i = 0; i < sums.size(); ++i)
    dst.at(static_cast<int>(i) / level.width, static_cast<int>(i) % level.width) =
        static_cast<uint8_t>((sums[i] + 1) / 4);
}

}  // namespace

int luma(plane src, plane dst, const ycnr_ynr_tuning_param& tuning, const plane* given_mask,
         bool fine) {
  const int w = src.width, h = src.height, layers = tuning.layer;
  if (layers <= 1 || layers > 5 || w < 4 || h < 4) return -1;
  if ((w >> (layers - 1)) < 1 || (h >> (layers - 1)) < 1) return -1;

  std::vector<uint8_t> mask_memory(static_cast<size_t>(w / 4) * (h / 4));
  plane mask = {mask_memory.data(), w / 4, h / 4, w / 4};
  pre_mask(mask, w, h, tuning.param0);
  if (given_mask) mask = *given_mask;

  // Per level: the Gaussian level, the level to be denoised (then its detail), the denoised one.
  std::vector<bordered> gauss, work, out;
  for (int l = 0; l < layers; ++l) {
    gauss.emplace_back(w >> l, h >> l);
    work.emplace_back(w >> l, h >> l);
    out.emplace_back(w >> l, h >> l);
  }
  copy(src, gauss[0].inner);
  for (int l = 1; l < layers; ++l) down2(l == 1 ? src : gauss[l - 1].inner, gauss[l].inner);
  copy(gauss[layers - 1].inner, work[layers - 1].inner);

  for (int l = layers - 1; l >= 0; --l) {
    const plane level = work[l].inner;
    const bool denoised = tuning.pIntensity[l] >= 1;
    if (denoised) {
      expand_border(work[l].whole, kBorder);
      const int radius = tuning.pRadius[l];
      if (fine && l == 0 && (radius == 3 || radius == 5 || radius == 7))
        four_grids(level, out[0].inner, &mask, tuning.pIntensity[0], radius);
      else
        window(level, out[l].inner, &mask, tuning.pIntensity[l], radius);
    } else {
      copy(level, out[l].inner);
    }
    if (l == 0) break;
    subtract_add128(out[l].inner, gauss[l].inner, level);
    // An odd next level reads one column past this one: the border, which still holds the level
    // as it was before denoising, or, where no border was made, the last column's detail.
    if (!denoised || fine)
      for (int y = 0; y < level.height; ++y)
        level.at(y, level.width) = level.at(y, level.width - 1);
    up2(level, work[l - 1].inner);
    // At full size the detail is enlarged in the destination: a block that the mask leaves
    // unwritten shows it.
    if (l == 1) copy(work[0].inner, out[0].inner);
    add_sub128(gauss[l - 1].inner, work[l - 1].inner, work[l - 1].inner);
  }
  copy(out[0].inner, dst);
  return 0;
}

}  // namespace model
