#include "tools/lab/noise_meter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "tools/lab/metrics.h"

namespace vorn::tool {
namespace {

constexpr int kBlock = 8;
constexpr int kClasses = 16;          // of 16 grey levels each
constexpr double kCalmShare = 0.15;   // of the blocks of a class, in any picture
constexpr size_t kFewestBlocks = 12;  // in a class; fewer say nothing
// samples nearer than this to 0 or 255 may have lost noise to clipping.
constexpr int kClipMargin = 2;

struct block_noise {
  double mean;        // of the plane that is measured
  double brightness;  // of the luma at the same place
  double variance;    // of what the best-fitting plane leaves, unbiased
  double product;     // mean product of horizontal neighbours after the plane is taken off
  bool clipped;
};

struct block_grid {
  int columns = 0, rows = 0;
  std::vector<block_noise> blocks;
  const block_noise& at(int x, int y) const { return blocks[size_t(y) * columns + x]; }
};

// Samples as floating point so that differences of frames fit as well.
struct samples {
  int width, height;
  std::vector<float> values;
};

samples samples_of(const plane_view& plane) {
  samples s{plane.width, plane.height, {}};
  s.values.reserve(size_t(plane.width) * plane.height);
  for (int y = 0; y < plane.height; ++y)
    for (int x = 0; x < plane.width; ++x)
      s.values.push_back(plane.data[y * plane.stride + x * plane.step]);
  return s;
}

block_noise measure_block(const samples& s, int x0, int y0) {
  double sum = 0, sum_x = 0, sum_y = 0;
  bool clipped = false;
  for (int y = 0; y < kBlock; ++y) {
    for (int x = 0; x < kBlock; ++x) {
      const double p = s.values[size_t(y0 + y) * s.width + x0 + x];
      sum += p;
      sum_x += p * (x - 3.5);
      sum_y += p * (y - 3.5);
      clipped = clipped || p < kClipMargin || p > 255 - kClipMargin;
    }
  }
  constexpr double kCount = kBlock * kBlock;
  constexpr double kMoment = kBlock * 42.0;  // sum of (x - 3.5)^2 over the block
  const double mean = sum / kCount, slope_x = sum_x / kMoment, slope_y = sum_y / kMoment;
  double squares = 0, products = 0;
  for (int y = 0; y < kBlock; ++y) {
    double last = 0;
    for (int x = 0; x < kBlock; ++x) {
      const double p = s.values[size_t(y0 + y) * s.width + x0 + x] - mean - slope_x * (x - 3.5) -
                       slope_y * (y - 3.5);
      squares += p * p;
      if (x > 0) products += p * last;
      last = p;
    }
  }
  return {mean, mean, squares / (kCount - 3), products / (kBlock * (kBlock - 1)), clipped};
}

block_grid measure_plane(const samples& s) {
  block_grid grid;
  grid.columns = s.width / kBlock;
  grid.rows = s.height / kBlock;
  for (int y = 0; y < grid.rows; ++y)
    for (int x = 0; x < grid.columns; ++x)
      grid.blocks.push_back(measure_block(s, x * kBlock, y * kBlock));
  return grid;
}

// How much goes on around a block, from its four neighbours alone: their scatter and how far their
// brightness lies apart. Blocks at the edge of the picture have fewer neighbours and no rank.
double unrest(const block_grid& grid, int x, int y) {
  const block_noise& left = grid.at(x - 1, y);
  const block_noise& right = grid.at(x + 1, y);
  const block_noise& up = grid.at(x, y - 1);
  const block_noise& down = grid.at(x, y + 1);
  const double across = left.mean - right.mean, along = up.mean - down.mean;
  // The largest of the four: one edge nearby is enough.
  return std::max({left.variance, right.variance, up.variance, down.variance}) +
         0.5 * (across * across + along * along);
}

struct sample {
  double brightness, variance, product;
};
using block_pool = std::array<std::vector<sample>, kClasses>;

int class_of(double brightness) {
  return std::clamp(static_cast<int>(brightness * kClasses / 256), 0, kClasses - 1);
}

// Adds the blocks of a plane that count to the classes.
void collect(const block_grid& grid, noise_scene scene, double scale, block_pool* pool) {
  struct candidate {
    double unrest;
    const block_noise* block;
  };
  std::array<std::vector<candidate>, kClasses> found;
  const int edge = scene == noise_scene::any ? 1 : 0;
  for (int y = edge; y < grid.rows - edge; ++y) {
    for (int x = edge; x < grid.columns - edge; ++x) {
      const block_noise& block = grid.at(x, y);
      if (block.clipped) continue;
      const double rank = edge != 0 ? unrest(grid, x, y) : 0;
      found[class_of(block.brightness)].push_back({rank, &block});
    }
  }
  for (int c = 0; c < kClasses; ++c) {
    auto& candidates = found[c];
    if (scene == noise_scene::any) {
      std::stable_sort(candidates.begin(), candidates.end(),
                       [](const candidate& a, const candidate& b) { return a.unrest < b.unrest; });
      const size_t keep =
          std::max(kFewestBlocks, static_cast<size_t>(kCalmShare * candidates.size()));
      if (candidates.size() > keep) candidates.resize(keep);
    }
    for (const candidate& k : candidates)
      (*pool)[c].push_back(
          {k.block->brightness, scale * k.block->variance, scale * k.block->product});
  }
}

double median(std::vector<double> values) {
  const size_t middle = values.size() / 2;
  std::nth_element(values.begin(), values.begin() + middle, values.end());
  return values[middle];
}

double sigma_of(const std::vector<sample>& blocks) {
  if (blocks.size() < kFewestBlocks) return -1;
  std::vector<double> variances;
  for (const sample& m : blocks) variances.push_back(m.variance);
  // The median of a scatter estimate with 61 degrees of freedom lies 1.1 % below its mean.
  return std::sqrt(median(std::move(variances)) / 0.989);
}

double correlation_of(const block_pool& pool) {
  // Blocks of twice the usual scatter of their class hold scene rather than noise.
  double products = 0, squares = 0;
  for (const auto& blocks : pool) {
    const double sigma = sigma_of(blocks);
    for (const sample& m : blocks) {
      if (sigma < 0 || m.variance > 2 * sigma * sigma) continue;
      products += m.product;
      squares += m.variance;
    }
  }
  return squares > 0 ? products / squares : 0;
}

// Brightness of chroma blocks: the luma mean over the same 16x16 pixels.
void set_brightness(const block_grid& luma, block_grid* chroma) {
  for (int y = 0; y < chroma->rows; ++y) {
    for (int x = 0; x < chroma->columns; ++x) {
      double sum = 0;
      int count = 0;
      for (int k = 0; k < 4; ++k) {
        const int lx = 2 * x + (k & 1), ly = 2 * y + (k >> 1);
        if (lx >= luma.columns || ly >= luma.rows) continue;
        sum += luma.at(lx, ly).brightness;
        ++count;
      }
      block_noise& block = chroma->blocks[size_t(y) * chroma->columns + x];
      block.brightness = count > 0 ? sum / count : 0;
    }
  }
}

noise_curve curve_of(const block_pool& y, const block_pool& u, const block_pool& v) {
  noise_curve curve;
  double sum_y = 0, sum_u = 0, sum_v = 0, weight_y = 0, weight_u = 0, weight_v = 0;
  const auto add = [](double sigma, size_t blocks, double* sum, double* weight) {
    if (sigma < 0) return;
    *sum += sigma * sigma * static_cast<double>(blocks);
    *weight += static_cast<double>(blocks);
  };
  for (int c = 0; c < kClasses; ++c) {
    noise_class k;
    k.y = sigma_of(y[c]);
    k.u = sigma_of(u[c]);
    k.v = sigma_of(v[c]);
    k.blocks = static_cast<int>(y[c].size());
    add(k.y, y[c].size(), &sum_y, &weight_y);
    add(k.u, u[c].size(), &sum_u, &weight_u);
    add(k.v, v[c].size(), &sum_v, &weight_v);
    if (k.y < 0 && k.u < 0 && k.v < 0) continue;
    const auto& blocks = y[c].empty() ? u[c] : y[c];
    for (const sample& m : blocks)
      k.brightness += m.brightness / static_cast<double>(blocks.size());
    curve.classes.push_back(k);
  }
  curve.y = weight_y > 0 ? std::sqrt(sum_y / weight_y) : 0;
  curve.u = weight_u > 0 ? std::sqrt(sum_u / weight_u) : 0;
  curve.v = weight_v > 0 ? std::sqrt(sum_v / weight_v) : 0;
  curve.correlation_y = correlation_of(y);
  curve.correlation_uv = (correlation_of(u) + correlation_of(v)) / 2;
  return curve;
}

// The difference of two frames of a burst, kept with the brightness and clipping of the first.
block_grid measure_difference(const samples& a, const samples& b) {
  const block_grid plain = measure_plane(a);
  samples difference = a;
  for (size_t i = 0; i < difference.values.size(); ++i)
    difference.values[i] += 128.0f - b.values[i];
  block_grid grid = measure_plane(difference);
  for (size_t i = 0; i < grid.blocks.size(); ++i) {
    grid.blocks[i].mean = grid.blocks[i].brightness = plain.blocks[i].mean;
    grid.blocks[i].clipped = plain.blocks[i].clipped;
  }
  return grid;
}

}  // namespace

noise_curve measure_noise(const std::vector<frame>& frames, noise_scene scene) {
  block_pool y, u, v;
  const bool is_burst = scene == noise_scene::burst;
  const double scale = is_burst ? 0.5 : 1.0;  // a difference holds the noise of two frames
  for (size_t i = is_burst ? 1 : 0; i < frames.size(); ++i) {
    const auto plane = [&](plane_view (*view)(const frame&)) {
      const samples now = samples_of(view(frames[i]));
      return is_burst ? measure_difference(now, samples_of(view(frames[i - 1])))
                      : measure_plane(now);
    };
    const block_grid luma = plane(luma_view);
    block_grid chroma_u = plane(u_view), chroma_v = plane(v_view);
    set_brightness(luma, &chroma_u);
    set_brightness(luma, &chroma_v);
    collect(luma, scene, scale, &y);
    collect(chroma_u, scene, scale, &u);
    collect(chroma_v, scene, scale, &v);
  }
  return curve_of(y, u, v);
}

noise_curve model_curve(const noise_model& model) {
  std::vector<frame> frames;
  for (int level = 8; level < 256; level += 16) {
    frame f = make_frame(128, 96);
    std::fill(f.luma(), f.chroma(), static_cast<uint8_t>(level));
    noise_model own = model;
    own.seed += static_cast<uint64_t>(level);
    add_noise(f, own);
    frames.push_back(std::move(f));
  }
  return measure_noise(frames, noise_scene::flat);
}

double gain_of(const noise_curve& measured, noise_model model) {
  // Noise grows steadily with gain: half the interval (in stops) until it is an eighth of a stop.
  double low = -2, high = 8;
  while (high - low > 0.125) {
    const double middle = (low + high) / 2;
    model.gain = std::exp2(middle);
    const noise_curve curve = model_curve(model);
    double excess = 0;  // of the model over the measurement, in stops
    for (const noise_class& m : measured.classes) {
      if (m.y <= 0) continue;
      // The model's class nearest in brightness.
      const auto nearest = std::min_element(curve.classes.begin(), curve.classes.end(),
                                            [&](const noise_class& a, const noise_class& b) {
                                              return std::fabs(a.brightness - m.brightness) <
                                                     std::fabs(b.brightness - m.brightness);
                                            });
      if (nearest == curve.classes.end() || nearest->y <= 0) continue;
      excess += std::log2(nearest->y / m.y) * std::sqrt(static_cast<double>(m.blocks));
    }
    (excess > 0 ? high : low) = middle;
  }
  return std::exp2((low + high) / 2);
}

}  // namespace vorn::tool
