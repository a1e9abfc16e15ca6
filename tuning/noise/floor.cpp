#include "tuning/noise/floor.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tuning/noise/blocks.h"

namespace vorn::noise {
namespace {

// The axis: eighths of an octave of variance, from 2^-4 to 2^14.
constexpr int kPerOctave = 8;
constexpr double kLowest = -4;
constexpr int kBins = kPerOctave * 18;
// The factor's distribution: from 2^-4.5 to 2^1.5.
constexpr int kReach = kPerOctave * 6;
constexpr int kReachBelow = kPerOctave * 9 / 2;

constexpr int kSteps = 60;
constexpr double kLowestShare = 0.01;
constexpr double kLowestBlocks = 12;
constexpr int kFarthestPeak = 8;  // bins above them
constexpr double kMost = 0.5;
// Of a share that is less nothing can be said; saves time.
constexpr double kNothing = 1e-7;

// Mean square of the smallest kCalmest of kCoefficients squared standard normal numbers, as scale
// times chi-square over its degrees of freedom: both fitted to mean and variance of the logarithm
// in 400,000 draws.
struct calm_law {
  double scale, freedom;
};
constexpr std::array<calm_law, kBands> kLaws = {
    {{1, 5}, {1, 7}, {0.3979, 6.70}, {0.2385, 7.51}, {0.2590, 9.69}}};

using factor_shares = std::array<double, kReach>;

factor_shares shares_of(const calm_law& law) {
  factor_shares shares;
  double sum = 0;
  for (int i = 0; i < kReach; ++i) {
    const double octaves = double(i - kReachBelow) / kPerOctave + 0.5 / kPerOctave;
    const double x = std::exp2(octaves) / law.scale;
    sum += shares[size_t(i)] = std::exp(law.freedom / 2 * (std::log(x) - x));
  }
  for (double& s : shares) s /= sum;
  return shares;
}

const factor_shares& factor_of(int band) {
  static const std::array<factor_shares, kBands> known = [] {
    std::array<factor_shares, kBands> all;
    for (int b = 0; b < kBands; ++b) all[size_t(b)] = shares_of(kLaws[size_t(b)]);
    return all;
  }();
  return known[size_t(band)];
}

using distribution = std::array<double, kBins>;

int bin_of(double variance) {
  const double at = (std::log2(std::max(variance, 1e-6)) - kLowest) * kPerOctave;
  return std::clamp(int(std::floor(at)), 0, kBins - 1);
}

double variance_at(double bin) {
  return std::exp2(kLowest + (bin + 0.5) / kPerOctave);
}

// Sum of products in four strands, which the compiler can keep in vectors.
double product(const double* a, const factor_shares& b) {
  static_assert(kReach % 4 == 0);
  double strands[4] = {};
  for (int i = 0; i < kReach; i += 4)
    for (int k = 0; k < 4; ++k) strands[k] += a[i + k] * b[size_t(i + k)];
  return (strands[0] + strands[1]) + (strands[2] + strands[3]);
}

distribution true_variances(const std::vector<float>& energies, const factor_shares& factor) {
  // What is seen has room for the factor on both sides: bin b stands at b + kReachBelow.
  std::array<double, kBins + kReach> seen{}, expected;
  for (const float e : energies)
    seen[size_t(bin_of(e) + kReachBelow)] += 1.0 / double(energies.size());
  int first = 0, last = kBins - 1;
  while (seen[size_t(first + kReachBelow)] == 0) ++first;
  while (seen[size_t(last + kReachBelow)] == 0) --last;
  first = std::max(0, first - (kReach - kReachBelow));
  last = std::min(kBins - 1, last + kReachBelow);
  distribution now{};
  for (int j = first; j <= last; ++j) now[size_t(j)] = 1.0 / (last - first + 1);
  for (int step = 0; step < kSteps; ++step) {
    expected.fill(1e-15);
    for (int j = first; j <= last; ++j) {
      const double own = now[size_t(j)];
      if (own < kNothing) continue;
      for (int i = 0; i < kReach; ++i) expected[size_t(j + i)] += own * factor[size_t(i)];
    }
    for (size_t b = 0; b < expected.size(); ++b) expected[b] = seen[b] / expected[b];
    for (int j = first; j <= last; ++j) {
      double& own = now[size_t(j)];
      own = own < kNothing ? 0 : own * product(&expected[size_t(j)], factor);
    }
  }
  return now;
}

noise_floor first_peak(const distribution& shares, size_t blocks) {
  const double lowest = std::max(kLowestShare, kLowestBlocks / double(blocks));
  int start = 0;
  for (double sum = shares[0]; start + 1 < kBins && sum < lowest;) sum += shares[size_t(++start)];
  const auto around = [&](int bin, int reach) {
    double sum = 0;
    for (int b = std::max(0, bin - reach); b <= std::min(kBins - 1, bin + reach); ++b)
      sum += shares[size_t(b)];
    return sum;
  };
  // Uphill from there, at most two bins: farther up lies scene. A peak that holds most of the
  // picture is the noise itself; it may be farther up, as the deconvolution leaves it some width.
  const auto highest = [&](int reach) {
    int best = start;
    for (int b = start + 1; b <= std::min(kBins - 1, start + reach); ++b)
      if (around(b, 1) > around(best, 1)) best = b;
    return best;
  };
  const int far = highest(kFarthestPeak);
  const int peak = around(far, 3) > kMost ? far : highest(2);
  noise_floor floor;
  double sum = 0;
  for (int b = std::max(0, peak - 3); b <= std::min(kBins - 1, peak + 3); ++b) {
    floor.share += shares[size_t(b)];
    sum += shares[size_t(b)] * b;
  }
  floor.variance = variance_at(floor.share > 0 ? sum / floor.share : peak);
  return floor;
}

}  // namespace

noise_floor find_floor(const std::vector<float>& energies, int band) {
  if (energies.size() < size_t(kFewestBlocks)) return {};
  return first_peak(true_variances(energies, factor_of(band)), energies.size());
}

noise_floor floor_of_flat(std::vector<float> energies, int band) {
  if (energies.size() < size_t(kFewestBlocks)) return {};
  const auto middle = energies.begin() + ptrdiff_t(energies.size() / 2);
  std::nth_element(energies.begin(), middle, energies.end());
  // Median over mean of chi-square (Wilson and Hilferty).
  const double ratio = 1 - 2.0 / (9 * kCoefficients[size_t(band)]);
  return {*middle / (ratio * ratio * ratio), 1};
}

}  // namespace vorn::noise
