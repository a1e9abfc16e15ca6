#include "tools/lab/figures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>

namespace vorn::tool {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kTile = 32;
constexpr int kBins = kTile / 2 + 1;

double sample(const plane_view& p, int x, int y) {
  return p.data[y * p.stride + ptrdiff_t(x) * p.step];
}

using tile = std::vector<std::complex<double>>;

// A tile's Fourier transform, its best plane taken off, under a Hann window of unit mean power.
tile spectrum_of(const plane_view& p, int x0, int y0) {
  double mean = 0, slope_x = 0, slope_y = 0;
  const double centre = (kTile - 1) / 2.0;
  for (int y = 0; y < kTile; ++y) {
    for (int x = 0; x < kTile; ++x) {
      const double s = sample(p, x0 + x, y0 + y);
      mean += s;
      slope_x += s * (x - centre);
      slope_y += s * (y - centre);
    }
  }
  const double moment = kTile * (kTile * (double(kTile) * kTile - 1) / 12);
  mean /= kTile * kTile;
  slope_x /= moment;
  slope_y /= moment;
  std::array<double, kTile> hann;
  for (int i = 0; i < kTile; ++i)
    hann[i] = (1 - std::cos(2 * kPi * (i + 0.5) / kTile)) * std::sqrt(2.0 / 3.0);
  std::array<std::complex<double>, kTile> turn;
  for (int i = 0; i < kTile; ++i) turn[i] = std::polar(1.0, -2 * kPi * i / kTile);
  tile rows(kTile * kTile), out(kTile * kTile);
  for (int y = 0; y < kTile; ++y) {
    for (int k = 0; k < kTile; ++k) {
      std::complex<double> sum = 0;
      for (int x = 0; x < kTile; ++x) {
        const double s =
            sample(p, x0 + x, y0 + y) - mean - slope_x * (x - centre) - slope_y * (y - centre);
        sum += s * hann[x] * hann[y] * turn[k * x % kTile];
      }
      rows[y * kTile + k] = sum;
    }
  }
  for (int k = 0; k < kTile; ++k) {
    for (int l = 0; l < kTile; ++l) {
      std::complex<double> sum = 0;
      for (int y = 0; y < kTile; ++y) sum += rows[y * kTile + k] * turn[l * y % kTile];
      out[l * kTile + k] = sum / double(kTile);
    }
  }
  return out;
}

// Calls work(x, y) for the tiles of a plane, at most 256 of them, spread over it.
template <typename Work>
void for_tiles(const plane_view& p, const Work& work) {
  const int across = p.width / kTile, down = p.height / kTile;
  const int every = std::max(1, int(std::ceil(std::sqrt(across * double(down) / 256))));
  for (int y = 0; y < down; y += every)
    for (int x = 0; x < across; x += every) work(x * kTile, y * kTile);
}

// Sums of a value per frequency, over all directions.
struct radial {
  std::vector<double> sum = std::vector<double>(kBins, 0.0);
  std::vector<double> count = std::vector<double>(kBins, 0.0);
  template <typename Value>
  void add(const Value& value) {
    for (int l = 0; l < kTile; ++l) {
      for (int k = 0; k < kTile; ++k) {
        const double fx = std::min(k, kTile - k), fy = std::min(l, kTile - l);
        const int bin = int(std::lround(std::sqrt(fx * fx + fy * fy)));
        if (bin >= kBins || bin == 0) continue;
        sum[bin] += value(l * kTile + k);
        count[bin] += 1;
      }
    }
  }
};

// Places of an edge row by row: the centroid of the absolute difference along the row, around the
// difference's own peak.
std::vector<std::array<double, 2>> edge_places(const plane_view& p) {
  std::vector<std::array<double, 2>> places;
  for (int y = 0; y < p.height; ++y) {
    // The weight of a difference grows with its fourth power: noise far off does not pull.
    double sum = 0, moment = 0;
    for (int x = 1; x + 1 < p.width; ++x) {
      const double d = (sample(p, x + 1, y) - sample(p, x - 1, y)) / 2;
      const double w = d * d * d * d;
      sum += w;
      moment += w * x;
    }
    if (sum > 0) places.push_back({double(y), moment / sum});
  }
  return places;
}

plane_view transposed(const plane_view& p, std::vector<uint8_t>* bytes) {
  bytes->resize(size_t(p.width) * p.height);
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) (*bytes)[size_t(x) * p.height + y] = uint8_t(sample(p, x, y));
  return {bytes->data(), p.height, p.width, p.height, 1};
}

bool runs_across(const plane_view& p) {
  double along_x = 0, along_y = 0;
  for (int y = 0; y + 1 < p.height; ++y) {
    for (int x = 0; x + 1 < p.width; ++x) {
      along_x += std::abs(sample(p, x + 1, y) - sample(p, x, y));
      along_y += std::abs(sample(p, x, y + 1) - sample(p, x, y));
    }
  }
  return along_y > along_x;
}

// Where a falling curve of values 1 / 64 cycle apart crosses a level; 0.5 where it does not.
double crossing(const std::vector<double>& curve, double level) {
  for (size_t i = 1; i < curve.size(); ++i) {
    if (curve[i] > level) continue;
    const double share = (curve[i - 1] - level) / std::max(curve[i - 1] - curve[i], 1e-9);
    return (double(i - 1) + share) / 64;
  }
  return 0.5;
}

