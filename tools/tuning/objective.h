// What a search calls good.
#pragma once

#include <string>

#include "tools/picture/frame.h"

namespace vorn::tool {

enum class objective {
  psnr,  // mean PSNR of Y in dB; of U and V together in dB
  ssim,  // mean SSIM of Y; of U and V
  mix,   // PSNR less kTexturePrice dB times the share of luma texture that was lost
};
objective objective_of(const std::string& name);  // an `error` for other names

// Price of losing all faint texture, in dB, under objective::mix.
constexpr double kTexturePrice = 6;

// Share of faint texture that a picture lost against its clean version, 0..1: over blocks of 8x8
// whose clean scatter lies between 1.5 and 16 grey levels, one less the regression of the picture's
// block-wise deviations on the clean ones.
double lost_texture(const frame& f, const frame& clean);

// What a frame is held against: its clean version, or another shot of the scene with noise of its
// own. Such noise is not known to the frame, so it adds its variance to the squared error,
// E (f - other)^2 = E (f - clean)^2 + variance, and is taken off again.
struct reference {
  const frame& picture;
  double luma_noise = 0, chroma_noise = 0;  // variance, of chroma the mean of U's and V's; 0: clean

  bool noisy() const { return luma_noise > 0 || chroma_noise > 0; }
};

// Figures of one frame against its reference, as far as they are wanted. Sums and quotients
// alone, so that they have the same bits on every machine; logarithms are taken where they meet.
struct sample_figures {
  // Of Y, or the mean of U's and V's; grey levels squared. Against a noisy reference an estimate,
  // at least a hundredth of the reference's noise.
  double mse = 0;
  // Against a clean reference only: noise hides structure and texture.
  double ssim = 0;
  double lost_texture = 0;  // luma only
};

// Figures of one tuning over all samples; means of the samples' values.
struct tuning_score {
  double value = 0;  // under the objective, of the half (luma or chroma) being searched
  // Figures that the objective does not need are there on request only, else 0.
  double psnr = 0, ssim = 0;
  double lost_texture = 0;  // luma only
};

// all: with every figure, else with those that the objective needs.
sample_figures luma_figures(const frame& f, const reference& r, objective goal, bool all);
sample_figures chroma_figures(const frame& f, const reference& r, objective goal, bool all);
// Means over `count` samples, and the value under the objective in dB.
tuning_score combine(const sample_figures* each, size_t count, objective goal);

}  // namespace vorn::tool
