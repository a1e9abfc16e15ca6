#include "tuning/noise/shape.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vorn::noise {
namespace {

// Mean square of a band's coefficients in noise of unit variance, blur 0.05 k: of block::calm over
// its value in white noise (from 100,000 draws), and of block::all (exact); shading is the sum of
// the mean's and the two coefficients of one half wave.
struct band_row {
  std::array<double, kBands> calm, all;
  double shading;
};
constexpr int kBlurs = 19;
constexpr double kBlurStep = 0.05;
constexpr std::array<band_row, kBlurs> kRows = {{
    {{1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}, 3.00},
    {{1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}, 3.00},
    {{1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}, 3.00},
    {{1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}, 3.00},
    {{1.0050, 1.0035, 1.0017, 0.9994, 0.9964}, {1.0050, 1.0035, 1.0017, 0.9994, 0.9964}, 3.02},
    {{1.0479, 1.0334, 1.0157, 0.9935, 0.9656}, {1.0479, 1.0334, 1.0157, 0.9935, 0.9658}, 3.18},
    {{1.1668, 1.1152, 1.0517, 0.9745, 0.8819}, {1.1668, 1.1152, 1.0521, 0.9752, 0.8844}, 3.64},
    {{1.3628, 1.2459, 1.1028, 0.9360, 0.7508}, {1.3630, 1.2462, 1.1042, 0.9386, 0.7599}, 4.40},
    {{1.6136, 1.4059, 1.1541, 0.8760, 0.5965}, {1.6138, 1.4062, 1.1578, 0.8824, 0.6165}, 5.40},
    {{1.8942, 1.5729, 1.1922, 0.7977, 0.4451}, {1.8947, 1.5737, 1.1998, 0.8089, 0.4757}, 6.57},
    {{2.1859, 1.7299, 1.2086, 0.7057, 0.3137}, {2.1868, 1.7310, 1.2210, 0.7232, 0.3510}, 7.85},
    {{2.4763, 1.8638, 1.1979, 0.6065, 0.2096}, {2.4776, 1.8664, 1.2164, 0.6307, 0.2488}, 9.22},
    {{2.7566, 1.9698, 1.1600, 0.5068, 0.1337}, {2.7588, 1.9731, 1.1856, 0.5370, 0.1701}, 10.65},
    {{3.0224, 2.0446, 1.0980, 0.4121, 0.0819}, {3.0248, 2.0479, 1.1313, 0.4466, 0.1126}, 12.14},
    {{3.2673, 2.0849, 1.0171, 0.3261, 0.0484}, {3.2713, 2.0905, 1.0582, 0.3635, 0.0725}, 13.67},
    {{3.4896, 2.0944, 0.9240, 0.2518, 0.0279}, {3.4949, 2.1022, 0.9720, 0.2899, 0.0456}, 15.23},
    {{3.6868, 2.0772, 0.8235, 0.1902, 0.0157}, {3.6934, 2.0856, 0.8783, 0.2272, 0.0281}, 16.82},
    {{3.8570, 2.0344, 0.7224, 0.1408, 0.0087}, {3.8652, 2.0439, 0.7820, 0.1754, 0.0171}, 18.42},
    {{3.9986, 1.9695, 0.6248, 0.1025, 0.0048}, {4.0095, 1.9809, 0.6873, 0.1337, 0.0104}, 20.03},
}};

// The curve runs over eighths of an octave of variance from 2^-4.
constexpr int kStrengths = 108;
constexpr int kPerOctave = 8;
constexpr double kLowest = -4;
double strength(int i) {
  return std::exp2(kLowest + double(i) / kPerOctave);
}

// Octaves by which a floor of band b may lie below the fit, and above it.
constexpr double kBelow = 0.22, kAbove = 0.5;
double below(int band) {
  return kBelow * (1 + (4 - band) / 4.0);
}
constexpr double kMostBelow = 40, kMostAbove = 6;
constexpr double kSmoothness = 40;  // per squared octave from one class to the next
constexpr int kLargestStep = 6;     // between classes

double misfit(const brightness_class& c, const band_row& row, double variance, fit_kind kind) {
  double sum = 0;
  for (int b = 0; b < kBands; ++b) {
    const noise_floor& floor = c.floors[size_t(b)];
    const auto& shares = kind == fit_kind::flat ? row.all : row.calm;
    const double fit = variance * shares[size_t(b)] + kRounding;
    const double octaves = std::log2(std::max(floor.variance, 1e-3) / fit);
    if (octaves < 0 || kind == fit_kind::flat) {
      const double d = octaves / below(b);
      sum += std::min(d * d, kMostBelow);
    } else {
      const double d = octaves / kAbove;
      sum += std::clamp(2 * floor.share, 0.05, 1.0) * std::min(d * d, kMostAbove);
    }
  }
  return sum;
}

struct curve {
  double cost = std::numeric_limits<double>::infinity();
  std::vector<int> at;  // per class
};

// The cheapest smooth curve, by dynamic programming from class to class.
curve cheapest_curve(const std::vector<brightness_class>& classes, const band_row& row,
                     fit_kind kind) {
  const size_t count = classes.size();
  std::vector<std::array<double, kStrengths>> cost(count);
  std::vector<std::array<int, kStrengths>> from(count);
  for (size_t c = 0; c < count; ++c) {
    for (int i = 0; i < kStrengths; ++i) {
      double best = c == 0 ? 0 : std::numeric_limits<double>::infinity();
      int best_from = i;
      for (int k = std::max(0, i - kLargestStep);
           c > 0 && k <= std::min(kStrengths - 1, i + kLargestStep); ++k) {
        const double octaves = double(i - k) / kPerOctave;
        const double way = cost[c - 1][size_t(k)] + kSmoothness * octaves * octaves;
        if (way < best) {
          best = way;
          best_from = k;
        }
      }
      cost[c][size_t(i)] = best + misfit(classes[c], row, strength(i), kind);
      from[c][size_t(i)] = best_from;
    }
  }
  curve result;
  int at = int(std::min_element(cost.back().begin(), cost.back().end()) - cost.back().begin());
  result.cost = cost.back()[size_t(at)];
  result.at.resize(count);
  for (size_t c = count; c-- > 0;) {
    result.at[c] = at;
    at = from[c][size_t(at)];
  }
  return result;
}

// How much of the picture shows this noise and nothing else: of every class the largest share among
// the floors that the fit explains.
double explained_share(const std::vector<brightness_class>& classes, const band_row& row,
                       const std::vector<double>& variances) {
  double sum = 0, blocks = 0;
  for (size_t c = 0; c < classes.size(); ++c) {
    double largest = 0;
    for (int b = 0; b < kBands; ++b) {
      const noise_floor& floor = classes[c].floors[size_t(b)];
      const double fit = variances[c] * row.calm[size_t(b)] + kRounding;
      if (std::fabs(std::log2(std::max(floor.variance, 1e-3) / fit)) < 0.6)
        largest = std::max(largest, floor.share);
    }
    sum += largest * classes[c].blocks;
    blocks += classes[c].blocks;
  }
  return blocks > 0 ? sum / blocks : 0;
}

// Where every floor counts, the bands add up to the variance; what hides in the shading follows
// from the lowest band.
double variance_of_flat(const brightness_class& c, const band_row& row) {
  double sum = row.shading / row.all[0] * c.floors[0].variance;
  for (int b = 0; b < kBands; ++b) sum += kCoefficients[size_t(b)] * c.floors[size_t(b)].variance;
  return sum / (kSide * kSide);
}

}  // namespace

