// The noise meter against noise of known size; bench/meter runs it.
//
// usage: noise_meter_bench [--each] [--json FILE] --half NAME PICTURE... [--half NAME PICTURE...]
//
// Every clean picture gets noise of three kinds and six strengths; the truth is the root mean
// square of what was really added (clipping and rounding included) over the blocks that show it:
//   white    luma and chroma white, the same everywhere
//   fair     luma mixed with a 3x3 binomial blur (level ratio 0.50), chroma blurred (correlation of
//            neighbours 0.72), stronger in the dark: variance 1.5 - 1.1 Y/255
//   strong   the same with luma under a Gaussian blur (level ratio 0.68)
// Chroma has 0.6 of luma's standard deviation. An error is log2(measured / true).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "tools/lab/noise_meter.h"
#include "tools/picture/output_file.h"
#include "tools/picture/picture_io.h"

namespace {

using vorn::tool::frame;
using json = nlohmann::ordered_json;

struct noise_kind {
  const char* name;
  double luma_blur, luma_share, chroma_blur;
  bool darker_is_stronger;
};
constexpr noise_kind kKinds[] = {
    {"white", 0, 0, 0, false}, {"fair", 0, 0.55, 0.87, true}, {"strong", 0.72, 0, 0.87, true}};
constexpr double kSigmas[] = {1, 2, 4, 8, 16};
constexpr double kChromaShare = 0.6;

// Normal noise of unit variance: white, blurred by a Gaussian, or mixed with a binomial blur.
class field {
 public:
  field(int width, int height, double blur, double share, std::mt19937& engine)
      : width_(width), values_(size_t(width) * size_t(height)) {
    std::normal_distribution<float> normal(0, 1);
    const int wide = width + 2 * kReach, high = height + 2 * kReach;
    std::vector<float> white(size_t(wide) * size_t(high));
    for (float& w : white) w = normal(engine);
    std::vector<double> window(2 * kReach + 1);
    double squares = 0;
    for (int i = -kReach; i <= kReach; ++i)
      window[size_t(i + kReach)] = blur > 0 ? std::exp(-i * i / (2 * blur * blur)) : i == 0;
    if (share > 0) window = {0, 0, 0, 0, 0, 1, 2, 1, 0, 0, 0, 0, 0};
    for (const double w : window) squares += w * w;
    if (share > 0) squares = 16;  // sums of 1 2 1, for the binomial blur
    for (double& w : window) w /= std::sqrt(squares);
    // A share of the blur beside the sharp field, at unit variance again.
    const double middle = 1 - 0.75 * share;
    const double scale = share > 0 ? 1 / std::sqrt(middle * middle + share * share * 20 / 256) : 1;
    std::vector<float> rows(size_t(width) * size_t(high));
    for (int y = 0; y < high; ++y)
      for (int x = 0; x < width; ++x)
        rows[size_t(y) * size_t(width) + size_t(x)] =
            summed(&white[size_t(y) * size_t(wide) + size_t(x)], 1, window);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const float soft = summed(&rows[size_t(y) * size_t(width) + size_t(x)], width, window);
        const float sharp = white[size_t(y + kReach) * size_t(wide) + size_t(x + kReach)];
        values_[size_t(y) * size_t(width) + size_t(x)] =
            share > 0 ? float(scale * (sharp + share * (soft - sharp))) : soft;
      }
    }
  }
  float at(int x, int y) const { return values_[size_t(y) * size_t(width_) + size_t(x)]; }

 private:
  static constexpr int kReach = 6;
  static float summed(const float* from, int step, const std::vector<double>& window) {
    double sum = 0;
    for (size_t i = 0; i < window.size(); ++i) sum += window[i] * double(from[ptrdiff_t(i) * step]);
    return float(sum);
  }
  int width_;
  std::vector<float> values_;
};

uint8_t rounded(double value) {
  return uint8_t(std::clamp(std::floor(value + 0.5), 0.0, 255.0));
}

