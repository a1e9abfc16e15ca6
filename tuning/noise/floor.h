// The lowest variance that a share of blocks has in one band: the noise, where parts of a picture
// are flat, and a bound of it everywhere.
//
// Every block's energy is its true variance (noise and scene) times a chi-square factor that is
// known from the number of coefficients. On a logarithmic axis the factor is a shift by a known
// random amount, so the distribution of true variances follows from the histogram of energies by
// repeated Bayesian deconvolution (Richardson 1972, Lucy 1974), a maximum likelihood estimate
// without a model of the scene. The floor is the first peak of what comes out, above the lowest
// kLowestShare: neither the scatter of few coefficients nor a scene that fills nearly the whole
// picture shifts it.
#pragma once

#include <vector>

namespace vorn::noise {

struct noise_floor {
  double variance = -1;  // of one coefficient; -1 with fewer than kFewestBlocks
  double share = 0;  // of the blocks, that lie within the peak: near 1 noise alone, near 0 scene
};

constexpr int kFewestBlocks = 40;

// energies: block::calm of `band`, one per block, in any order.
noise_floor find_floor(const std::vector<float>& energies, int band);

// The same where every block shows noise alone: the median of block::all of `band`.
noise_floor floor_of_flat(std::vector<float> energies, int band);

}  // namespace vorn::noise
