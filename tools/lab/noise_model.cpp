#include "tools/lab/noise_model.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace vorn::tool {
namespace {

// ---- random numbers -----------------------------------------------------------------------------

uint64_t mix(uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return z ^ (z >> 31);
}

// Twelve 16-bit uniforms summed: variance 12 * (65536^2 - 1) / 12, so 65536 is one sigma.
float normal(uint64_t key) {
  uint64_t sum = 0;
  for (int i = 0; i < 3; ++i) {
    const uint64_t bits = mix(key + i * 0x9e3779b97f4a7c15u);
    sum += (bits & 0xffff) + ((bits >> 16) & 0xffff) + ((bits >> 32) & 0xffff) + (bits >> 48);
  }
  return (static_cast<float>(sum) - 12 * 32767.5f) * (1.0f / 65536.0f);
}

// ---- tone curve ---------------------------------------------------------------------------------

// x^(1/5) by Newton's method.
double fifth_root(double x) {
  double r = 1;
  for (int i = 0; i < 60; ++i) r = (4 * r + x / (r * r * r * r)) / 5;
  return r;
}

// sRGB: code value 0..1 to linear light 0..1.
double to_linear(double v) {
  if (v <= 0.04045) return v / 12.92;
  const double b = (v + 0.055) / 1.055;
  const double root = fifth_root(b);
  return b * b * root * root;  // b^2.4
}

class tone_curve {
 public:
  tone_curve() : linear_(kCodes + 2), code_(kLights + 2) {
    for (int i = 0; i < kCodes + 2; ++i)
      linear_[i] = static_cast<float>(to_linear(static_cast<double>(i) / kCodes));
    // The inverse by walking up the finely sampled curve.
    constexpr int kFine = 1 << 16;
    double below = 0, above = to_linear(1.0 / kFine);
    int i = 0;
    for (int k = 0; k < kLights + 2; ++k) {
      const double light = static_cast<double>(k) / kLights;
      while (above < light) {
        ++i;
        below = above;
        above = to_linear(static_cast<double>(i + 1) / kFine);
      }
      code_[k] = static_cast<float>((i + (light - below) / (above - below)) / kFine);
    }
  }
  float linear(float code) const { return look_up(linear_, code, kCodes); }
  float code(float light) const { return look_up(code_, light, kLights); }

 private:
  static constexpr int kCodes = 1020;
  static constexpr int kLights = 1 << 15;

  static float look_up(const std::vector<float>& table, float x, int size) {
    const float at = std::clamp(x, 0.0f, 1.0f) * static_cast<float>(size);
    const int i = static_cast<int>(at);
    return table[i] + (at - static_cast<float>(i)) * (table[i + 1] - table[i]);
  }
  std::vector<float> linear_, code_;
};

// ---- sensor -------------------------------------------------------------------------------------

struct rgb {
  float r, g, b;
};

// BT.601 full range, as in JPEG files; values are code values 0..1.
rgb to_rgb(uint8_t y, uint8_t u, uint8_t v) {
  const float s = 1.0f / 255.0f;
  const float cu = (static_cast<float>(u) - 128.0f) * s;
  const float cv = (static_cast<float>(v) - 128.0f) * s;
  const float l = static_cast<float>(y) * s;
  return {l + 1.402f * cv, l - 0.344136f * cu - 0.714136f * cv, l + 1.772f * cu};
}

uint8_t rounded(float value) {
  return static_cast<uint8_t>(std::clamp(value + 0.5f, 0.0f, 255.0f));
}

// Standard deviation of one channel's noise in linear light after white balance.
struct channel_noise {
  float photon;   // w * gain / full_well
  float read_sq;  // (w * read_noise * gain / full_well)^2
  float sigma(float light) const { return std::sqrt(light * photon + read_sq); }
};

channel_noise channel(const noise_model& m, double balance) {
  const double per_electron = m.gain / m.full_well;
  const double read = balance * m.read_noise * per_electron;
  return {static_cast<float>(balance * per_electron), static_cast<float>(read * read)};
}

// One float per sample of a grid, read with its edge samples repeated outwards.
struct float_grid {
  float_grid(int width_in, int height_in)
      : width(width_in), height(height_in), samples(size_t(width_in) * height_in) {}
  float& operator()(int x, int y) { return samples[size_t(y) * width + x]; }
  float at(int x, int y) const {
    x = std::clamp(x, 0, width - 1);
    y = std::clamp(y, 0, height - 1);
    return samples[size_t(y) * width + x];
  }
  // A grid of half the resolution, read at full resolution: its sample (i, j) lies at pixel
  // (2i + phase_x, 2j + phase_y), pixels in between are interpolated.
  float between(int x, int y, int phase_x, int phase_y) const {
    const int gx = x - phase_x, gy = y - phase_y;
    const int x0 = gx >> 1, y0 = gy >> 1;
    const int x1 = x0 + (gx & 1), y1 = y0 + (gy & 1);
    return 0.25f * ((at(x0, y0) + at(x1, y0)) + (at(x0, y1) + at(x1, y1)));
  }
  float blurred(int x, int y) const {
    float sum = 0;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx)
        sum += at(x + dx, y + dy) * static_cast<float>((2 - dx * dx) * (2 - dy * dy));
    return sum * (1.0f / 16.0f);
  }

  int width, height;
  std::vector<float> samples;
};

float_grid unit_noise(int width, int height, uint64_t key) {
  float_grid grid(width, height);
  for (size_t i = 0; i < grid.samples.size(); ++i) grid.samples[i] = normal(mix(key + i));
  return grid;
}

