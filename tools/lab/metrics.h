// quality figures of one channel against a reference of the same size.
//
// PSNR: 10 log10(255^2 / MSE) over all samples of the channel; identical channels give infinity.
// SSIM: mean over the channel of the structural similarity of Wang et al. with an 11x11 Gaussian
//   window (sigma 1.5, weights normalised), K1 = 0.01, K2 = 0.03, L = 255, population variances,
//   evaluated where the window lies inside the channel. Channels below 11 samples in a direction
//   use the largest odd window that fits there.
// Chroma is compared at its own resolution, U and V apart; nothing is converted to RGB.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/picture/frame.h"

namespace vorn::tool {

// One channel in memory: sample (x, y) is data[y * stride + x * step].
struct plane_view {
  const uint8_t* data;
  int width;
  int height;
  ptrdiff_t stride;  // bytes
  int step;          // bytes; 2 for U or V inside an interleaved plane
};

// A channel of a frame without its padding.
plane_view luma_view(const frame& f);
plane_view u_view(const frame& f);
plane_view v_view(const frame& f);

double mean(const plane_view& a);
double mean_squared_error(const plane_view& a, const plane_view& b);
double psnr(const plane_view& a, const plane_view& b);
double ssim(const plane_view& a, const plane_view& b);

// PSNR in dB of a mean squared error, infinity for 0.
double psnr_of(double mean_squared_error);

// All figures of one frame against a reference.
struct quality {
  double psnr_y, psnr_u, psnr_v;
  double psnr_uv;  // of the mean squared error of U and V together
  double ssim_y, ssim_u, ssim_v;
  double mean_shift_y, mean_shift_u, mean_shift_v;  // mean(frame) - mean(reference), grey levels
};
quality compare_frames(const frame& f, const frame& reference);

// How much the difference of two streams changes from one frame to the next: the root mean square
// of (f - reference) - (f_before - reference_before) per channel, grey levels. 0 where what differs
// stands still. Frames of one size.
struct flicker {
  double y, u, v;
};
flicker flicker_between(const frame& f, const frame& reference, const frame& f_before,
                        const frame& reference_before);

}  // namespace vorn::tool
