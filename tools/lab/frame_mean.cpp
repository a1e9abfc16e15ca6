#include "tools/lab/frame_mean.h"

#include <algorithm>
#include <cmath>

#include "tools/lab/metrics.h"

namespace vorn::tool {
namespace {

double median(std::vector<double> values) {
  const size_t half = values.size() / 2;
  std::nth_element(values.begin(), values.begin() + ptrdiff_t(half), values.end());
  return values[half];
}

// Catmull-Rom weights of the four samples around a place `t` (0..1) after the second one.
void cubic_weights(double t, float weights[4]) {
  const double t2 = t * t, t3 = t2 * t;
  weights[0] = float((-t3 + 2 * t2 - t) / 2);
  weights[1] = float((3 * t3 - 5 * t2 + 2) / 2);
  weights[2] = float((-3 * t3 + 4 * t2 + t) / 2);
  weights[3] = float((t3 - t2) / 2);
}

// A displacement in samples of a channel: whole part and weights for the rest.
struct offset {
  int whole = 0;
  bool exact = true;
  float weights[4] = {0, 1, 0, 0};
  explicit offset(double by) {
    constexpr double kNone = 0.1;
    if (std::abs(by - std::round(by)) < kNone) {
      whole = int(std::round(by));
      return;
    }
    whole = int(std::floor(by));
    exact = false;
    cubic_weights(by - whole, weights);
  }
  // Samples that the place needs, from `first` before it to `last` behind it.
  int first() const { return exact ? whole : whole - 1; }
  int last() const { return exact ? whole : whole + 2; }
};

float sample(const plane_view& p, int x, int y, const offset& dx, const offset& dy) {
  const auto along = [&](int row) {
    const uint8_t* const at = p.data + row * p.stride;
    if (dx.exact) return float(at[(x + dx.whole) * p.step]);
    float sum = 0;
    for (int i = 0; i < 4; ++i) sum += dx.weights[i] * at[(x + dx.whole - 1 + i) * p.step];
    return sum;
  };
  if (dy.exact) return along(y + dy.whole);
  float sum = 0;
  for (int i = 0; i < 4; ++i) sum += dy.weights[i] * along(y + dy.whole - 1 + i);
  return sum;
}

void add_channel(std::vector<float>& sums, std::vector<float>& weights, const plane_view& p,
                 double by_x, double by_y) {
  const offset dx(by_x), dy(by_y);
  const int x0 = std::max(0, -dx.first()), x1 = std::min(p.width, p.width - dx.last());
  const int y0 = std::max(0, -dy.first()), y1 = std::min(p.height, p.height - dy.last());
  for (int y = y0; y < y1; ++y) {
    const size_t row = size_t(y) * p.width;
    for (int x = x0; x < x1; ++x) {
      sums[row + x] += sample(p, x, y, dx, dy);
      weights[row + x] += 1;
    }
  }
}

void divide(const std::vector<float>& sums, const std::vector<float>& weights, const plane_view& p,
            uint8_t* out) {
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      const size_t i = size_t(y) * p.width + x;
      const float value =
          weights[i] > 0 ? sums[i] / weights[i] : float(p.data[y * p.stride + x * p.step]);
      out[y * p.stride + x * p.step] = uint8_t(std::clamp(std::lround(value), 0l, 255l));
    }
  }
}

}  // namespace

burst_frame look_at(const frame& f, const frame& first) {
  burst_frame b;
  b.moved = measure_displacement(first, f);
  // Without texture nothing tells a displacement, and none does harm.
  constexpr double kCertain = 0.25;
  if (b.moved.error > kCertain) b.moved.x = b.moved.y = 0;
  b.brightness = mean(luma_view(f));
  return b;
}

void leave_out_odd_ones(std::vector<burst_frame>& burst) {
  if (burst.size() < 3) return;
  std::vector<double> brightness, residual;
  for (size_t i = 0; i < burst.size(); ++i) {
    brightness.push_back(burst[i].brightness);
    if (i > 0) residual.push_back(burst[i].moved.residual);
  }
  const double usual_brightness = median(brightness), usual_residual = median(residual);
  std::vector<double> scatter;
  for (double b : brightness) scatter.push_back(std::abs(b - usual_brightness));
  // Four times the usual scatter, and at least what no eye and no tuning would notice.
  const double most_brightness = std::max(1.0, 4 * 1.48 * median(scatter));
  const double most_residual = std::max(0.5, 1.6 * usual_residual);
  constexpr double kMostPixels = 64;
  for (size_t i = 1; i < burst.size(); ++i) {
    burst_frame& b = burst[i];
    if (std::abs(b.brightness - usual_brightness) > most_brightness) {
      b.left_out = "brighter or darker than the others";
    } else if (std::hypot(b.moved.x, b.moved.y) > kMostPixels) {
      b.left_out = "displaced too far";
    } else if (b.moved.residual > most_residual) {
      b.left_out = "its content differs";
    }
  }
}

frame_sum::frame_sum(const frame& first) : first_(first) {
  for (channel* c : {&luma_, &u_, &v_}) {
    const size_t size = c == &luma_ ? size_t(first.width) * first.height
                                    : size_t(first.chroma_width()) * first.chroma_height();
    c->sum.assign(size, 0);
    c->weight.assign(size, 0);
  }
}

void frame_sum::add(const frame& f, const displacement& moved) {
  add_channel(luma_.sum, luma_.weight, luma_view(f), moved.x, moved.y);
  add_channel(u_.sum, u_.weight, u_view(f), moved.x / 2, moved.y / 2);
  add_channel(v_.sum, v_.weight, v_view(f), moved.x / 2, moved.y / 2);
  ++count_;
}

frame frame_sum::mean() const {
  frame out = first_;
  divide(luma_.sum, luma_.weight, luma_view(first_), out.luma());
  divide(u_.sum, u_.weight, u_view(first_), out.chroma());
  divide(v_.sum, v_.weight, v_view(first_), out.chroma() + 1);
  pad_edges(out);
  return out;
}

}  // namespace vorn::tool
