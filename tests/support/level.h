// One chroma level, for tests of the filters over it, and any tuning of them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/handle.h"
#include "tests/support/canvas.h"
#include "tests/support/forms.h"

namespace vorn_test {

struct level {
  int width, height;
  canvas guide, src_u, src_v, dst_u, dst_v;

  // All planes of one size without padding; the sources hold contents of any kind.
  level(int w, int h, random_source& random)
      : width(w),
        height(h),
        guide(painted(w, h, w, random)),
        src_u(painted(w, h, w, random)),
        src_v(painted(w, h, w, random)),
        dst_u(w, h, w, random),
        dst_v(w, h, w, random) {}
  // All samples 128.
  level(int w, int h) : level(w, h, random_source(1)) { fill(0, 0); }
  level(const level&) = delete;

  // Samples of the sources stray from 128 by up to spread.
  void fill(uint64_t seed, int spread) {
    random_source random(seed);
    for (canvas* plane : {&guide, &src_u, &src_v, &dst_u, &dst_v})
      for (int i = 0; i < width * height; ++i)
        plane->data()[i] =
            static_cast<uint8_t>(128 + random.between(-spread, spread - (spread > 0)));
  }

  // Runs a stage over the five planes; `more` is what it takes beside them.
  template <typename... Types, typename... More>
  int run(int (*stage)(cnr_handle_t*, _tag_uni_image*, _tag_uni_image*, _tag_uni_image*,
                       _tag_uni_image*, _tag_uni_image*, _tag_cnr_param*, Types...),
          _tag_cnr_param param, More... more) {
    return stage(stage_handle()->cnr, guide.image(), src_u.image(), src_v.image(), dst_u.image(),
                 dst_v.image(), &param, more...);
  }

 private:
  level(int w, int h, random_source&& random) : level(w, h, random) {}
};

inline _tag_cnr_param chroma_param(float range_factor, int radius, int step, int level_mode) {
  _tag_cnr_param param{};
  for (float& coef : param.range_coef) coef = 1.0f / (range_factor * range_factor);
  param.smooth_radius = radius;
  param.smooth_step = step;
  param.color_edge_u = 8;
  param.color_edge_v = 8;
  param.level_mode = level_mode;
  return param;
}

enum class strength { everyday, bounds, anything };

inline strength any_strength(random_source& random) {
  return static_cast<strength>(random.between(0, 2));
}

// `bounds` stays around the values up to which 16-bit differences, byte look-ups and a quotient in
// single precision can serve: edges of 24, differences of 1926, 80 taps, weights that end at 128.
inline _tag_cnr_param random_param(random_source& random, strength s) {
  const tuning t = random_tuning(random);
  int factor = t.cnr.range_factor;
  _tag_cnr_param p = chroma_param(1, t.cnr.smooth_radius, t.cnr.step, random.between(-1, 0));
  p.color_edge_u = t.cnr.color_edge_u;
  p.color_edge_v = t.cnr.color_edge_v;
  if (s == strength::everyday) {
    factor = random.between(2, 60);
    p.smooth_radius = random.between(0, 20);
    p.smooth_step = random.between(1, 5);
    p.color_edge_u = random.between(0, 30);
    p.color_edge_v = random.between(0, 30);
  } else if (s == strength::bounds) {
    factor = random.pick({7, 8, 9, 63, 64, 65, 127, 128, 255, 256, 300, 100000});
    p.smooth_step = random.pick({1, 1, 1, 2, 7});
    p.smooth_radius = p.smooth_step * random.pick({0, 1, 3, 39, 40, 41, 42, 60});
    p.color_edge_u = random.pick({0, 8, 23, 24, 25, 26, 28, 29, 30, 52, 53, 60});
    p.color_edge_v = random.pick({0, 8, 23, 24, 25, 26, 28, 29, 30, 52, 53, 60});
  }
  const float width = static_cast<float>(factor);
  for (float& c : p.range_coef) c = 1.0f / (width * width);
  return p;
}

inline model::chroma_param of(const _tag_cnr_param& p) {
  return {p.range_coef[0], p.smooth_radius, p.smooth_step,
          p.color_edge_u,  p.color_edge_v,  p.level_mode};
}

}  // namespace vorn_test