// The edge's profile in quarter samples of distance to the line x = at + slope y; empty where some
// distance within 12 samples has no sample.
std::vector<double> edge_profile(const plane_view& p, double at, double slope) {
  constexpr int kReach = 48;
  std::vector<double> sum(2 * kReach + 1, 0.0), count(2 * kReach + 1, 0.0);
  const double across = 1 / std::sqrt(1 + slope * slope);
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      const int bin = int(std::lround((x - at - slope * y) * across * 4)) + kReach;
      if (bin < 0 || bin > 2 * kReach) continue;
      sum[bin] += sample(p, x, y);
      count[bin] += 1;
    }
  }
  for (size_t i = 0; i < sum.size(); ++i) {
    if (count[i] == 0) return {};
    sum[i] /= count[i];
  }
  return sum;
}

}  // namespace

plane_view part_of(const plane_view& plane, const rectangle& r) {
  const int x = std::clamp(r.x, 0, plane.width - 1), y = std::clamp(r.y, 0, plane.height - 1);
  return {plane.data + y * plane.stride + ptrdiff_t(x) * plane.step,
          std::clamp(r.width, 1, plane.width - x), std::clamp(r.height, 1, plane.height - y),
          plane.stride, plane.step};
}

patch_figures measure_patch(const plane_view& plane) {
  patch_figures out;
  const double count = double(plane.width) * plane.height;
  out.mean = mean(plane);
  double squares = 0;
  for (int y = 0; y < plane.height; ++y) {
    for (int x = 0; x < plane.width; ++x) {
      const double d = sample(plane, x, y) - out.mean;
      squares += d * d;
    }
  }
  out.deviation = std::sqrt(squares / count);
  return out;
}

std::vector<double> noise_spectrum(const plane_view& patch) {
  if (patch.width < kTile || patch.height < kTile) return {};
  radial power;
  for_tiles(patch, [&](int x, int y) {
    const tile t = spectrum_of(patch, x, y);
    power.add([&](int i) { return std::norm(t[i]); });
  });
  std::vector<double> out(kBins, 0.0);
  for (int i = 1; i < kBins; ++i) out[i] = power.sum[i] / std::max(power.count[i], 1.0);
  out[0] = out[1];
  return out;
}

std::vector<double> texture_transfer(const plane_view& patch, const plane_view& clean) {
  if (patch.width < kTile || patch.height < kTile || clean.width != patch.width ||
      clean.height != patch.height)
    return {};
  radial cross, power;
  for_tiles(patch, [&](int x, int y) {
    const tile a = spectrum_of(patch, x, y), c = spectrum_of(clean, x, y);
    cross.add([&](int i) { return std::real(a[i] * std::conj(c[i])); });
    power.add([&](int i) { return std::norm(c[i]); });
  });
  std::vector<double> out(kBins, -1.0);
  for (int i = 1; i < kBins; ++i)
    if (power.sum[i] / power.count[i] > 0.05) out[i] = cross.sum[i] / power.sum[i];
  out[0] = out[1];
  return out;
}

edge_figures measure_edge(const plane_view& patch) {
  edge_figures out;
  if (patch.width < 16 || patch.height < 16) return out;
  std::vector<uint8_t> turned;
  const plane_view p = runs_across(patch) ? transposed(patch, &turned) : patch;

  // Least squares of the edge's places over the rows.
  const auto places = edge_places(p);
  if (places.size() < 16) return out;
  double n = 0, sy = 0, sx = 0, syy = 0, sxy = 0;
  for (const auto& [y, x] : places) {
    n += 1;
    sy += y;
    sx += x;
    syy += y * y;
    sxy += x * y;
  }
  const double slope = (n * sxy - sx * sy) / (n * syy - sy * sy), at = (sx - slope * sy) / n;
  double scatter = 0;
  for (const auto& [y, x] : places) scatter += (x - at - slope * y) * (x - at - slope * y);
  if (std::sqrt(scatter / n) > 1.5) return out;

  const std::vector<double> profile = edge_profile(p, at, slope);
  if (profile.empty()) return out;
  const size_t size = profile.size();
  const auto side = [&](size_t from) {
    double sum = 0;
    for (size_t i = from; i < from + 12; ++i) sum += profile[i];
    return sum / 12;
  };
  out.height = std::abs(side(size - 12) - side(0));
  if (out.height < 8) return out;
  out.angle = std::atan(slope) * 180 / kPi;

  // Line spread under a window, then its transform up to half a cycle per sample.
  out.transfer.resize(33);
  for (int k = 0; k <= 32; ++k) {
    std::complex<double> sum = 0;
    for (size_t i = 1; i + 1 < size; ++i) {
      const double position = (double(i) - (size - 1) / 2.0) / 4;
      const double window = 0.54 + 0.46 * std::cos(2 * kPi * position * 4 / (size - 1));
      sum += window * (profile[i + 1] - profile[i - 1]) / 2 *
             std::polar(1.0, -2 * kPi * position * k / 64);
    }
    out.transfer[k] = std::abs(sum);
  }
  const double whole = std::max(out.transfer[0], 1e-9);
  for (int k = 0; k <= 32; ++k) {
    // What the central difference over half a sample takes away itself.
    const double angle = kPi * k / 64 / 2;
    out.transfer[k] /= whole * (angle > 0 ? std::sin(angle) / angle : 1);
  }
  out.half = crossing(out.transfer, 0.5);
  out.tenth = crossing(out.transfer, 0.1);
  out.found = true;
  return out;
}

}  // namespace vorn::tool
