#include "tools/lab/metrics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace vorn::tool {
namespace {

constexpr int kWindow = 11;
constexpr double kWindowSigma = 1.5;
constexpr double kC1 = (0.01 * 255) * (0.01 * 255);
constexpr double kC2 = (0.03 * 255) * (0.03 * 255);

std::vector<float> gaussian_window(int size) {
  std::vector<double> weights(size);
  double sum = 0;
  for (int i = 0; i < size; ++i) {
    const double d = i - size / 2;
    weights[i] = std::exp(-d * d / (2 * kWindowSigma * kWindowSigma));
    sum += weights[i];
  }
  std::vector<float> normalised(size);
  for (int i = 0; i < size; ++i) normalised[i] = static_cast<float>(weights[i] / sum);
  return normalised;
}

int window_for(int length) {
  return std::min(kWindow, length - (length % 2 == 0));
}

// The five local moments of SSIM, filtered along the rows: a, b, a*a, b*b, a*b.
constexpr int kMoments = 5;

}  // namespace

plane_view luma_view(const frame& f) {
  return {f.luma(), f.width, f.height, f.padded_width, 1};
}

plane_view u_view(const frame& f) {
  return {f.chroma(), f.chroma_width(), f.chroma_height(), f.padded_width, 2};
}

plane_view v_view(const frame& f) {
  plane_view view = u_view(f);
  ++view.data;
  return view;
}

double mean(const plane_view& a) {
  uint64_t sum = 0;
  for (int y = 0; y < a.height; ++y) {
    const uint8_t* row = a.data + y * a.stride;
    for (int x = 0; x < a.width; ++x) sum += row[x * a.step];
  }
  return static_cast<double>(sum) / (static_cast<double>(a.width) * a.height);
}

double mean_squared_error(const plane_view& a, const plane_view& b) {
  uint64_t sum = 0;
  for (int y = 0; y < a.height; ++y) {
    const uint8_t* row_a = a.data + y * a.stride;
    const uint8_t* row_b = b.data + y * b.stride;
    for (int x = 0; x < a.width; ++x) {
      const int d = row_a[x * a.step] - row_b[x * b.step];
      sum += static_cast<unsigned>(d * d);
    }
  }
  return static_cast<double>(sum) / (static_cast<double>(a.width) * a.height);
}

double psnr_of(double mse) {
  if (mse <= 0) return std::numeric_limits<double>::infinity();
  return 10 * std::log10(255.0 * 255.0 / mse);
}

double psnr(const plane_view& a, const plane_view& b) {
  return psnr_of(mean_squared_error(a, b));
}

double ssim(const plane_view& a, const plane_view& b) {
  const std::vector<float> wx = gaussian_window(window_for(a.width));
  const std::vector<float> wy = gaussian_window(window_for(a.height));
  const int size_x = static_cast<int>(wx.size());
  const int size_y = static_cast<int>(wy.size());
  const int out_width = a.width - size_x + 1;
  const int out_height = a.height - size_y + 1;

  // A ring of the last size_y rows, already filtered horizontally.
  const size_t moment_size = static_cast<size_t>(out_width);
  std::vector<float> ring(moment_size * kMoments * size_y);
  std::array<std::vector<float>, kMoments> line;
  for (auto& samples : line) samples.resize(a.width);
  std::vector<float> column(moment_size * kMoments);

  double total = 0;
  for (int y = 0; y < a.height; ++y) {
    const uint8_t* row_a = a.data + y * a.stride;
    const uint8_t* row_b = b.data + y * b.stride;
    for (int x = 0; x < a.width; ++x) {
      // 128 is taken off so that float keeps the small variances; the means get it back below.
      const float p = static_cast<float>(row_a[x * a.step]) - 128.0f;
      const float q = static_cast<float>(row_b[x * b.step]) - 128.0f;
      line[0][x] = p;
      line[1][x] = q;
      line[2][x] = p * p;
      line[3][x] = q * q;
      line[4][x] = p * q;
    }
    float* slot = &ring[moment_size * kMoments * (y % size_y)];
    for (int m = 0; m < kMoments; ++m) {
      float* out = slot + m * moment_size;
      std::fill(out, out + out_width, 0.0f);
      for (int k = 0; k < size_x; ++k) {
        const float* in = line[m].data() + k;
        for (int x = 0; x < out_width; ++x) out[x] += wx[k] * in[x];
      }
    }
    if (y < size_y - 1) continue;

    std::fill(column.begin(), column.end(), 0.0f);
    for (int k = 0; k < size_y; ++k) {
      const float* in = &ring[moment_size * kMoments * ((y - size_y + 1 + k) % size_y)];
      for (size_t i = 0; i < moment_size * kMoments; ++i) column[i] += wy[k] * in[i];
    }
    double row_total = 0;
    for (int x = 0; x < out_width; ++x) {
      const double mp = column[x];
      const double mq = column[moment_size + x];
      const double vp = std::max(0.0, column[2 * moment_size + x] - mp * mp);
      const double vq = std::max(0.0, column[3 * moment_size + x] - mq * mq);
      const double cov = column[4 * moment_size + x] - mp * mq;
      const double up = mp + 128, uq = mq + 128;
      row_total +=
          ((2 * up * uq + kC1) * (2 * cov + kC2)) / ((up * up + uq * uq + kC1) * (vp + vq + kC2));
    }
    total += row_total;
  }
  return total / (static_cast<double>(out_width) * out_height);
}

quality compare_frames(const frame& f, const frame& reference) {
  const plane_view a[3] = {luma_view(f), u_view(f), v_view(f)};
  const plane_view b[3] = {luma_view(reference), u_view(reference), v_view(reference)};
  double mse[3], similarity[3], shift[3];
  for (int c = 0; c < 3; ++c) {
    mse[c] = mean_squared_error(a[c], b[c]);
    similarity[c] = ssim(a[c], b[c]);
    shift[c] = mean(a[c]) - mean(b[c]);
  }
  return {psnr_of(mse[0]), psnr_of(mse[1]), psnr_of(mse[2]), psnr_of((mse[1] + mse[2]) / 2),
          similarity[0],   similarity[1],   similarity[2],   shift[0],
          shift[1],        shift[2]};
}

namespace {

double change(const plane_view& a, const plane_view& b, const plane_view& a_before,
              const plane_view& b_before) {
  uint64_t sum = 0;
  for (int y = 0; y < a.height; ++y) {
    const ptrdiff_t row = y * a.stride;
    for (int x = 0; x < a.width; ++x) {
      const ptrdiff_t at = row + x * a.step;
      const int d = (a.data[at] - b.data[at]) - (a_before.data[at] - b_before.data[at]);
      sum += static_cast<unsigned>(d * d);
    }
  }
  return std::sqrt(static_cast<double>(sum) / (static_cast<double>(a.width) * a.height));
}

}  // namespace

flicker flicker_between(const frame& f, const frame& reference, const frame& f_before,
                        const frame& reference_before) {
  const auto of = [&](plane_view (*view)(const frame&)) {
    return change(view(f), view(reference), view(f_before), view(reference_before));
  };
  return {of(luma_view), of(u_view), of(v_view)};
}

}  // namespace vorn::tool
