#include "tools/lab/alignment.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace vorn::tool {
namespace {

struct plane {
  int width = 0, height = 0;
  std::vector<float> data;
  float at(int x, int y) const { return data[size_t(y) * width + x]; }
};

plane luma_of(const frame& f) {
  plane p{f.width, f.height, std::vector<float>(size_t(f.width) * f.height)};
  for (int y = 0; y < f.height; ++y) {
    const uint8_t* const row = f.luma() + size_t(y) * f.padded_width;
    std::copy(row, row + f.width, &p.data[size_t(y) * f.width]);
  }
  return p;
}

plane halved(const plane& p) {
  plane out{p.width / 2, p.height / 2, {}};
  out.data.reserve(size_t(out.width) * out.height);
  for (int y = 0; y < out.height; ++y) {
    for (int x = 0; x < out.width; ++x) {
      out.data.push_back((p.at(2 * x, 2 * y) + p.at(2 * x + 1, 2 * y) + p.at(2 * x, 2 * y + 1) +
                          p.at(2 * x + 1, 2 * y + 1)) /
                         4);
    }
  }
  return out;
}

// 1 4 6 4 1 in both directions; two pixels at the edges stay as they are.
plane smoothed(const plane& p) {
  plane rows = p, out = p;
  for (int y = 0; y < p.height; ++y) {
    const float* const in = &p.data[size_t(y) * p.width];
    float* const to = &rows.data[size_t(y) * p.width];
    for (int x = 2; x + 2 < p.width; ++x)
      to[x] = (in[x - 2] + in[x + 2] + 4 * (in[x - 1] + in[x + 1]) + 6 * in[x]) / 16;
  }
  for (int y = 2; y + 2 < p.height; ++y) {
    const float* const in = &rows.data[size_t(y) * p.width];
    const ptrdiff_t w = p.width;
    float* const to = &out.data[size_t(y) * p.width];
    for (int x = 0; x < p.width; ++x)
      to[x] = (in[x - 2 * w] + in[x + 2 * w] + 4 * (in[x - w] + in[x + w]) + 6 * in[x]) / 16;
  }
  return out;
}

// Variance of the difference at a displacement over what both planes have.
double difference(const plane& a, const plane& b, int dx, int dy) {
  const int x0 = std::max(0, -dx), x1 = std::min(a.width, a.width - dx);
  const int y0 = std::max(0, -dy), y1 = std::min(a.height, a.height - dy);
  double sum = 0, squares = 0;
  for (int y = y0; y < y1; ++y) {
    const float* const row_a = &a.data[size_t(y) * a.width];
    const float* const row_b = &b.data[size_t(y + dy) * b.width + dx];
    float row_sum = 0, row_squares = 0;
    for (int x = x0; x < x1; ++x) {
      const float d = row_b[x] - row_a[x];
      row_sum += d;
      row_squares += d * d;
    }
    sum += row_sum;
    squares += row_squares;
  }
  const double n = double(x1 - x0) * (y1 - y0);
  return squares / n - sum / n * (sum / n);
}

struct whole_displacement {
  int x = 0, y = 0;
};

whole_displacement search_around(const plane& a, const plane& b, whole_displacement start,
                                 int reach) {
  whole_displacement best = start;
  double least = std::numeric_limits<double>::infinity();
  for (int dy = start.y - reach; dy <= start.y + reach; ++dy) {
    for (int dx = start.x - reach; dx <= start.x + reach; ++dx) {
      const double d = difference(a, b, dx, dy);
      if (d < least) {
        least = d;
        best = {dx, dy};
      }
    }
  }
  return best;
}

// One least-squares step: what is left of the displacement beyond `from`, b read with bilinear
// weights. Gradients come from a.
displacement refine(const plane& a, const plane& b, const displacement& from) {
  const int wx = int(std::floor(from.x)), wy = int(std::floor(from.y));
  const float fx = float(from.x - wx), fy = float(from.y - wy);
  double xx = 0, xy = 0, yy = 0, xd = 0, yd = 0, dd = 0, sum = 0, sx = 0, sy = 0, n = 0;
  const int margin = 3;
  for (int y = std::max(margin, margin - wy); y < std::min(a.height, b.height - wy) - margin; ++y) {
    for (int x = std::max(margin, margin - wx); x < std::min(a.width, b.width - wx) - margin; ++x) {
      const float* const p = &b.data[size_t(y + wy) * b.width + x + wx];
      const float top = p[0] + fx * (p[1] - p[0]);
      const float low = p[b.width] + fx * (p[b.width + 1] - p[b.width]);
      const double d = top + fy * (low - top) - a.at(x, y);
      const double gx = (a.at(x + 1, y) - a.at(x - 1, y)) / 2;
      const double gy = (a.at(x, y + 1) - a.at(x, y - 1)) / 2;
      xx += gx * gx, xy += gx * gy, yy += gy * gy;
      xd += gx * d, yd += gy * d, dd += d * d, sum += d, sx += gx, sy += gy;
      n += 1;
    }
  }
  displacement out = from;
  out.error = 1e9;
  if (n < 64) return out;
  // A difference in brightness is no displacement.
  xx -= sx * sx / n, xy -= sx * sy / n, yy -= sy * sy / n;
  xd -= sx * sum / n, yd -= sy * sum / n, dd -= sum * sum / n;
  out.residual = std::sqrt(std::max(0.0, dd / n));
  const double determinant = xx * yy - xy * xy;
  // The weakest direction's gradients, less what noise alone would show: 0.15 of the variance of
  // the difference, by the window's autocorrelation, and a fifth more to be sure.
  const double noise = 0.18 * n * out.residual * out.residual;
  const double least = (xx + yy - std::sqrt((xx - yy) * (xx - yy) + 4 * xy * xy)) / 2 - noise;
  if (least <= 1e-6 * n || determinant <= 0) return out;
  out.x -= (yy * xd - xy * yd) / determinant;
  out.y -= (xx * yd - xy * xd) / determinant;
  // Smoothing correlates the samples: one in about 13 counts.
  out.error = std::sqrt(13 * out.residual * out.residual / least);
  return out;
}

}  // namespace