// Repeats of a short binomial filter in both directions, whose variances add up.
void blur(float_grid& grid, double deviation) {
  const double twice_variance = 2 * deviation * deviation;
  const int passes = static_cast<int>(std::ceil(twice_variance));
  const float side = passes > 0 ? static_cast<float>(twice_variance / passes) * 0.25f : 0;
  for (int pass = 0; pass < 2 * passes; ++pass) {
    const int dx = pass % 2, dy = 1 - dx;
    const float_grid from = grid;
    for (int y = 0; y < grid.height; ++y)
      for (int x = 0; x < grid.width; ++x)
        grid(x, y) = (1 - 2 * side) * from.at(x, y) +
                     side * (from.at(x - dx, y - dy) + from.at(x + dx, y + dy));
  }
}

// Where the colour filter array has its red and blue pixels within 2x2.
constexpr int kRedX = 1, kRedY = 0, kBlueX = 0, kBlueY = 1;

rgb clean_at(const frame& f, int x, int y) {
  const uint8_t* uv = f.chroma() + size_t(y / 2) * f.padded_width + (x & ~1);
  return to_rgb(f.luma()[size_t(y) * f.padded_width + x], uv[0], uv[1]);
}

}  // namespace

// In the order of a camera, which is why it is one function: the sensor's noise in linear light,
// colours between its pixels, tone curve, chroma at half size.
void add_noise(frame& f, const noise_model& model) {
  if (!(model.gain > 0)) return;
  static const tone_curve curve;
  const int width = f.padded_width, height = f.padded_height;
  const channel_noise red = channel(model, model.red_balance);
  const channel_noise green = channel(model, 1);
  const channel_noise blue = channel(model, model.blue_balance);
  const uint64_t key = mix(model.seed + 0x51ed270b0a1f39c1u);

  // Green: noise at every pixel, in linear light.
  float_grid green_noise = unit_noise(width, height, mix(key + 1));
  if (model.luma_blur > 0) {
    const float_grid sharp = green_noise;
    const float share = static_cast<float>(model.luma_blur);
    // Squares of the mixed weights: the middle one, and the eight around it. The noise keeps its
    // standard deviation.
    const float middle = 1 - 0.75f * share;
    const float scale = 1 / std::sqrt(middle * middle + share * share * (20.0f / 256.0f));
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        green_noise(x, y) =
            scale * (sharp.at(x, y) + share * (sharp.blurred(x, y) - sharp.at(x, y)));
  }
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      green_noise(x, y) *= green.sigma(curve.linear(clean_at(f, x, y).g));

  // Red and blue are measured at one pixel in four; their difference to green is what a
  // demosaicing step interpolates in between.
  float_grid red_difference = unit_noise(width / 2, height / 2, mix(key + 2));
  float_grid blue_difference = unit_noise(width / 2, height / 2, mix(key + 3));
  for (int y = 0; y < height / 2; ++y) {
    for (int x = 0; x < width / 2; ++x) {
      const int rx = 2 * x + kRedX, ry = 2 * y + kRedY, bx = 2 * x + kBlueX, by = 2 * y + kBlueY;
      float& r = red_difference(x, y);
      float& b = blue_difference(x, y);
      r = r * red.sigma(curve.linear(clean_at(f, rx, ry).r)) - green_noise(rx, ry);
      b = b * blue.sigma(curve.linear(clean_at(f, bx, by).b)) - green_noise(bx, by);
    }
  }

  // The tone curve turns the noise of each channel into a change of its code value; the changes go
  // to luma per pixel and to chroma as the mean of its four pixels.
  float_grid u_change(width / 2, height / 2), v_change(width / 2, height / 2);
  for (int cy = 0; cy < height / 2; ++cy) {
    for (int cx = 0; cx < width / 2; ++cx) {
      const uint8_t* uv = f.chroma() + size_t(cy) * width + 2 * cx;
      const uint8_t u = uv[0], v = uv[1];
      float du = 0, dv = 0;
      for (int k = 0; k < 4; ++k) {
        const int x = 2 * cx + (k & 1), y = 2 * cy + (k >> 1);
        uint8_t* luma = f.luma() + size_t(y) * width + x;
        const rgb clean = to_rgb(*luma, u, v);
        const float r = curve.linear(clean.r), g = curve.linear(clean.g), b = curve.linear(clean.b);
        const float ng = green_noise(x, y);
        const float nr = ng + red_difference.between(x, y, kRedX, kRedY);
        const float nb = ng + blue_difference.between(x, y, kBlueX, kBlueY);
        const float dr = curve.code(r + nr) - curve.code(r);
        const float dg = curve.code(g + ng) - curve.code(g);
        const float db = curve.code(b + nb) - curve.code(b);
        const float dy = 0.299f * dr + 0.587f * dg + 0.114f * db;
        du += (db - dy) * (0.5f / (1 - 0.114f));
        dv += (dr - dy) * (0.5f / (1 - 0.299f));
        *luma = rounded(static_cast<float>(*luma) + 255.0f * dy);
      }
      u_change(cx, cy) = 255.0f * 0.25f * du;
      v_change(cx, cy) = 255.0f * 0.25f * dv;
    }
  }
  blur(u_change, model.chroma_blur);
  blur(v_change, model.chroma_blur);
  const float strength = static_cast<float>(model.chroma_strength);
  for (int cy = 0; cy < height / 2; ++cy) {
    uint8_t* uv = f.chroma() + size_t(cy) * width;
    for (int cx = 0; cx < width / 2; ++cx, uv += 2) {
      uv[0] = rounded(static_cast<float>(uv[0]) + strength * u_change(cx, cy));
      uv[1] = rounded(static_cast<float>(uv[1]) + strength * v_change(cx, cy));
    }
  }
}

}  // namespace vorn::tool
