#include "tools/temporal.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace vorn::tool {
namespace {

constexpr int kBlock = 8;
constexpr int kMostShare = 11;  // of 16
// Noise in 1/16 grey levels per unit of luma strength: strengths are about 22 times its deviation.
// The filter leaves nearly all of it in texture, where nothing resembles a block enough to average
// with.
constexpr int kLeft16Numerator = 8, kLeft16Denominator = 11;
constexpr int kLeastLeft16 = 12;

int residual16(const tuning& t) {
  const int strength = t.luma.enable == 1 ? std::clamp(t.luma.pIntensity[0], 0, 400) : 60;
  return std::max(kLeastLeft16, strength * kLeft16Numerator / kLeft16Denominator);
}

struct block_change {
  int absolute = 0;           // sum of absolute differences
  int sum = 0, u = 0, v = 0;  // sums of differences
  int pixels = 0, pairs = 0;
};

block_change compare_block(const frame& now, const frame& former, int x0, int y0) {
  block_change c;
  const int stride = now.padded_width;
  const int x1 = std::min(x0 + kBlock, stride), y1 = std::min(y0 + kBlock, now.padded_height);
  for (int y = y0; y < y1; ++y) {
    const uint8_t* a = now.luma() + size_t(y) * stride;
    const uint8_t* b = former.luma() + size_t(y) * stride;
    for (int x = x0; x < x1; ++x) {
      const int d = a[x] - b[x];
      c.absolute += std::abs(d);
      c.sum += d;
    }
  }
  for (int y = y0 / 2; y < y1 / 2; ++y) {
    const uint8_t* a = now.chroma() + size_t(y) * stride;
    const uint8_t* b = former.chroma() + size_t(y) * stride;
    for (int x = x0; x < x1; x += 2) {
      c.u += a[x] - b[x];
      c.v += a[x + 1] - b[x + 1];
    }
  }
  c.pixels = (x1 - x0) * (y1 - y0);
  c.pairs = (x1 - x0) * (y1 - y0) / 4;
  return c;
}

// Share of the former frame for a measure: all within the limit, none from 1.5 limits on. Both are
// in 1/16 grey levels summed over `count` samples.
int share_within(int measure, int limit16, int count) {
  const int limit = limit16 * count / 16;
  if (measure <= limit) return kMostShare;
  return std::max(0, kMostShare - (measure - limit) * 2 * kMostShare / std::max(1, limit));
}

int share_of(const block_change& c, int left16) {
  // The mean absolute difference of two frames with noise of deviation s is 1.13 s; block means
  // scatter by 0.2 s where the noise is white, and more where it is coarse.
  const int mean_limit = left16 / 3;
  return std::min(std::min(share_within(c.absolute, left16 * 11 / 8, c.pixels),
                           share_within(std::abs(c.sum), mean_limit, c.pixels)),
                  std::min(share_within(std::abs(c.u), mean_limit, c.pairs),
                           share_within(std::abs(c.v), mean_limit, c.pairs)));
}

// Share at a pixel in 1/256: interpolated between the centres of blocks.
int share_at(const std::vector<uint8_t>& shares, int columns, int rows, int x, int y) {
  const int gx = std::max(0, 2 * x + 1 - kBlock), gy = std::max(0, 2 * y + 1 - kBlock);
  const int left = std::min(gx / (2 * kBlock), columns - 1),
            right = std::min(left + 1, columns - 1);
  const int top = std::min(gy / (2 * kBlock), rows - 1), bottom = std::min(top + 1, rows - 1);
  const int fx = gx % (2 * kBlock), fy = gy % (2 * kBlock);
  const auto line = [&](int row) {
    const uint8_t* s = shares.data() + size_t(row) * columns;
    return s[left] * (2 * kBlock - fx) + s[right] * fx;
  };
  return (line(top) * (2 * kBlock - fy) + line(bottom) * fy) / 16;
}

uint8_t blended(int now, int former, int share, int most) {
  const int change = std::clamp(former - now, -most, most) * share;
  return static_cast<uint8_t>(now + (change + (change >= 0 ? 128 : -128)) / 256);
}

}  // namespace

void temporal_blend::run(frame& f, const tuning& t) {
  if (!former_ || former_->padded_width != f.padded_width ||
      former_->padded_height != f.padded_height) {
    former_ = f;
    return;
  }
  const int width = f.padded_width, height = f.padded_height;
  const int columns = (width + kBlock - 1) / kBlock, rows = (height + kBlock - 1) / kBlock;
  const int left16 = residual16(t);
  shares_.assign(size_t(columns) * rows, 0);
  int moving = 0;
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const int share = share_of(compare_block(f, *former_, column * kBlock, row * kBlock), left16);
      shares_[size_t(row) * columns + column] = static_cast<uint8_t>(share);
      moving += share == 0;
    }
  }
  if (moving * 10 > columns * rows * 7) {
    ++cuts_;
    former_ = f;
    return;
  }
  least_ = shares_;
  for (int row = 0; row < rows; ++row)
    for (int column = 0; column < columns; ++column)
      for (int y = std::max(0, row - 1); y <= std::min(rows - 1, row + 1); ++y)
        for (int x = std::max(0, column - 1); x <= std::min(columns - 1, column + 1); ++x) {
          uint8_t& least = least_[size_t(row) * columns + column];
          least = std::min(least, shares_[size_t(y) * columns + x]);
        }
  const int most = std::max(2, left16 * 2 / 16);
  for (int y = 0; y < height; ++y) {
    uint8_t* now = f.luma() + size_t(y) * width;
    const uint8_t* former = former_->luma() + size_t(y) * width;
    for (int x = 0; x < width; ++x)
      now[x] = blended(now[x], former[x], share_at(least_, columns, rows, x, y), most);
  }
  for (int y = 0; y < height / 2; ++y) {
    uint8_t* now = f.chroma() + size_t(y) * width;
    const uint8_t* former = former_->chroma() + size_t(y) * width;
    for (int x = 0; x < width; ++x)
      now[x] = blended(now[x], former[x], share_at(least_, columns, rows, x & ~1, 2 * y), most);
  }
  former_ = f;
}

}  // namespace vorn::tool
