// The noise of a small camera sensor, put on a clean picture, the same bytes on every machine.
//
// Light at a pixel frees electrons; their number scatters with its square root (photon noise) and
// the read-out adds a constant scatter (read noise). White balance then magnifies red and blue, a
// demosaicing step takes green from every pixel but the red and blue differences from one pixel in
// four, interpolated in between, and a tone curve (sRGB) and 8 bits follow. So luma noise comes out
// nearly white and depends on brightness, chroma noise comes out spread over several pixels.
//
// Per colour channel with linear light x in 0..1 and white-balance gain w:
//   variance = w^2 * (x / w * gain / full_well + (read_noise * gain / full_well)^2)
// Noise is normally distributed (a sum of twelve uniform numbers), drawn from a hash of seed, pixel
// and channel: no state, no order. Only +, -, *, / and square roots are used, without contraction,
// so no machine's mathematical library can change a byte.
#pragma once

#include <cstdint>

#include "tools/picture/frame.h"

namespace vorn::tool {

struct noise_model {
  double gain = 8;            // sensor gain, 1 = base sensitivity; 0 adds nothing
  uint64_t seed = 1;          // another seed, another picture of the same noise
  double full_well = 4500;    // electrons at white at gain 1
  double read_noise = 2.0;    // electrons
  double red_balance = 1.9;   // white-balance gain of red over green
  double blue_balance = 1.6;  // and of blue
  // Share of a 3x3 binomial blur in the green noise, 0..1, at the same standard deviation: 0 is a
  // demosaicing that keeps every green sample, 1 one that blurs green as well.
  double luma_blur = 0;
  // Standard deviation, in chroma samples, of the blur that the pipeline puts on the chroma noise:
  // 0 is none beyond demosaicing, 0.85 what real cameras' pictures show.
  double chroma_blur = 0;
  // What the pipeline leaves of the deviation of the chroma noise, beyond that blur.
  double chroma_strength = 1;
};

// Adds noise to a clean frame. Padding outside the crop receives noise like the rest.
void add_noise(frame& f, const noise_model& model);

}  // namespace vorn::tool
