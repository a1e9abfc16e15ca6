#include "tuning/noise/meter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "tuning/noise/floor.h"
#include "tuning/noise/shape.h"

namespace vorn::noise {
namespace {

constexpr int kMostBlocks = 64000;  // of one plane of a frame
constexpr int kBlocksPerClass = 800;
constexpr int kMostClasses = 8;
constexpr int kFewestInAll = 60;
constexpr double kFound = 0.7;

// Texture: below this share of blocks that show noise alone, and with this much more than a normal
// distribution's fourth moment in the calmest quarter, what was found is mostly scene.
constexpr double kDoubtfulShare = 0.06;
constexpr double kDoubtfulKurtosis = 3.1;
// Flat areas make up too little to be sure of, whatever their moments.
constexpr double kHardlyAny = 0.03;
// Strong noise would hide the texture that these moments still show, and be all there is in the
// lowest band, too, but for so many octaves of variance: a lawn, gravel.
constexpr double kStrong = 4, kStrongShare = 0.75, kStrongKurtosis = 2.92, kCoarseExcess = 0.35;

// Blocks of one plane (luma, U or V) over all frames.
struct plane_blocks {
  std::vector<block> usable;
  size_t constant = 0;
  double kurtosis_sum = 0;  // of the calmest quarter
  size_t kurtosis_count = 0;
};

struct plane_result {
  std::vector<brightness_class> classes;
  noise_fit fit;
  double kurtosis = 0;
  double sigma = -1;
};

// Fourth over squared second moment of the samples' second derivative (two apart, both directions)
// within a block: 2.8 to 2.9 for noise, more for edges and texture.
double kurtosis_at(const plane& p, int x0, int y0) {
  std::array<double, kSide * kSide> curvature;
  double mean = 0;
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      const float* const at = p.row(y0 + y) + x0 + x;
      const ptrdiff_t down = 2 * ptrdiff_t(p.width);
      const double c = at[0] - 0.25 * (at[-2] + at[2] + at[-down] + at[down]);
      curvature[size_t(y * kSide + x)] = c;
      mean += c / (kSide * kSide);
    }
  }
  double second = 0, fourth = 0;
  for (const double c : curvature) {
    const double d = (c - mean) * (c - mean);
    second += d;
    fourth += d * d;
  }
  return second > 0 ? fourth * kSide * kSide / (second * second) : 0;
}

void add_kurtosis(const plane& p, const block_grid& grid, plane_blocks* to) {
  std::vector<std::pair<float, size_t>> calm;
  for (size_t i = 0; i < grid.blocks.size(); ++i) {
    const block& b = grid.blocks[i];
    const int x = grid.left(i), y = grid.top(i);
    const bool inside = x >= 2 && y >= 2 && x + kSide + 2 <= p.width && y + kSide + 2 <= p.height;
    if (b.usable && inside) calm.emplace_back(0.3f * b.calm[0] + b.calm[1] + b.calm[2], i);
  }
  const size_t quarter = calm.size() / 4;
  std::nth_element(calm.begin(), calm.begin() + ptrdiff_t(quarter), calm.end());
  for (size_t k = 0; k < quarter; ++k) {
    const double kurtosis = kurtosis_at(p, grid.left(calm[k].second), grid.top(calm[k].second));
    if (kurtosis <= 0) continue;
    to->kurtosis_sum += kurtosis;
    ++to->kurtosis_count;
  }
}

std::vector<brightness_class> classes_of(std::vector<block> blocks, fit_kind kind) {
  std::vector<brightness_class> classes;
  if (blocks.size() < size_t(kFewestInAll)) return classes;
  std::sort(blocks.begin(), blocks.end(),
            [](const block& a, const block& b) { return a.brightness < b.brightness; });
  const size_t count =
      std::clamp<size_t>(blocks.size() / size_t(kBlocksPerClass), 1, size_t(kMostClasses));
  for (size_t c = 0; c < count; ++c) {
    const size_t first = blocks.size() * c / count, end = blocks.size() * (c + 1) / count;
    brightness_class own;
    own.blocks = int(end - first);
    for (size_t i = first; i < end; ++i) own.brightness += blocks[i].brightness / own.blocks;
    std::vector<float> energies(end - first);
    for (int b = 0; b < kBands; ++b) {
      for (size_t i = first; i < end; ++i) {
        const auto& of = kind == fit_kind::flat ? blocks[i].all : blocks[i].calm;
        energies[i - first] = of[size_t(b)];
      }
      own.floors[size_t(b)] =
          kind == fit_kind::flat ? floor_of_flat(energies, b) : find_floor(energies, b);
    }
    classes.push_back(own);
  }
  return classes;
}

