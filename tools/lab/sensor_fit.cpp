#include "tools/lab/sensor_fit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/error.h"
#include "tools/lab/alignment.h"
#include "tools/lab/noise_meter.h"
#include "tools/numbers.h"

namespace vorn::tool {
namespace {

constexpr int kBlock = 32;
constexpr int kRounds = 6;
// Read noise that the first round is taken at, and at least, for its shape: electrons.
constexpr double kLeastRead = 0.5;
// Below, rounding to whole numbers makes the variance, not the noise.
constexpr double kLeastVariance = 0.15;
// No fit is trusted to better than this: the model is one of many.
constexpr double kModelError = 0.01;
// What is refused: deviations of a tenth of the blocks beyond the median, displacements in pixels,
// the share of blocks that differ, the error of the full well, the misfit of the deviations.
constexpr double kWild = 1.35, kMoved = 0.3, kMostUneven = 0.25, kMostError = 0.15,
                 kMostMisfit = 0.3;

template <typename... Values>
std::string text(const char* format, Values... values) {
  char buffer[320];
  std::snprintf(buffer, sizeof buffer, format, values...);
  return buffer;
}

struct measured_gain {
  double gain;
  noise_points noise;
  // Of clean grey whose noisy version is as bright as the points: the tone curve is bent, so that
  // noise darkens.
  std::vector<double> clean = {};
};

// ---- what the pictures have to be ---------------------------------------------------------------

std::string of_gain(double gain) {
  return "gain " + short_number(gain);
}

void check_still(const sensor_shots& s) {
  for (size_t i = 1; i < s.frames.size(); ++i) {
    const displacement d = measure_displacement(s.frames[0], s.frames[i]);
    if (std::hypot(d.x, d.y) > kMoved && std::hypot(d.x, d.y) > 5 * d.error)
      throw error(s.names[i],
                  text("lies %+.2f, %+.2f pixels (x, y) beside the burst's first frame: "
                       "a burst has to be from a tripod",
                       d.x, d.y));
  }
}

void check_points(const sensor_shots& s, const noise_points& n, bool burst) {
  const std::string where = of_gain(s.gain);
  if (n.points.empty())
    throw error(where,
                text("nothing to measure: of %d blocks of 32x32 pixels %d are clipped to "
                     "black or white, %d coloured, %d full of edges; each brightness needs 4",
                     n.blocks, n.clipped, n.coloured, n.edged));
  const int looked = n.blocks - n.clipped - n.coloured - n.edged;
  const double uneven = double(n.uneven) / std::max(1, looked);
  if (n.wild < kWild && uneven < kMostUneven) return;
  const char* const cause = burst ? "something moved, or the light changed"
                                  : "no evenly lit surface (frames of one still scene: --burst)";
  throw error(where, text("a tenth of the blocks scatters %.0f %% more than the median of equally "
                          "bright ones, %.0f %% more than twice as much: %s",
                          100 * (n.wild - 1), 100 * uneven, cause));
}

// ---- the model's noise, measured in the same way ------------------------------------------------

// Grey blocks of the points' brightness, with the model's noise.
std::vector<noise_point> made_points(const measured_gain& m, noise_model model) {
  const int side = m.noise.points.size() < 12 ? 256 : 128;
  std::vector<noise_point> made;
  model.gain = m.gain;
  for (const double level : m.clean) {
    frame f = make_frame(side, side);
    const int below = int(level), blocks = side / kBlock * (side / kBlock);
    const int above = int(std::lround((level - below) * blocks));
    // As many blocks one level brighter as bring the mean there.
    for (int y = 0; y < side; ++y)
      for (int x = 0; x < side; ++x)
        f.luma()[size_t(y) * side + x] =
            uint8_t(below + (y / kBlock * (side / kBlock) + x / kBlock < above ? 1 : 0));
    ++model.seed;
    add_noise(f, model);
    const noise_points one = points_of({std::move(f)}, false);
    noise_point sum;
    // Blocks of one frame may lie on both sides of a class's end, or be clipped.
    for (const noise_point& part : one.points) {
      const double share = double(part.blocks);
      sum.brightness += share * part.brightness;
      sum.y += share * part.y;
      sum.u += share * part.u;
      sum.v += share * part.v;
      sum.lag_y += share * part.lag_y;
      sum.lag_uv += share * part.lag_uv;
      sum.blocks += part.blocks;
    }
    for (double* value : {&sum.brightness, &sum.y, &sum.u, &sum.v, &sum.lag_y, &sum.lag_uv})
      *value = sum.blocks > 0 ? *value / sum.blocks : 0;
    made.push_back(sum);
  }
  return made;
}

// ---- the fit ------------------------------------------------------------------------------------

double correlation(const std::vector<noise_point>& points, bool luma) {
  double sum = 0, weights = 0;
  for (const noise_point& p : points) {
    const double variance = luma ? p.y : (p.u + p.v) / 2;
    if (!(variance > 0.1)) continue;  // rounding decides
    sum += p.blocks * (luma ? p.lag_y : p.lag_uv) / variance;
    weights += p.blocks;
  }
  return weights > 0 ? sum / weights : 0;
}

// Moves a number until what it makes agrees: the secant through the last two rounds, in steps that
// neither the scatter of the results nor a flat stretch makes large.
struct secant {
  double lowest, highest, usual;  // usual: the result's slope over the number
  double before = 0, result_before = 0;
  double slope = 0;
  double next(double now, double result, double wanted) {
    constexpr double kNear = 0.002, kFarEnough = 0.02, kLongest = 0.5;
    if (slope == 0) {
      slope = usual;
    } else if (std::abs(now - before) > kFarEnough) {
      slope = std::clamp((result - result_before) / (now - before), usual / 3, usual * 3);
    }
    before = now;
    result_before = result;
    if (std::abs(wanted - result) < kNear) return now;
    const double step = std::clamp((wanted - result) / slope, -kLongest, kLongest);
    return std::clamp(now + step, lowest, highest);
  }
};

struct fitting {
  std::vector<measured_gain> measured;
  noise_model model;
  bool colour;
  secant luma_blur{0, 1, 0.7}, chroma_blur{0, 4, 0.4};
  double wanted_luma = 0, wanted_chroma = 0, made_luma = 0, made_chroma = 0;
  double full_well_error = 1, read_noise_error = 1;
  std::vector<std::vector<noise_point>> made;  // per gain, by the model as it was before a round