frame with_noise(const frame& clean, const noise_kind& kind, double sigma, unsigned seed) {
  frame f = clean;
  std::mt19937 engine(seed);
  const int width = f.padded_width, height = f.padded_height;
  const field y(width, height, kind.luma_blur, kind.luma_share, engine);
  const field u(width / 2, height / 2, kind.chroma_blur, 0, engine);
  const field v(width / 2, height / 2, kind.chroma_blur, 0, engine);
  const auto strength = [&](int px, int py) {
    const double luma = clean.luma()[size_t(py) * size_t(width) + size_t(px)];
    return sigma * (kind.darker_is_stronger ? std::sqrt(1.5 - 1.1 * luma / 255) : 1);
  };
  for (int py = 0; py < height; ++py) {
    for (int px = 0; px < width; ++px) {
      uint8_t& s = f.luma()[size_t(py) * size_t(width) + size_t(px)];
      s = rounded(s + strength(px, py) * double(y.at(px, py)));
    }
  }
  for (int cy = 0; cy < height / 2; ++cy) {
    for (int cx = 0; cx < width / 2; ++cx) {
      uint8_t* const pair = f.chroma() + size_t(cy) * size_t(width) + 2 * size_t(cx);
      const double own = kChromaShare * strength(2 * cx, 2 * cy);
      pair[0] = rounded(pair[0] + own * double(u.at(cx, cy)));
      pair[1] = rounded(pair[1] + own * double(v.at(cx, cy)));
    }
  }
  return f;
}

// Root mean square of the difference over the 8x8 blocks of the noisy plane that are not clipped.
double added(const uint8_t* noisy, const uint8_t* clean, int width, int height, int stride,
             int step) {
  double sum = 0, count = 0;
  for (int y0 = 0; y0 + 8 <= height; y0 += 8) {
    for (int x0 = 0; x0 + 8 <= width; x0 += 8) {
      double squares = 0;
      bool clipped = false;
      for (int k = 0; k < 64; ++k) {
        const size_t at = size_t(y0 + k / 8) * size_t(stride) + size_t(x0 + k % 8) * size_t(step);
        squares += (noisy[at] - clean[at]) * (noisy[at] - clean[at]);
        clipped = clipped || noisy[at] < 2 || noisy[at] > 253;
      }
      if (clipped) continue;
      sum += squares;
      count += 64;
    }
  }
  return count > 0 ? std::sqrt(sum / count) : 0;
}

struct trial {
  std::string picture;
  int kind;
  double sigma;
  double true_y, true_uv, y, uv;
  int doubt;
};

double error_of(double measured, double truth) {
  return std::log2(std::max(measured, 0.05) / truth);
}

double quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, size_t(share * double(values.size())))];
}

struct half {
  std::string name;
  std::vector<std::string> pictures;
  std::vector<trial> noisy, clean;
  double seconds = 0, megapixels = 0;
};

trial measured(half& h, const frame& f, const frame& clean, int kind, double sigma) {
  const auto start = std::chrono::steady_clock::now();
  const vorn::tool::noise_curve curve =
      vorn::tool::measure_noise({f}, vorn::tool::noise_scene::any);
  h.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  h.megapixels += double(f.width) * f.height / 1e6;
  trial t{
      "", kind, sigma, 0, 0, curve.y, std::hypot(curve.u, curve.v) / std::sqrt(2), curve.all.doubt};
  t.true_y = added(f.luma(), clean.luma(), f.width, f.height, f.padded_width, 1);
  const double u =
      added(f.chroma(), clean.chroma(), f.chroma_width(), f.chroma_height(), f.padded_width, 2);
  const double v = added(f.chroma() + 1, clean.chroma() + 1, f.chroma_width(), f.chroma_height(),
                         f.padded_width, 2);
  t.true_uv = std::hypot(u, v) / std::sqrt(2);
  return t;
}

void run(half& h) {
  for (const std::string& path : h.pictures) {
    const frame clean = vorn::tool::read_picture(path);
    const size_t slash = path.rfind('/') + 1;
    const std::string name = path.substr(slash, path.rfind('.') - slash);
    const auto keep = [&](std::vector<trial>& list, const frame& f, int kind, double sigma) {
      list.push_back(measured(h, f, clean, kind, sigma));
      list.back().picture = name;
    };
    keep(h.clean, clean, 0, 0);
    unsigned seed = 1;
    for (int k = 0; k < 3; ++k)
      for (const double sigma : kSigmas)
        keep(h.noisy, with_noise(clean, kKinds[k], sigma, ++seed), k, sigma);
  }
}