plane_result result_of(const plane_blocks& blocks, fit_kind kind, double scale) {
  plane_result r;
  r.classes = classes_of(blocks.usable, kind);
  if (r.classes.empty()) return r;
  r.fit = fit_noise(r.classes, kind);
  if (blocks.kurtosis_count > 0) r.kurtosis = blocks.kurtosis_sum / double(blocks.kurtosis_count);
  double sum = 0, count = 0;
  for (size_t c = 0; c < r.classes.size(); ++c) {
    r.fit.variances[c] *= scale;
    sum += r.fit.variances[c] * r.classes[c].blocks;
    count += r.classes[c].blocks;
  }
  r.sigma = std::sqrt(sum / count);
  return r;
}

// Octaves of variance by which the lowest band's floors lie above the noise, mean over the classes.
double coarse_excess(const plane_result& r) {
  double sum = 0;
  for (size_t c = 0; c < r.classes.size(); ++c) {
    const double noise = r.fit.variances[c] * lowest_band(r.fit.blur);
    sum += std::log2(std::max(1e-3, r.classes[c].floors[0].variance) / noise);
  }
  return r.classes.empty() ? 0 : sum / double(r.classes.size());
}

bool textured(const plane_result& r) {
  return r.fit.share < kHardlyAny ||
         (r.fit.share < 2 * kDoubtfulShare && r.kurtosis > kDoubtfulKurtosis) ||
         (r.sigma > kStrong && r.fit.share < kStrongShare && r.kurtosis > kStrongKurtosis &&
          coarse_excess(r) > kCoarseExcess);
}

// What looks like noise is mostly scene where the share is small: no more than about one grey level
// of it is believed, and more again as the share grows.
void believe_less(plane_result* r) {
  if (r->kurtosis < kDoubtfulKurtosis) return;
  const double most = 0.95 * std::exp2(2.5 * std::max(0.0, r->fit.share / kDoubtfulShare - 1));
  if (r->sigma <= most) return;
  const double factor = most / r->sigma;
  for (double& v : r->fit.variances) v *= factor * factor;
  r->sigma = most;
}

struct frame_planes {
  plane luma, u, v;
};

frame_planes planes_of(const vorn_noise_frame& f) {
  const int cw = (f.width + 1) / 2, ch = (f.height + 1) / 2;
  frame_planes p{plane_of(f.luma, f.luma_stride, 1, f.width, f.height), {0, 0, {}}, {0, 0, {}}};
  if (f.u != nullptr && f.v != nullptr) {
    p.u = plane_of(f.u, f.chroma_stride, f.chroma_step, cw, ch);
    p.v = plane_of(f.v, f.chroma_stride, f.chroma_step, cw, ch);
  }
  return p;
}

// now - before around mid-grey, with the brightness and the clipping of now.
block_grid cut_difference(const plane& now, const plane& before, int pitch) {
  plane difference = now;
  for (size_t i = 0; i < difference.samples.size(); ++i)
    difference.samples[i] += 128 - before.samples[i];
  block_grid grid = cut(difference, pitch);
  const block_grid scene = cut(now, pitch);
  for (size_t i = 0; i < grid.blocks.size(); ++i) {
    grid.blocks[i].brightness = scene.blocks[i].brightness;
    // Equal frames: no noise, and that is a measurement.
    grid.blocks[i].usable = scene.blocks[i].usable;
  }
  return grid;
}

struct all_blocks {
  plane_blocks luma, u, v;
};

void add_blocks(const plane& luma, const plane& p, const plane* before, bool moments,
                plane_blocks* to) {
  if (p.width == 0) return;
  const int pitch = pitch_for(p.width, p.height, kMostBlocks);
  block_grid grid = before != nullptr ? cut_difference(p, *before, pitch) : cut(p, pitch);
  if (&luma != &p) take_brightness(luma, &grid);
  if (moments) add_kurtosis(p, grid, to);
  for (const block& b : grid.blocks) {
    if (b.usable) to->usable.push_back(b);
    to->constant += b.constant ? 1 : 0;
  }
}