displacement measure_displacement(const frame& reference, const frame& moved) {
  constexpr int kSmallest = 32;
  displacement result;
  result.error = 1e9;
  if (reference.width < kSmallest || reference.height < kSmallest) return result;
  std::vector<plane> a = {luma_of(reference)}, b = {luma_of(moved)};
  while (std::min(a.back().width, a.back().height) >= 2 * kSmallest) {
    a.push_back(halved(a.back()));
    b.push_back(halved(b.back()));
  }
  constexpr int kCoarseReach = 4;
  whole_displacement at;
  for (size_t level = a.size(); level-- > 1;) {
    at = search_around(a[level], b[level], at, level + 1 == a.size() ? kCoarseReach : 1);
    at = {2 * at.x, 2 * at.y};
  }
  const plane fine_a = smoothed(a[0]), fine_b = smoothed(b[0]);
  at = search_around(fine_a, fine_b, at, a.size() == 1 ? kCoarseReach : 1);
  result.x = at.x, result.y = at.y;
  for (int step = 0; step < 3; ++step) {
    const displacement next = refine(fine_a, fine_b, result);
    if (next.error >= 1e9) return next;
    // Out of the gradients' reach: what was found before is better.
    if (std::abs(next.x - at.x) > 1.5 || std::abs(next.y - at.y) > 1.5) {
      result.error = next.error;
      result.residual = next.residual;
      return result;
    }
    result = next;
  }
  return result;
}

double finest_detail(const frame& f) {
  double squares = 0, n = 0;
  for (int y = 1; y + 1 < f.height; ++y) {
    const ptrdiff_t stride = f.padded_width;
    const uint8_t* const row = f.luma() + size_t(y) * stride;
    int64_t row_squares = 0;
    for (int x = 1; x + 1 < f.width; ++x) {
      const uint8_t* const p = row + x;
      const int d = p[-stride - 1] - 2 * p[-stride] + p[-stride + 1] - 2 * p[-1] + 4 * p[0] -
                    2 * p[1] + p[stride - 1] - 2 * p[stride] + p[stride + 1];
      row_squares += d * d;
    }
    squares += double(row_squares);
    n += f.width - 2;
  }
  return n > 0 ? std::sqrt(squares / n / 36) : 0;  // 36: the window's squared weights
}

}  // namespace vorn::tool