  fitting(std::vector<measured_gain> m, bool has_colour)
      : measured(std::move(m)), colour(has_colour) {
    for (measured_gain& one : measured)
      for (const noise_point& p : one.noise.points) one.clean.push_back(p.brightness);
    wanted_luma = mean_correlation(true, nullptr);
    wanted_chroma = mean_correlation(false, nullptr);
    model.luma_blur = 0.3;
    model.chroma_blur = colour ? 0.5 : 0;
  }

  double mean_correlation(bool luma, const std::vector<std::vector<noise_point>>* of) const {
    double sum = 0;
    for (size_t g = 0; g < measured.size(); ++g)
      sum += correlation(of ? (*of)[g] : measured[g].noise.points, luma) / double(measured.size());
    return sum;
  }

  void make() {
    made.clear();
    for (const measured_gain& m : measured) made.push_back(made_points(m, model));
    made_luma = mean_correlation(true, &made);
    made_chroma = mean_correlation(false, &made);
  }

  // Photon and read noise: m = a photon + b read, weights by the errors. The model becomes that of
  // a and b.
  void solve_luma() {
    noise_model photons = model;
    photons.read_noise = 0;
    double pp = 0, pr = 0, rr = 0, pm = 0, rm = 0, mm = 0, points = 0;
    for (size_t g = 0; g < measured.size(); ++g) {
      const std::vector<noise_point> photon_made = made_points(measured[g], photons);
      for (size_t i = 0; i < photon_made.size(); ++i) {
        const noise_point& point = measured[g].noise.points[i];
        const double m = point.y, p = photon_made[i].y, r = made[g][i].y - p;
        if (m < kLeastVariance || made[g][i].blocks == 0) continue;
        const double w = 1 / (m * m * (point.error_y * point.error_y + kModelError * kModelError));
        pp += w * p * p;
        pr += w * p * r;
        rr += w * r * r;
        pm += w * p * m;
        rm += w * r * m;
        mm += w * m * m;
        ++points;
      }
    }
    const double determinant = pp * rr - pr * pr;
    const bool apart = determinant > 1e-6 * pp * rr;
    double a = (pm * rr - rm * pr) / determinant, b = (rm * pp - pm * pr) / determinant;
    if (!apart || !(b > 0)) {
      b = 0;
      a = pm / pp;
    }
    const double left = mm - 2 * (a * pm + b * rm) + a * a * pp + 2 * a * b * pr + b * b * rr;
    const double excess = std::max(1.0, left / std::max(1.0, points - 2));
    full_well_error = a > 0 ? std::sqrt(excess * rr / determinant) / a : 1e9;
    read_noise_error = b > 0 ? std::min(1.0, std::sqrt(excess * pp / determinant) / b / 2) : 1;
    if (!apart || !(a > 1e-3)) full_well_error = 1e9;
    a = std::clamp(a, 0.1, 10.0);
    model.full_well = std::clamp(model.full_well / a, 10.0, 1e6);
    model.read_noise = std::clamp(model.read_noise * std::sqrt(b) / a, 0.0, 1e3);
  }

