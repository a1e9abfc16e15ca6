#include "tools/lab/sensor_points.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/lab/metrics.h"

namespace vorn::tool {
namespace {

constexpr int kSide = 32;
constexpr int kClasses = 32;
constexpr double kClassWidth = 256.0 / kClasses;
constexpr int kClip = 2;         // samples so near to black and white count as clipped
constexpr double kColour = 16;   // mean U or V this far from 128 is a colour
constexpr double kEdge = 8 * 8;  // variance of the scene inside a block of a burst
constexpr double kUneven = 2;    // variance over its class's median
constexpr double kRounding = 1.0 / 12;
// Below, rounding decides how far blocks scatter.
constexpr double kCountable = 0.3;
constexpr int kFewest = 4;  // blocks of a class

struct part {
  double mean = 0;      // of the frame, or of both
  double variance = 0;  // of the noise
  double lag = 0;       // covariance of neighbours
  double scene = 0;     // variance of what the two frames share, less its noise
  uint8_t least = 255, most = 0;
};

double at(const plane_view& p, int x, int y) {
  return p.data[y * p.stride + ptrdiff_t(x) * p.step];
}

// Takes the best plane off side x side values around their centre; three degrees of freedom go.
void level(std::vector<double>& values, int side) {
  double mean = 0, slope_x = 0, slope_y = 0;
  const double centre = (side - 1) / 2.0, moment = side * (side * (double(side) * side - 1) / 12);
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) {
      const double v = values[size_t(y) * side + x];
      mean += v / (side * side);
      slope_x += v * (x - centre) / moment;
      slope_y += v * (y - centre) / moment;
    }
  }
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x)
      values[size_t(y) * side + x] -= mean + slope_x * (x - centre) + slope_y * (y - centre);
}

double neighbours(const std::vector<double>& values, int side) {
  double sum = 0;
  for (int y = 0; y + 1 < side; ++y) {
    for (int x = 0; x + 1 < side; ++x) {
      const double v = values[size_t(y) * side + x];
      sum += v * (values[size_t(y) * side + x + 1] + values[size_t(y + 1) * side + x]) / 2;
    }
  }
  return sum / ((side - 1) * (side - 1));
}

// One block of a plane; b is null for a single frame.
part measure(const plane_view& a, const plane_view* b, int left, int top, int side) {
  part out;
  std::vector<double> noise(size_t(side) * side);
  double sum = 0, squares = 0;
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) {
      const double first = at(a, left + x, top + y);
      const double second = b ? at(*b, left + x, top + y) : first;
      out.least = uint8_t(std::min({double(out.least), first, second}));
      out.most = uint8_t(std::max({double(out.most), first, second}));
      const double both = (first + second) / 2;
      sum += both;
      squares += both * both;
      noise[size_t(y) * side + x] = b ? (first - second) / std::sqrt(2.0) : first;
    }
  }
  const double count = double(side) * side;
  out.mean = sum / count;
  level(noise, side);
  for (const double v : noise) out.variance += v * v / (count - 3);
  out.lag = neighbours(noise, side);
  out.scene = squares / count - out.mean * out.mean - out.variance / 2;
  return out;
}

struct block {
  part y, u, v;
};

struct gathering {
  noise_points result;
  std::array<std::vector<block>, kClasses> classes;

  void add(const frame& a, const frame* b) {
    const plane_view planes[2][3] = {
        {luma_view(a), u_view(a), v_view(a)},
        {luma_view(b ? *b : a), u_view(b ? *b : a), v_view(b ? *b : a)}};
    for (int y = 0; y + kSide <= a.height; y += kSide) {
      for (int x = 0; x + kSide <= a.width; x += kSide) {
        const auto of = [&](int plane, int shift) {
          return measure(planes[0][plane], b ? &planes[1][plane] : nullptr, x >> shift, y >> shift,
                         kSide >> shift);
        };
        take({of(0, 0), of(1, 1), of(2, 1)}, b != nullptr);
      }
    }
  }

  void take(const block& k, bool burst) {
    ++result.blocks;
    if (k.y.least <= kClip || k.y.most >= 255 - kClip) {
      ++result.clipped;
    } else if (std::abs(k.u.mean - 128) > kColour || std::abs(k.v.mean - 128) > kColour) {
      ++result.coloured;
    } else if (burst && k.y.scene > kEdge) {
      ++result.edged;
    } else {
      classes[size_t(k.y.mean / kClassWidth)].push_back(k);
    }
  }
};

template <typename Value>
double quantile(const std::vector<block>& blocks, double share, const Value& value) {
  std::vector<double> all;
  for (const block& k : blocks) all.push_back(value(k));
  const auto place = all.begin() + ptrdiff_t(share * double(all.size() - 1));
  std::nth_element(all.begin(), place, all.end());
  return *place;
}

// Standard error of the mean of value over the mean itself.
template <typename Value>
double relative_error(const std::vector<block>& blocks, const Value& value) {
  double sum = 0, squares = 0;
  const double n = double(blocks.size());
  for (const block& k : blocks) {
    sum += value(k) / n;
    squares += value(k) * value(k) / n;
  }
  return sum > 0 ? std::sqrt(std::max(0.0, squares - sum * sum) / n) / sum : 1;
}

double luma_variance(const block& k) {
  return k.y.variance;
}
double chroma_variance(const block& k) {
  return (k.u.variance + k.v.variance) / 2;
}

noise_point mean_of(const std::vector<block>& blocks) {
  noise_point p;
  p.blocks = int(blocks.size());
  const double n = p.blocks;
  for (const block& k : blocks) {
    p.brightness += k.y.mean / n;
    p.y += k.y.variance / n;
    p.u += k.u.variance / n;
    p.v += k.v.variance / n;
    p.lag_y += k.y.lag / n;
    p.lag_uv += (k.u.lag + k.v.lag) / 2 / n;
  }
  for (double* variance : {&p.y, &p.u, &p.v}) *variance = std::max(0.0, *variance - kRounding);
  p.error_y = relative_error(blocks, luma_variance);
  p.error_uv = relative_error(blocks, chroma_variance);
  return p;
}

}  // namespace

noise_points points_of(const std::vector<frame>& frames, bool burst) {
  gathering all;
  if (burst) {
    for (size_t i = 0; i + 1 < frames.size(); ++i) all.add(frames[i], &frames[i + 1]);
  } else {
    for (const frame& f : frames) all.add(f, nullptr);
  }
  noise_points& result = all.result;
  double weights = 0, calm = 0, wild = 0;
  for (std::vector<block>& blocks : all.classes) {
    if (int(blocks.size()) < kFewest) continue;
    const double luma = quantile(blocks, 0.5, luma_variance);
    const double chroma = quantile(blocks, 0.5, chroma_variance);
    const double n = double(blocks.size());
    if (luma > kCountable) {
      calm += n * std::sqrt(quantile(blocks, 0.1, luma_variance) / luma);
      wild += n * std::sqrt(quantile(blocks, 0.9, luma_variance) / luma);
      weights += n;
    }
    const auto end = std::remove_if(blocks.begin(), blocks.end(), [&](const block& k) {
      return luma_variance(k) > kUneven * luma || chroma_variance(k) > kUneven * chroma + kRounding;
    });
    result.uneven += int(blocks.end() - end);
    blocks.erase(end, blocks.end());
    result.points.push_back(mean_of(blocks));
  }
  if (weights > 0) {
    result.calm = calm / weights;
    result.wild = wild / weights;
  }
  return result;
}

}  // namespace vorn::tool