noise_fit fit_noise(const std::vector<brightness_class>& classes, fit_kind kind) {
  curve best;
  int best_blur = 0;
  // Below 0.2 all rows are the same.
  for (int i = 0; i < kBlurs; i += i == 0 ? 5 : 1) {
    const curve c = cheapest_curve(classes, kRows[size_t(i)], kind);
    if (c.cost < best.cost) {
      best = c;
      best_blur = i;
    }
  }
  noise_fit fit;
  fit.blur = best_blur * kBlurStep;
  for (size_t c = 0; c < classes.size(); ++c) {
    fit.variances.push_back(kind == fit_kind::flat
                                ? variance_of_flat(classes[c], kRows[size_t(best_blur)])
                                : strength(best.at[c]) + kRounding);
  }
  fit.share = kind == fit_kind::flat
                  ? 1
                  : explained_share(classes, kRows[size_t(best_blur)], fit.variances);
  return fit;
}

double lowest_band(double blur) {
  const int row = std::clamp(int(std::lround(blur / kBlurStep)), 0, kBlurs - 1);
  return kRows[size_t(row)].all[0];
}

double correlation_of(double blur) {
  return blur > 0 ? std::exp(-1 / (4 * blur * blur)) : 0;
}

double level_sigma(double blur, int levels) {
  // Correlation of the noise along one direction; both are alike and independent.
  constexpr int kLags = 64;
  std::array<double, kLags> r{};
  for (int k = 0; k < kLags; ++k)
    r[size_t(k)] = blur > 0 ? std::exp(-k * k / (4 * blur * blur)) : (k == 0 ? 1 : 0);
  for (int level = 0; level < levels; ++level) {
    std::array<double, kLags> halved{};
    // The window (1 2 1) / 4 against itself: (1 4 6 4 1) / 16.
    constexpr std::array<double, 5> kWindow = {1 / 16.0, 4 / 16.0, 6 / 16.0, 4 / 16.0, 1 / 16.0};
    for (int k = 0; k < kLags; ++k) {
      for (int d = -2; d <= 2; ++d) {
        const int lag = std::abs(2 * k + d);
        if (lag < kLags) halved[size_t(k)] += kWindow[size_t(d + 2)] * r[size_t(lag)];
      }
    }
    r = halved;
  }
  return r[0];  // the square root of its square: two directions
}

}  // namespace vorn::noise