double variance_near(const plane_result& r, double brightness) {
  if (r.classes.empty()) return -1;
  size_t after = 0;
  while (after < r.classes.size() && r.classes[after].brightness < brightness) ++after;
  if (after == 0) return r.fit.variances.front();
  if (after == r.classes.size()) return r.fit.variances.back();
  const double a = r.classes[after - 1].brightness, b = r.classes[after].brightness;
  const double share = b > a ? (brightness - a) / (b - a) : 0;
  return r.fit.variances[after - 1] * (1 - share) + r.fit.variances[after] * share;
}

float sigma_near(const plane_result& r, double brightness) {
  const double variance = variance_near(r, brightness);
  return variance < 0 ? -1 : float(std::sqrt(variance));
}

void fill(const plane_result& y, const plane_result& u, const plane_result& v, vorn_noise* result) {
  const plane_result& classes = y.classes.empty() ? u : y;
  result->classes = int32_t(classes.classes.size());
  for (size_t c = 0; c < classes.classes.size(); ++c) {
    const brightness_class& own = classes.classes[c];
    result->class_at[c] = {float(own.brightness), sigma_near(y, own.brightness),
                           sigma_near(u, own.brightness), sigma_near(v, own.brightness),
                           own.blocks};
  }
  const auto known = [](double sigma) { return std::max(0.0, sigma); };
  result->luma = known(y.sigma);
  result->u = known(u.sigma);
  result->v = known(v.sigma);
  result->luma_correlation = correlation_of(y.fit.blur);
  result->chroma_correlation = (correlation_of(u.fit.blur) + correlation_of(v.fit.blur)) / 2;
  for (int l = 0; l < VORN_NOISE_LEVELS; ++l)
    result->luma_levels[l] = result->luma * level_sigma(y.fit.blur, l);
  for (int l = 0; l < 2; ++l) {
    const double a = result->u * level_sigma(u.fit.blur, l);
    const double b = result->v * level_sigma(v.fit.blur, l);
    result->chroma_levels[l] = std::sqrt((a * a + b * b) / 2);
  }
}

}  // namespace

void measure(const vorn_noise_frame* frames, int count, int scene, vorn_noise* result) {
  const bool burst = scene == VORN_NOISE_BURST, any = scene == VORN_NOISE_ANY;
  all_blocks blocks;
  frame_planes before;
  for (int i = 0; i < count; ++i) {
    frame_planes now = planes_of(frames[i]);
    if (!burst || i > 0) {
      const auto of = [&](const plane& p, const plane& last, plane_blocks* to) {
        add_blocks(now.luma, p, burst ? &last : nullptr, any, to);
      };
      of(now.luma, before.luma, &blocks.luma);
      of(now.u, before.u, &blocks.u);
      of(now.v, before.v, &blocks.v);
    }
    if (burst) before = std::move(now);
  }
  const fit_kind kind = any ? fit_kind::scene : fit_kind::flat;
  const double scale = burst ? 0.5 : 1;  // a difference holds the noise of two frames
  plane_result y = result_of(blocks.luma, kind, scale), u = result_of(blocks.u, kind, scale),
               v = result_of(blocks.v, kind, scale);
  *result = {};
  // Areas of one value are free of noise; what is measured beside them is edges then.
  if (blocks.luma.constant > blocks.luma.usable.size()) {
    result->confidence =
        double(blocks.luma.constant) / double(blocks.luma.constant + blocks.luma.usable.size());
    return;
  }
  result->doubt = y.classes.empty() ? VORN_NOISE_FEW : VORN_NOISE_SURE;
  if (any && !y.classes.empty()) {
    if (textured(y)) result->doubt = VORN_NOISE_TEXTURE;
    for (plane_result* r : {&y, &u, &v})
      if (!r->classes.empty()) believe_less(r);
  }
  result->confidence = y.fit.share;
  fill(y, u, v, result);
  result->found = std::max({result->luma, result->u, result->v}) >= kFound;
}

}  // namespace vorn::noise