  void match_brightness() {
    for (size_t g = 0; g < measured.size(); ++g) {
      for (size_t i = 0; i < made[g].size(); ++i) {
        if (made[g][i].blocks == 0) continue;
        double& clean = measured[g].clean[i];
        const double off = measured[g].noise.points[i].brightness - made[g][i].brightness;
        clean = std::clamp(clean + std::clamp(off, -8.0, 8.0), 1.0, 254.0);
      }
    }
  }

  void solve_rest() {
    model.luma_blur = luma_blur.next(model.luma_blur, made_luma, wanted_luma);
    if (!colour) return;
    model.chroma_blur = chroma_blur.next(model.chroma_blur, made_chroma, wanted_chroma);
    double sum = 0, weights = 0;
    for (size_t g = 0; g < measured.size(); ++g) {
      for (size_t i = 0; i < made[g].size(); ++i) {
        const noise_point &m = measured[g].noise.points[i], &p = made[g][i];
        if (!(m.u + m.v > 0.05) || !(p.u + p.v > 0.01)) continue;
        const double weight = 1 / (m.error_uv * m.error_uv + 9 * kModelError * kModelError);
        sum += weight * std::log((m.u + m.v) / (p.u + p.v)) / 2;
        weights += weight;
      }
    }
    if (weights > 0)
      model.chroma_strength =
          std::clamp(model.chroma_strength * std::exp(sum / weights), 0.02, 16.0);
  }