json row(const half& h, const std::string& what, bool (*counts)(const trial&, double), double at) {
  std::vector<double> y, uv, sure;
  int doubted = 0;
  for (const trial& t : h.noisy) {
    if (!counts(t, at)) continue;
    const double e = std::fabs(error_of(t.y, t.true_y));
    y.push_back(e);
    uv.push_back(std::fabs(error_of(t.uv, t.true_uv)));
    if (t.doubt == 0) sure.push_back(e);
    doubted += t.doubt != 0;
  }
  std::printf("%-16s %5zu %8d%% %9.2f %6.2f %12.2f %6.2f %12.2f %6.2f\n", what.c_str(), y.size(),
              int(std::lround(100.0 * doubted / double(std::max<size_t>(1, y.size())))),
              quantile(y, 0.5), quantile(y, 0.9), quantile(sure, 0.5), quantile(sure, 0.9),
              quantile(uv, 0.5), quantile(uv, 0.9));
  return {{"what", what},
          {"trials", y.size()},
          {"doubted", doubted},
          {"luma_median", quantile(y, 0.5)},
          {"luma_p90", quantile(y, 0.9)},
          {"sure_median", quantile(sure, 0.5)},
          {"sure_p90", quantile(sure, 0.9)},
          {"chroma_median", quantile(uv, 0.5)},
          {"chroma_p90", quantile(uv, 0.9)}};
}

json print(const half& h, bool each) {
  if (each) {
    for (const trial& t : h.clean)
      std::printf("%-12s clean       Y %5.2f  UV %5.2f  %s\n", t.picture.c_str(), t.y, t.uv,
                  t.doubt != 0 ? "doubted" : "");
    for (const trial& t : h.noisy)
      std::printf("%-12s %-6s %4.0f  Y %+5.2f  UV %+5.2f  %s\n", t.picture.c_str(),
                  kKinds[t.kind].name, t.sigma, error_of(t.y, t.true_y), error_of(t.uv, t.true_uv),
                  t.doubt != 0 ? "doubted" : "");
  }
  std::printf("\n%s half, %zu scenes: |log2(measured / true)|, median and worst tenth\n",
              h.name.c_str(), h.pictures.size());
  std::printf("%-16s %5s %9s %16s %19s %19s\n", "noise", "runs", "doubted", "luma", "luma, sure",
              "chroma");
  json rows = json::array();
  rows.push_back(row(
      h, "all", [](const trial&, double) { return true; }, 0));
  for (int k = 0; k < 3; ++k)
    rows.push_back(row(
        h, kKinds[k].name, [](const trial& t, double at) { return t.kind == int(at); }, k));
  for (const double sigma : kSigmas)
    rows.push_back(row(
        h, "sigma " + std::to_string(int(sigma)),
        [](const trial& t, double at) { return t.sigma == at; }, sigma));
  std::vector<double> y, uv;
  int above = 0, found = 0;
  for (const trial& t : h.clean) {
    y.push_back(t.y);
    uv.push_back(t.uv);
    above += t.y > 1 || t.uv > 1;
    found += (t.y > 1 || t.uv > 1) && t.doubt == 0;
  }
  std::printf(
      "clean pictures: luma median %.2f, worst %.2f; chroma %.2f, %.2f; above 1: %d of %zu, "
      "not doubted %d\n",
      quantile(y, 0.5), quantile(y, 1), quantile(uv, 0.5), quantile(uv, 1), above, y.size(), found);
  std::printf("%.0f ms per picture, %.0f ms per megapixel\n",
              1e3 * h.seconds / double(h.noisy.size() + h.clean.size()),
              1e3 * h.seconds / h.megapixels);
  return {{"half", h.name},
          {"rows", rows},
          {"clean_worst_luma", quantile(y, 1)},
          {"clean_worst_chroma", quantile(uv, 1)},
          {"clean_above_1", above}};
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<half> halves;
  std::string json_file;
  bool each = false;
  for (int i = 1; i < count; ++i) {
    const std::string a = arguments[i];
    if (a == "--each") {
      each = true;
    } else if (a == "--json" && i + 1 < count) {
      json_file = arguments[++i];
    } else if (a == "--half" && i + 1 < count) {
      halves.emplace_back();
      halves.back().name = arguments[++i];
    } else if (!halves.empty()) {
      halves.back().pictures.push_back(a);
    } else {
      std::fprintf(stderr, "noise_meter_bench: %s is none of its options\n", a.c_str());
      return 2;
    }
  }
  json all = json::array();
  try {
    for (half& h : halves) {
      run(h);
      all.push_back(print(h, each));
    }
    if (!json_file.empty()) vorn::tool::write_file(json_file, all.dump(2) + "\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "noise_meter_bench: %s\n", e.what());
    return 1;
  }
  return 0;
}
