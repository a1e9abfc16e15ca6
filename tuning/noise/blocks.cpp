#include "tuning/noise/blocks.h"

#include <algorithm>
#include <cmath>

namespace vorn::noise {
namespace {

constexpr float kClipMargin = 2;
// Outside of these an area of one value is black or white of video's narrow range, bars for
// example.
constexpr float kVideoBlack = 16, kVideoWhite = 235;

struct spectrum_tables {
  float cosine[kSide][kSide];  // [frequency][sample], orthonormal
  int8_t band[kSide][kSide];   // -1: none
  spectrum_tables() {
    const double pi = std::acos(-1.0);
    for (int i = 0; i < kSide; ++i) {
      for (int k = 0; k < kSide; ++k) {
        const double scale = i == 0 ? std::sqrt(1.0 / kSide) : std::sqrt(2.0 / kSide);
        cosine[i][k] = float(scale * std::cos(pi * (2 * k + 1) * i / (2 * kSide)));
      }
      for (int j = 0; j < kSide; ++j) {
        const int r = i * i + j * j;
        const int ends[kBands] = {5, 13, 25, 45, 98};
        int b = 0;
        while (r > ends[b]) ++b;
        band[i][j] = int8_t(r < 2 ? -1 : b);
      }
    }
  }
};

const spectrum_tables& tables() {
  static const spectrum_tables known;
  return known;
}

float mean_of(const float* values, int count) {
  float sum = 0;
  for (int i = 0; i < count; ++i) sum += values[i];
  return sum / float(count);
}

// samples: 8x8 without their mean.
void take_apart(const float (&samples)[kSide][kSide], block* b) {
  const spectrum_tables& t = tables();
  float rows[kSide][kSide] = {};  // [frequency across][row]
  for (int y = 0; y < kSide; ++y)
    for (int x = 0; x < kSide; ++x)
      for (int i = 0; i < kSide; ++i) rows[y][i] += t.cosine[i][x] * samples[y][x];
  float squares[kBands][21];
  int found[kBands] = {};
  for (int j = 0; j < kSide; ++j) {
    float line[kSide] = {};
    for (int y = 0; y < kSide; ++y)
      for (int i = 0; i < kSide; ++i) line[i] += t.cosine[j][y] * rows[y][i];
    for (int i = 0; i < kSide; ++i) {
      const int band = t.band[j][i];
      if (band >= 0) squares[band][found[band]++] = line[i] * line[i];
    }
  }
  for (int k = 0; k < kBands; ++k) {
    float* const s = squares[k];
    b->all[k] = mean_of(s, kCoefficients[k]);
    const int keep = kCalmest[k];
    if (keep < kCoefficients[k]) std::nth_element(s, s + keep - 1, s + kCoefficients[k]);
    b->calm[k] = mean_of(s, keep);
  }
}

block measure(const plane& p, int x0, int y0) {
  block b;
  float samples[kSide][kSide];
  float least = 255, most = 0, sum = 0;
  for (int y = 0; y < kSide; ++y) {
    const float* const row = p.row(y0 + y) + x0;
    for (int x = 0; x < kSide; ++x) {
      samples[y][x] = row[x];
      least = std::min(least, row[x]);
      most = std::max(most, row[x]);
      sum += row[x];
    }
  }
  b.brightness = sum / (kSide * kSide);
  b.usable = least < most && least >= kClipMargin && most <= 255 - kClipMargin;
  b.constant = least == most && least > kVideoBlack && most < kVideoWhite;
  if (!b.usable) return b;
  for (auto& row : samples)
    for (float& s : row) s -= b.brightness;
  take_apart(samples, &b);
  return b;
}

}  // namespace

plane plane_of(const uint8_t* data, ptrdiff_t stride, int step, int width, int height) {
  plane p{width, height, {}};
  p.samples.resize(size_t(width) * size_t(height));
  for (int y = 0; y < height; ++y) {
    const uint8_t* const row = data + y * stride;
    float* const to = p.samples.data() + size_t(y) * size_t(width);
    for (int x = 0; x < width; ++x) to[x] = row[ptrdiff_t(x) * step];
  }
  return p;
}

int pitch_for(int width, int height, int most) {
  const double area = double(width) * height;
  return std::max(kSide / 2, int(std::ceil(std::sqrt(area / most))));
}

block_grid cut(const plane& p, int pitch) {
  block_grid grid;
  grid.pitch = pitch;
  if (p.width < kSide || p.height < kSide) return grid;
  grid.columns = (p.width - kSide) / pitch + 1;
  grid.rows = (p.height - kSide) / pitch + 1;
  grid.blocks.reserve(size_t(grid.columns) * size_t(grid.rows));
  for (int y = 0; y < grid.rows; ++y)
    for (int x = 0; x < grid.columns; ++x) grid.blocks.push_back(measure(p, x * pitch, y * pitch));
  return grid;
}

void take_brightness(const plane& luma, block_grid* chroma) {
  for (size_t i = 0; i < chroma->blocks.size(); ++i) {
    const int x0 = 2 * chroma->left(i), y0 = 2 * chroma->top(i);
    const int x1 = std::min(x0 + 2 * kSide, luma.width), y1 = std::min(y0 + 2 * kSide, luma.height);
    float sum = 0;
    int count = 0;
    for (int y = y0; y < y1; y += 2) {
      for (int x = x0; x < x1; x += 2) {
        sum += luma.row(y)[x];
        ++count;
      }
    }
    chroma->blocks[i].brightness = count > 0 ? sum / float(count) : 0;
  }
}

}  // namespace vorn::noise