  void run() {
    for (int round = 0; round < kRounds; ++round) {
      model.read_noise = std::max(model.read_noise, kLeastRead);
      make();
      solve_luma();
      match_brightness();
      // Blurs change the variance little, the variance blurs hardly at all.
      solve_rest();
    }
    make();
  }
};

void take_residuals(const fitting& f, sensor_fit* out) {
  double squares = 0, weights = 0;
  for (size_t g = 0; g < f.measured.size(); ++g) {
    for (size_t i = 0; i < f.made[g].size(); ++i) {
      const noise_point &m = f.measured[g].noise.points[i], &p = f.made[g][i];
      sensor_residual r{f.measured[g].gain,
                        m.brightness,
                        std::sqrt(m.y),
                        std::sqrt(p.y),
                        std::sqrt((m.u + m.v) / 2),
                        std::sqrt((p.u + p.v) / 2)};
      out->residuals.push_back(r);
      if (m.y < kLeastVariance || p.blocks == 0) continue;
      const double off = r.luma_fitted / r.luma - 1;
      squares += m.blocks * off * off;
      weights += m.blocks;
      if (std::abs(off) > std::abs(out->worst)) out->worst = off;
    }
  }
  out->misfit = weights > 0 ? std::sqrt(squares / weights) : 0;
}

struct brightness_range {
  double darkest = 255, brightest = 0;
  double most = 0;  // variance
};
brightness_range range_of(const std::vector<measured_gain>& measured) {
  brightness_range r;
  for (const measured_gain& m : measured) {
    for (const noise_point& p : m.noise.points) {
      r.darkest = std::min(r.darkest, p.brightness);
      r.brightest = std::max(r.brightest, p.brightness);
      r.most = std::max(r.most, p.y);
    }
  }
  return r;
}

void refuse_bad_fit(const fitting& f, const sensor_fit& fit) {
  const brightness_range r = range_of(f.measured);
  if (fit.misfit > kMostMisfit)
    throw error("", text("the sensor model does not fit: its deviations are off by %.0f %% in the "
                         "mean, by %+.0f %% at worst; are the gains right, and the files in their "
                         "order",
                         100 * fit.misfit, 100 * fit.worst));
  if (!(fit.full_well_error < kMostError))
    throw error("",
                text("full well and read noise cannot be told apart: brightness runs from %.0f "
                     "to %.0f at %zu gain%s, which leaves the full well open by %.0f %%; shots "
                     "from dark to bright, or of more gains, tell",
                     r.darkest, r.brightest, f.measured.size(), f.measured.size() == 1 ? "" : "s",
                     std::min(999.0, 100 * fit.full_well_error)));
}

// What the noise meter says of one gain; nothing where there is too little noise to count.
bool row_of(const sensor_shots& s, bool burst, sensor_row* row) {
  const noise_curve curve = measure_noise(s.frames, burst ? noise_scene::burst : noise_scene::flat);
  if (curve.all.found == 0) return false;
  row->gain = s.gain;
  row->luma = std::max(0.0, curve.y);
  row->u = std::max(0.0, curve.u);
  row->v = std::max(0.0, curve.v);
  row->luma_correlation = curve.correlation_y;
  row->chroma_correlation = curve.correlation_uv;
  row->luma_levels.assign(curve.all.luma_levels, curve.all.luma_levels + VORN_NOISE_LEVELS);
  row->chroma_levels.assign(curve.all.chroma_levels, curve.all.chroma_levels + 2);
  row->like = gains_of(curve);
  return true;
}

void take_rows(const std::vector<sensor_shots>& shots, bool burst, sensor_fit* out) {
  for (const sensor_shots& s : shots) {
    sensor_row row;
    if (!row_of(s, burst, &row)) {
      out->notes.push_back(of_gain(s.gain) +
                           ": less noise than counts (0.7 grey levels); only the fit uses it");
      continue;
    }
    if (!out->profile.rows.empty()) {
      const sensor_row& below = out->profile.rows.back();
      if (!(row.like.luma > below.like.luma && row.like.chroma > below.like.chroma))
        throw error(
            of_gain(s.gain),
            text("has no more noise than gain %g (luma like gain %.3g after %.3g, chroma "
                 "like %.3g after %.3g): are the gains right, and the files in their order",
                 below.gain, row.like.luma, below.like.luma, row.like.chroma, below.like.chroma));
    }
    out->profile.rows.push_back(row);
  }
  if (out->profile.rows.empty())
    throw error("", "no noise to fit: less than 0.7 grey levels at every gain");
}

}  // namespace

sensor_fit fit_sensor(const std::vector<sensor_shots>& shots, bool burst) {
  std::vector<measured_gain> measured;
  bool colour = false;
  for (const sensor_shots& s : shots) {
    if (burst) check_still(s);
    measured.push_back({s.gain, points_of(s.frames, burst)});
    check_points(s, measured.back().noise, burst);
    for (const frame& f : s.frames) colour = colour || !f.gray;
  }
  if (range_of(measured).most < kLeastVariance)
    throw error("",
                "no noise to fit: it is below what 8 bits show (a deviation of 0.4 grey levels)");
  sensor_fit out;
  fitting f(std::move(measured), colour);
  f.run();
  out.full_well_error = f.full_well_error;
  out.read_noise_error = f.read_noise_error;
  out.luma_correlation = f.wanted_luma;
  out.luma_correlation_fitted = f.made_luma;
  out.chroma_correlation = f.wanted_chroma;
  out.chroma_correlation_fitted = f.made_chroma;
  take_residuals(f, &out);
  refuse_bad_fit(f, out);
  out.profile.model = f.model;
  take_rows(shots, burst, &out);
  return out;
}

}  // namespace vorn::tool
