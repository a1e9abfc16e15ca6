#include "tools/lab/pair_check.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include "tools/lab/alignment.h"
#include "tools/lab/metrics.h"

namespace vorn::tool {
namespace {

// What two shots differ by in one block of 16x16 pixels (8x8 of chroma).
struct block_difference {
  double brightness = 0;                     // mean luma of both, 0..255
  std::array<double, 3> mean = {}, power{};  // second less first, of Y, U, V; its square
};

block_difference difference_at(const frame& a, const frame& b, int x0, int y0, int side) {
  block_difference d;
  const std::array<plane_view, 3> as = {luma_view(a), u_view(a), v_view(a)};
  const std::array<plane_view, 3> bs = {luma_view(b), u_view(b), v_view(b)};
  for (size_t plane = 0; plane < 3; ++plane) {
    const int half = plane == 0 ? 1 : 2;
    const plane_view &p = as[plane], &q = bs[plane];
    int sum = 0, squares = 0, light = 0;
    for (int y = y0 / half; y < (y0 + side) / half; ++y) {
      for (int x = x0 / half; x < (x0 + side) / half; ++x) {
        const int of_a = p.data[y * p.stride + x * p.step],
                  of_b = q.data[y * q.stride + x * q.step];
        sum += of_b - of_a;
        squares += (of_b - of_a) * (of_b - of_a);
        light += of_a + of_b;
      }
    }
    const double count = double(side / half) * (side / half);
    d.mean[plane] = sum / count;
    d.power[plane] = squares / count;
    if (plane == 0) d.brightness = light / (2 * count);
  }
  return d;
}

// Blocks by brightness, in classes of 32 grey levels; classes of few blocks are empty.
std::vector<std::vector<block_difference>> classes_of(const frame& a, const frame& b) {
  constexpr int kSide = 16;
  constexpr size_t kClass = 32, kFew = 12;
  std::vector<std::vector<block_difference>> classes(256 / kClass);
  for (int y = 0; y + kSide <= a.height; y += kSide) {
    for (int x = 0; x + kSide <= a.width; x += kSide) {
      const block_difference d = difference_at(a, b, x, y, kSide);
      classes[static_cast<size_t>(d.brightness) / kClass].push_back(d);
    }
  }
  for (auto& blocks : classes)
    if (blocks.size() < kFew) blocks.clear();
  return classes;
}

double median_power(const std::vector<block_difference>& blocks) {
  std::vector<double> powers;
  for (const block_difference& d : blocks) powers.push_back(d.power[0]);
  const auto middle = powers.begin() + static_cast<ptrdiff_t>(powers.size() / 2);
  std::nth_element(powers.begin(), middle, powers.end());
  return *middle;
}

// A change of light, exposure or white balance, at any brightness.
std::string fault_of_brightness(const std::vector<std::vector<block_difference>>& classes) {
  constexpr double kMost = 0.5, kCertain = 5;  // grey levels; standard errors
  constexpr std::array<const char*, 3> kNames = {"luma", "U", "V"};
  char text[160];
  for (const auto& blocks : classes) {
    const double n = static_cast<double>(blocks.size());
    for (size_t plane = 0; plane < 3 && n > 0; ++plane) {
      double light = 0, sum = 0, squares = 0;
      for (const block_difference& d : blocks) {
        light += d.brightness / n;
        sum += d.mean[plane] / n;
        squares += d.mean[plane] * d.mean[plane] / n;
      }
      const double error = std::sqrt(std::max(0.0, squares - sum * sum) / n);
      if (std::abs(sum) <= kMost || std::abs(sum) <= kCertain * error) continue;
      std::snprintf(text, sizeof text,
                    "%s of the second shot is %.1f grey levels %s where luma is about %.0f: light, "
                    "exposure or white balance changed",
                    kNames[plane], std::abs(sum), sum > 0 ? "higher" : "lower", light);
      return text;
    }
  }
  return "";
}

// Blocks that differ by far more than others as bright, by their share of the whole difference.
std::string fault_of_content(const std::vector<std::vector<block_difference>>& classes) {
  constexpr double kOdd = 4, kMostShare = 0.1;
  double whole = 0, beyond = 0;
  size_t odd = 0, count = 0;
  for (const auto& blocks : classes) {
    if (blocks.empty()) continue;
    const double usual = median_power(blocks);
    for (const block_difference& d : blocks) {
      const bool is_odd = d.power[0] > kOdd * (usual + 1);
      whole += d.power[0];
      beyond += is_odd ? d.power[0] - usual : 0;
      odd += is_odd ? 1 : 0;
      ++count;
    }
  }
  if (beyond <= kMostShare * whole) return "";
  char text[160];
  std::snprintf(text, sizeof text,
                "something moved: %.0f %% of their difference lies in %zu of %zu blocks of 16x16 "
                "pixels",
                100 * beyond / whole, odd, count);
  return text;
}

// Finest detail of two shots differs by their noise alone: the scene has the same in both.
std::string fault_of_unequal_noise(const frame& a, const frame& b) {
  frame difference = a;
  for (size_t i = 0; i < difference.data.size(); ++i)
    difference.data[i] = static_cast<uint8_t>(std::clamp(128 + a.data[i] - b.data[i], 0, 255));
  const double of_a = finest_detail(a), of_b = finest_detail(b), both = finest_detail(difference);
  constexpr double kMost = 0.25;  // of the sum of both variances: 1 to 1.7
  const double unequal = (of_a * of_a - of_b * of_b) / std::max(1e-9, both * both);
  if (std::abs(unequal) <= kMost) return "";
  return std::string("the ") + (unequal > 0 ? "first" : "second") +
         " shot is much the noisier one: a noisy and a clean picture belong to --pair, shots of "
         "different gain to none";
}

}  // namespace

std::string fault_of_pair(const frame& noisy, const frame& clean) {
  char text[200];
  if (noisy.data == clean.data) return "noisy and clean are the same picture";
  // A search would take what is displaced for noise. A third of a pixel costs several dB at edges.
  constexpr double kMost = 0.3, kCertain = 5;
  const displacement d = measure_displacement(clean, noisy);
  const double far = std::hypot(d.x, d.y);
  if (far > kMost && far > kCertain * d.error) {
    std::snprintf(text, sizeof text,
                  "the noisy picture lies %+.2f, %+.2f pixels (x, y) beside the clean one", d.x,
                  d.y);
    return text;
  }
  const double detail_noisy = finest_detail(noisy), detail_clean = finest_detail(clean);
  if (detail_noisy <= detail_clean) {
    std::snprintf(text, sizeof text,
                  "the clean picture is the noisier one: its finest detail scatters by %.2f grey "
                  "levels, the noisy one's by %.2f; are they swapped?",
                  detail_clean, detail_noisy);
    return text;
  }
  return "";
}

std::string fault_of_shots(const frame& a, const frame& b) {
  if (a.data == b.data) return "both shots are the same picture";
  // Twice the noise of a pair, and the difference is all there is to measure it by.
  constexpr double kMost = 0.15, kCertain = 5;
  const displacement d = measure_displacement(a, b);
  const double far = std::hypot(d.x, d.y);
  if (far > kMost && far > kCertain * d.error) {
    char text[160];
    std::snprintf(text, sizeof text,
                  "the second shot lies %+.2f, %+.2f pixels (x, y) beside the first one", d.x, d.y);
    return text;
  }
  const auto classes = classes_of(a, b);
  std::string fault = fault_of_unequal_noise(a, b);
  if (fault.empty()) fault = fault_of_content(classes);
  if (fault.empty()) fault = fault_of_brightness(classes);
  return fault;
}

}  // namespace vorn::tool
